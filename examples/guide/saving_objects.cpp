// A graph of objects of one's own: a cell with two arms that share a gripper, saved and made again.

#include <TnRobotKernel/make.h>

#include <cstdio>
#include <string>
#include <system_error>
#include <vector>

namespace {

// [part]
// Made by identifier, saved through an archive, and counted because parts are shared.
class Part final : public CTnRobotObject, public ITnRobotSerialize, public ITnUnknown {
public:
    explicit Part(const char* lpszName = "") : m_strName(lpszName) {}
    static CTnRobotObject* Create() { return new Part; }
    static STnRuntimeClass s_class;
    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    int Serialize(ITnRobotArchive* pArchive) override {
        return pArchive->IsStoring() ? Store(*pArchive) : Load(*pArchive);
    }

    std::string m_strName;
    std::vector<TnRobotPtr<Part>> m_parts;

private:
    int Store(ITnRobotArchive& archive);
    int Load(ITnRobotArchive& archive);
};

STnRuntimeClass Part::s_class = {"5d0c3f1e-9d3a-4f6b-8a44-2b6f3e0c7a11", &Part::Create, nullptr, nullptr};
const TN_REG_CLASS s_registerPart(&Part::s_class);
// [/part]

// [serialize]
int Part::Store(ITnRobotArchive& archive) {
    const auto nParts = static_cast<unsigned int>(m_parts.size());
    bool bOk = archive.WriteString(m_strName.c_str()) == 1 && archive.Write(&nParts, sizeof(nParts)) == 1;
    for (const TnRobotPtr<Part>& part : m_parts) {
        bOk = bOk && archive.WriteObject(part.get()) == 1;  // in full the first time, then by its index
    }
    return bOk ? 1 : 0;
}

int Part::Load(ITnRobotArchive& archive) {
    int nLength = 0;
    int nError = 0;
    const char* lpszName = archive.ReadString(nLength, &nError);
    m_strName = lpszName != nullptr ? lpszName : "";  // an empty text reads as null
    unsigned int nParts = 0;
    bool bOk = nError == 0 && archive.Read(&nParts, sizeof(nParts)) == sizeof(nParts);
    while (bOk && m_parts.size() < nParts) {
        m_parts.push_back(tn::ReadObject<Part>(archive));  // empty when it is no part
        bOk = m_parts.back() != nullptr;
    }
    return bOk ? 1 : 0;
}
// [/serialize]

}  // namespace

// [main]
int main() {
    const auto cell = tn::MakeObject<Part>("cell");
    const auto gripper = tn::MakeObject<Part>("gripper");
    for (const char* lpszName : {"left arm", "right arm"}) {
        cell->m_parts.push_back(tn::MakeObject<Part>(lpszName));
        cell->m_parts.back()->m_parts = {gripper};
    }
    std::error_code ec;
    const auto loaded = tn::SaveGraph("cell.tnr", *cell, ec) ? tn::LoadGraph<Part>("cell.tnr", ec) : nullptr;
    if (!loaded || loaded->m_parts.size() != 2) {
        std::fprintf(stderr, "cell.tnr: %s\n", ec.message().c_str());
        return 1;
    }
    for (const TnRobotPtr<Part>& arm : loaded->m_parts) {
        std::printf("%s: %s with %s\n", loaded->m_strName.c_str(), arm->m_strName.c_str(),
                    arm->m_parts.at(0)->m_strName.c_str());
    }
    const bool bShared = loaded->m_parts[0]->m_parts[0] == loaded->m_parts[1]->m_parts[0];
    std::printf("one gripper for both: %s\n", bShared ? "yes" : "no");
    return bShared ? 0 : 1;
}
// [/main]
