#include "ObjectGraph.h"

#include <TnRobotKernel/make.h>

#include <cstdio>
#include <system_error>
#include <utility>

namespace {

constexpr char kSharedTool[] = "gripper";
constexpr const char* kArms[] = {"left arm", "right arm"};

// What counted, serialisable objects with a name have in common. The two bases that count and
// that are created by identifier are separate, so an object moves between them by dynamic_cast.
class CNamedObject : public CTnRobotObject, public ITnRobotSerialize, public ITnUnknown {
public:
    const std::string& Name() const { return m_strName; }
    void SetName(const char* lpszName) { m_strName = lpszName; }

    int Serialize(ITnRobotArchive* pArchive) override {
        if (pArchive->IsStoring()) {
            return pArchive->WriteString(m_strName.c_str());
        }
        int nLength = 0;
        int nError = 0;
        const char* lpszName = pArchive->ReadString(nLength, &nError);
        m_strName = lpszName != nullptr ? lpszName : "";
        return nError == 0 ? 1 : 0;
    }

private:
    std::string m_strName;
};

class CTool final : public CNamedObject {
public:
    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    static CTnRobotObject* Create() { return new CTool; }
    static STnRuntimeClass s_class;
};

class CArm final : public CNamedObject {
public:
    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    static CTnRobotObject* Create() { return new CArm; }
    static STnRuntimeClass s_class;

    const CTool* Tool() const { return m_tool.get(); }
    const CTool* SpareTool() const { return m_spareTool.get(); }

    void SetTool(TnRobotPtr<CTool> tool) { m_tool = std::move(tool); }

    // Writing and reading a null object both report 0: an empty place is no failure.
    int Serialize(ITnRobotArchive* pArchive) override {
        if (CNamedObject::Serialize(pArchive) == 0) {
            return 0;
        }
        if (pArchive->IsStoring()) {
            const int nResult = pArchive->WriteObject(m_tool.get());
            pArchive->WriteObject(m_spareTool.get());
            return nResult;
        }
        std::error_code ec;
        m_tool = tn::ReadObject<CTool>(*pArchive);
        m_spareTool = tn::ReadObject<CTool>(*pArchive, ec);  // empty without a reason: there is none
        return m_tool && !ec ? 1 : 0;
    }

private:
    TnRobotPtr<CTool> m_tool;
    TnRobotPtr<CTool> m_spareTool;
};

STnRuntimeClass CTool::s_class = {"5d0c3f1e-9d3a-4f6b-8a44-2b6f3e0c7a11", &CTool::Create, nullptr, nullptr};
STnRuntimeClass CArm::s_class = {"c1b7e2d4-63f0-4c58-9e0d-71a5d8f42b90", &CArm::Create, nullptr, nullptr};
const TN_REG_CLASS s_registerTool(&CTool::s_class);
const TN_REG_CLASS s_registerArm(&CArm::s_class);

}  // namespace

// Two roots in one file, so the graph is written and read object by object.
bool SaveGraph(const std::string& strDirectory) {
    const auto tool = tn::MakeObject<CTool>();
    tool->SetName(kSharedTool);
    tn::ObjectWriter writer;
    for (const char* lpszName : kArms) {
        const auto arm = tn::MakeObject<CArm>();
        arm->SetName(lpszName);
        arm->SetTool(tool);
        if (!writer.Write(arm.get())) {
            return false;
        }
    }
    return writer.Save((strDirectory + "/graph.tnr").c_str());
}

bool CheckGraph(const std::string& strDirectory) {
    tn::ObjectReader reader((strDirectory + "/graph.tnr").c_str());
    std::error_code ec;
    const TnRobotPtr<CArm> left = reader.Read<CArm>(ec);
    const TnRobotPtr<CArm> right = !ec ? reader.Read<CArm>(ec) : nullptr;
    if (ec || !left || !right || !reader.Finish(ec)) {
        std::fprintf(stderr, "graph.tnr: %s\n", ec ? ec.message().c_str() : "an arm is missing");
        return false;
    }
    const bool bNames = left->Name() == kArms[0] && right->Name() == kArms[1] && left->Tool()->Name() == kSharedTool;
    const bool bShared = left->Tool() == right->Tool();
    const bool bEmpty = left->SpareTool() == nullptr && right->SpareTool() == nullptr;
    std::printf("\n%s and %s hold the same %s: %s\n", left->Name().c_str(), right->Name().c_str(),
                left->Tool()->Name().c_str(), bShared ? "yes" : "NO");
    std::printf("their spare places are empty: %s\nnames as written: %s\n", bEmpty ? "yes" : "NO",
                bNames ? "yes" : "NO");
    return bNames && bShared && bEmpty;
}
