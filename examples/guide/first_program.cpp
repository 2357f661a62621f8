// Values into a group, the group into a file, and back.

#include <TnRobotKernel/make.h>

#include <cstdio>

namespace {

// [transfer]
// Saves a group to a file, or loads it from there.
bool Transfer(ITnRobotDataValueGroup& group, const char* lpszPath, bool bSave) {
    const auto file = tn::MakeFile();
    const auto archive = tn::MakeArchive();
    return file->Open(lpszPath, bSave) && archive->Attach(file.get(), bSave) && group.Serialize(archive.get()) == 1;
}
// [/transfer]

}  // namespace

// [main]
int main() {
    const auto settings = tn::MakeValueDataGroup();
    settings->SetValue("camera", "left");
    settings->SetValue("exposure", 12.5);
    const bool bSaved = Transfer(*settings, "settings.tnr", true);

    const auto loaded = tn::MakeValueDataGroup();
    const bool bLoaded = Transfer(*loaded, "settings.tnr", false);
    std::printf("%s camera, %.1f ms\n", loaded->StringData("camera", nullptr), loaded->DoubleData("exposure", nullptr));
    return bSaved && bLoaded ? 0 : 1;
}
// [/main]
