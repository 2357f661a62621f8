// plugin_loader [PLUGIN]: loads what plugin_saver has saved, as far as it can without the plug-in.

#include <TnRobotKernel/make.h>
#include <dlfcn.h>

#include <cstdio>
#include <string>
#include <system_error>

#include "plugin_tool.h"

namespace {

// [load]
bool Load(const char* lpszPath) {
    tn::ObjectReader reader(lpszPath);
    const auto about = tn::MakeValueDataGroup();
    std::error_code ec;
    if (!reader.ReadValues(*about, ec)) {
        std::printf("%s: %s\n", lpszPath, ec.message().c_str());
        return false;
    }
    std::printf("cell %s\n", tn::Get<std::string>(*about, "cell").value_or("?").c_str());
    const auto tool = reader.Read<ITool>(ec);
    if (tool && reader.Finish(ec)) {
        std::printf("%s: %.1f N\n", tool->Name(), tool->Force());
        return true;
    }
    const bool bMissing = ec == tn::errc::class_not_registered;
    std::printf("%s: %s\n", tn::Get<std::string>(*about, "tool").value_or("?").c_str(),
                bMissing ? "its plug-in is missing" : ec.message().c_str());
    return bMissing;  // the cell is there all the same; its file must not be written over
}
// [/load]

}  // namespace

int main(int nArguments, char** ppszArguments) {
    if (nArguments == 2 && dlopen(ppszArguments[1], RTLD_NOW) == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    return Load("cell.tnr") ? 0 : 1;
}
