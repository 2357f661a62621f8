// A plug-in: a class that registers itself when the plug-in is opened.

#include <TnRobotKernel/make.h>

#include "plugin_tool.h"

namespace {

// [class]
class Gripper final : public CTnRobotObject, public ITnRobotSerialize, public ITool {
public:
    static CTnRobotObject* Create() { return new Gripper; }
    static STnRuntimeClass s_class;
    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }

    const char* Name() override { return "gripper"; }
    void SetForce(double dNewton) override { m_dForce = dNewton; }
    double Force() override { return m_dForce; }

    int Serialize(ITnRobotArchive* pArchive) override {
        const auto settings = tn::MakeValueDataGroup();  // a later version may add to it
        if (pArchive->IsStoring()) {
            return tn::Set(*settings, "force", m_dForce) && settings->Serialize(pArchive) == 1 ? 1 : 0;
        }
        const bool bRead = settings->Serialize(pArchive) == 1;
        m_dForce = tn::Get<double>(*settings, "force").value_or(0);
        return bRead ? 1 : 0;
    }

private:
    double m_dForce = 0;
};

STnRuntimeClass Gripper::s_class = {kGripperClass, &Gripper::Create, nullptr, nullptr};
const TN_REG_CLASS s_registerGripper(&Gripper::s_class);  // runs when the plug-in is opened
// [/class]

}  // namespace
