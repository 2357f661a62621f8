// Files of C++ for Python and files of Python for C++: golden write DIRECTORY makes the files that lie in
// python/tests/golden, golden check DIRECTORY looks whether those in a directory hold the same.

#include <TnRobotKernel/make.h>
#include <TnRobotKernel/tn/tn.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

// A part that may stand on another one, and has settings.
class CPart : public CTnRobotObject, public ITnRobotSerialize, public ITnUnknown {
public:
    STnRuntimeClass* GetRuntimeClass() override;

    int Serialize(ITnRobotArchive* pArchive) override {
        if (pArchive->IsStoring()) {
            pArchive->WriteString(m_strName.c_str());
            pArchive->Write(&m_dWeight, sizeof(m_dWeight));
            m_settings->Serialize(pArchive);
            pArchive->WriteObject(m_below.get());
            return 1;
        }
        int nLength = 0;
        const char* lpszName = pArchive->ReadString(nLength, nullptr);
        m_strName = lpszName != nullptr ? lpszName : "";
        pArchive->Read(&m_dWeight, sizeof(m_dWeight));
        m_settings->Serialize(pArchive);
        std::error_code ec;
        m_below = tn::ReadObject<CPart>(*pArchive, ec);
        return ec ? 0 : 1;
    }

    std::string m_strName;
    double m_dWeight = 0;
    TnRobotPtr<ITnRobotDataValueGroup> m_settings = tn::MakeValueDataGroup();
    TnRobotPtr<CPart> m_below;
};

STnRuntimeClass g_partClass = {"5a1f6c7e-0c58-4f0e-9a35-2f6d11c0a901",
                               []() -> CTnRobotObject* { return tn::MakeObject<CPart>().detach(); }, nullptr, nullptr};
const TN_REG_CLASS g_registered(&g_partClass);

STnRuntimeClass* CPart::GetRuntimeClass() {
    return &g_partClass;
}

constexpr unsigned char kBlock[] = {0, 1, 2, 254, 255};

TnRobotPtr<ITnRobotDataValueGroup> MakeValues() {
    const auto group = tn::MakeValueDataGroup();
    group->SetValue("bool", true);
    group->SetValue("short", static_cast<short>(-32768));
    group->SetValue("ushort", static_cast<unsigned short>(65535));
    group->SetValue("int", -2147483647 - 1);
    group->SetValue("uint", 4294967295U);
    group->SetValue("float", 0.1F);
    group->SetValue("double", 0.1);
    group->SetValue("longlong", -9223372036854775807LL - 1);
    group->SetValue("ulonglong", 18446744073709551615ULL);
    group->SetValue("string", "Prüfung ☃");
    group->SetValue("block", kBlock, sizeof(kBlock));
    group->SetValue("char", 'x');
    group->SetValue("byte", static_cast<unsigned char>(255));
    return group;
}

// The recorded length of a loaded block, which its text goes by, is not that of the block.
bool IsSame(ITnRobotDataValue& first, ITnRobotDataValue& second) {
    using Bytes = std::vector<unsigned char>;
    if (first.GetDataValueType() == DATA_TYPE_BLOCK) {
        return tn::Get<Bytes>(first) == tn::Get<Bytes>(second);
    }
    return first.GetDataValueType() == second.GetDataValueType() &&
           std::strcmp(first.Convert2String(nullptr), second.Convert2String(nullptr)) == 0;
}

bool IsSame(ITnRobotDataValueGroup& first, ITnRobotDataValueGroup& second) {
    const auto items = tn::Items(first);
    bool bSame = items.size() == tn::Items(second).size();
    for (const auto& [strName, value] : items) {
        const auto other = tn::GetValue(second, strName.c_str());
        bSame = bSame && other && IsSame(*value, *other);
    }
    return bSame;
}

TnRobotPtr<CPart> MakeParts() {
    auto below = tn::MakeObject<CPart>();
    below->m_strName = "base";
    below->m_dWeight = 2.5;
    auto part = tn::MakeObject<CPart>();
    part->m_strName = "arm";
    part->m_dWeight = 0.5;
    part->m_settings->SetValue("speed", 7);
    part->m_below = below;
    return part;
}

bool Write(const std::string& strDirectory) {
    bool bWritten = true;
    tn::GroupFileWriter several((strDirectory + "/several.tnr").c_str());
    for (int i = 0; i < 3; ++i) {
        const auto group = tn::MakeValueDataGroup();
        group->SetValue("number", i);
        bWritten = several.Write(*group) && bWritten;
    }
    const TnRobotPtr<CPart> part = MakeParts();
    tn::ObjectWriter graph;
    return bWritten && tn::SaveTo((strDirectory + "/values.tnr").c_str(), *MakeValues()) && several.Save() &&
           graph.Write(part.get()) && graph.Write(part->m_below.get()) &&
           graph.Save((strDirectory + "/graph.tnr").c_str());
}

bool CheckGraph(const std::string& strPath) {
    tn::ObjectReader reader(strPath.c_str());
    const auto part = reader.Read<CPart>();
    const auto below = reader.Read<CPart>();
    return part && below && reader.Finish() && part->m_below.get() == below.get() && part->m_strName == "arm" &&
           below->m_strName == "base" && std::fabs(below->m_dWeight - 2.5) < 1e-12 &&
           part->m_settings->IntData("speed", nullptr) == 7 && !below->m_below;
}

bool Check(const std::string& strDirectory) {
    const auto values = tn::MakeValueDataGroup();
    bool bSame = tn::LoadFrom((strDirectory + "/values.tnr").c_str(), *values) && IsSame(*values, *MakeValues());
    tn::GroupFileReader several((strDirectory + "/several.tnr").c_str());
    for (int i = 0; i < 3; ++i) {
        const auto group = several.ReadGroup();
        bSame = bSame && group && group->IntData("number", nullptr) == i;
    }
    return bSame && !several.ReadGroup() && several.Reason() == tn::errc::end_of_file &&
           CheckGraph(strDirectory + "/graph.tnr");
}

}  // namespace

int main(int argc, char** argv) {
    const std::string strVerb = argc == 3 ? argv[1] : "";
    if (strVerb != "write" && strVerb != "check") {
        std::fprintf(stderr, "usage: golden write|check DIRECTORY\n");
        return 2;
    }
    const bool bDone = strVerb == "write" ? Write(argv[2]) : Check(argv[2]);
    std::puts(bDone ? "good" : "bad");
    return bDone ? 0 : 1;
}
