// A block of bytes in a saved group: its size is kept beside it, because a loaded value does not tell.

#include <TnRobotKernel/make.h>

#include <cstdio>
#include <string>

int main() {
    // [save]
    const std::string strCurve = "rising, flat, falling";
    const auto nCurve = static_cast<unsigned int>(strCurve.size());
    const auto saved = tn::MakeValueDataGroup();
    saved->SetValue("curve", strCurve.data(), nCurve);
    saved->SetValue("curve.size", nCurve);
    // [/save]

    const auto file = tn::MakeFile();
    const auto archive = tn::MakeArchive();
    if (!file->Open("curve.tnr", true) || !archive->Attach(file.get(), true) || saved->Serialize(archive.get()) != 1) {
        return 1;
    }
    // [check]
    archive->Flush();
    const bool bReachedTheDisk = file->GetPos() != -1;  // -1 once anything could not be written
    // [/check]
    archive->Detach();
    file->Close();

    const auto loaded = tn::MakeValueDataGroup();
    if (!bReachedTheDisk || !file->Open("curve.tnr", false) || !archive->Attach(file.get(), false) ||
        loaded->Serialize(archive.get()) != 1) {
        return 1;
    }
    // [load]
    unsigned int nReported = 0;
    const void* pCurve = loaded->BlockData("curve", nReported, nullptr);
    const unsigned int nSize = loaded->UintData("curve.size", nullptr);
    const std::string strLoaded = pCurve != nullptr ? std::string(static_cast<const char*>(pCurve), nSize) : "";
    std::printf("size reported %u, kept %u: %s\n", nReported, nSize, strLoaded.c_str());
    // [/load]
    return strLoaded == strCurve ? 0 : 1;
}
