// Any number of groups in one file, and how a reader knows that it has had all of them.

#include <TnRobotKernel/make.h>

#include <cstdio>
#include <system_error>

namespace {

// [save]
bool Save(const char* lpszPath, std::error_code& ec) {
    tn::GroupFileWriter writer(lpszPath);
    for (int nPart = 1; nPart <= 3; ++nPart) {
        const auto part = tn::MakeValueDataGroup();
        tn::Set(*part, "part", nPart);
        tn::Set(*part, "width", 20.0 + 0.1 * nPart);
        if (!writer.Write(*part, ec)) {
            return false;
        }
    }
    return writer.Save(ec);  // only now is there a new file
}
// [/save]

// [load]
bool Load(const char* lpszPath, std::error_code& ec) {
    tn::GroupFileReader reader(lpszPath);
    while (const auto part = reader.ReadGroup(ec)) {
        std::printf("part %d: %.1f mm\n", tn::Get<int>(*part, "part").value_or(0),
                    tn::Get<double>(*part, "width").value_or(0));
    }
    return ec == tn::errc::end_of_file;  // anything else is a reason why the rest could not be read
}
// [/load]

}  // namespace

int main() {
    std::error_code ec;
    if (!Save("parts.tnr", ec) || !Load("parts.tnr", ec)) {
        std::fprintf(stderr, "parts.tnr: %s\n", ec.message().c_str());
        return 1;
    }
    // [flushed]
    // Often, and not worth a wait for the disk.
    const bool bSaved = tn::SaveTo("last.tnr", *tn::MakeIntData(3), tn::Durability::kFlushed);
    // [/flushed]
    return bSaved ? 0 : 1;
}
