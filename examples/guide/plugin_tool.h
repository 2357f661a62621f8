// What programs know of a plug-in's tools: the interface, and nothing of the classes behind it.

#ifndef GUIDE_PLUGIN_TOOL_H_
#define GUIDE_PLUGIN_TOOL_H_

#include <TnRobotKernel/core.h>

// [interface]
// Visible, so that programs and plug-ins which hide their names still mean the same type by it.
class __attribute__((visibility("default"))) ITool : public ITnUnknown {
public:
    virtual const char* Name() = 0;
    virtual void SetForce(double dNewton) = 0;
    virtual double Force() = 0;
};

constexpr char kGripperClass[] = "0f6d2a54-7c1b-4e0e-9a37-5b8c4d1e6f20";
// [/interface]

#endif  // GUIDE_PLUGIN_TOOL_H_
