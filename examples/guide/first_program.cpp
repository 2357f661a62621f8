// Values into a group, the group into a file, and back.

// [main]
#include <TnRobotKernel/make.h>

#include <cstdio>

int main() {
    const auto settings = tn::MakeValueDataGroup();
    settings->SetValue("camera", "left");
    settings->SetValue("exposure", 12.5);

    const auto loaded = tn::MakeValueDataGroup();
    if (!tn::SaveTo("settings.tnr", *settings) || !tn::LoadFrom("settings.tnr", *loaded)) {
        return 1;
    }
    std::printf("%s camera, %.1f ms\n", loaded->StringData("camera", nullptr), loaded->DoubleData("exposure", nullptr));
}
// [/main]
