// Several groups in one file: the archive by hand.

#include <TnRobotKernel/make.h>

#include <cstdio>

namespace {

TnRobotPtr<ITnRobotDataValueGroup> Camera(const char* lpszName, double dExposure) {
    auto camera = tn::MakeValueDataGroup();
    camera->SetValue("name", lpszName);
    camera->SetValue("exposure", dExposure);
    return camera;
}

// [save]
bool Save(const char* lpszPath) {
    const auto file = tn::MakeFile();
    const auto archive = tn::MakeArchive();
    if (!file->Open(lpszPath, true) || !archive->Attach(file.get(), true)) {  // true: to write
        return false;
    }
    Camera("left", 12.5)->Serialize(archive.get());
    Camera("right", 8.0)->Serialize(archive.get());
    archive->Flush();
    return file->GetPos() != -1;  // -1 once anything could not be written
}
// [/save]

// [load]
bool Load(const char* lpszPath) {
    const auto file = tn::MakeFile();
    const auto archive = tn::MakeArchive();
    if (!file->Open(lpszPath, false) || !archive->Attach(file.get(), false)) {  // false: to read
        return false;
    }
    for (int nCamera = 0; nCamera < 2; ++nCamera) {
        const auto camera = tn::MakeValueDataGroup();
        if (camera->Serialize(archive.get()) != 1 || file->GetPos() == -1) {  // -1 once the file has ended too early
            return false;
        }
        std::printf("%s: %.1f ms\n", camera->StringData("name", nullptr), camera->DoubleData("exposure", nullptr));
    }
    return true;
}
// [/load]

}  // namespace

int main() {
    return Save("cameras.tnr") && Load("cameras.tnr") ? 0 : 1;
}
