// plugin_saver PLUGIN: makes an object of a plug-in's class and saves it.

#include <TnRobotKernel/make.h>
#include <dlfcn.h>

#include <cstdio>
#include <system_error>

#include "plugin_tool.h"

namespace {

// [make]
// The class is found by its identifier, wherever it was registered.
TnRobotPtr<ITool> MakeTool(const char* lpszClass) {
    return tn::Adopt(dynamic_cast<ITool*>(CTnRobotObject::CreateObjectFromGUID(lpszClass)));
}
// [/make]

// [save]
bool Save(const char* lpszPath, ITool& tool, std::error_code& ec) {
    const auto about = tn::MakeValueDataGroup();
    tn::Set(*about, "cell", "north");
    tn::Set(*about, "tool", tool.Name());
    tn::ObjectWriter writer;
    return writer.WriteValues(*about, ec) &&  // in front: needs no plug-in to be read
           writer.Write(dynamic_cast<CTnRobotObject*>(&tool), ec) && writer.Save(lpszPath, ec);
}
// [/save]

}  // namespace

// [main]
int main(int nArguments, char** ppszArguments) {
    if (nArguments != 2 || dlopen(ppszArguments[1], RTLD_NOW) == nullptr) {
        std::fprintf(stderr, "%s\n", nArguments == 2 ? dlerror() : "usage: plugin_saver PLUGIN");
        return 1;
    }
    const auto tool = MakeTool(kGripperClass);
    if (!tool) {
        std::fprintf(stderr, "the plug-in has no gripper\n");
        return 1;
    }
    tool->SetForce(12.5);
    std::error_code ec;
    const bool bSaved = Save("cell.tnr", *tool, ec);
    std::printf("cell.tnr: %s\n", bSaved ? "saved" : ec.message().c_str());
    return bSaved ? 0 : 1;
}
// [/main]
