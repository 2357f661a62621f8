// Paths that are taken apart, and whole files.

#include <TnRobotKernel/utilities.h>

#include <cstdio>
#include <string>

namespace {

void ShowPaths() {
    // [paths]
    char szDirectory[TnRobotUtils::kPathSize] = {};
    char szName[TnRobotUtils::kPathSize] = {};
    TnRobotUtils::GetPurePath("/data/line3/part.jpg", szDirectory);
    TnRobotUtils::GetPureName("/data/line3/part.jpg", szName);
    std::printf("%s and %s\n", szDirectory, szName);
    std::printf("a bare name has no directory: %d\n", TnRobotUtils::GetPurePath("part.jpg", szDirectory));
    // [/paths]
}

bool ShowFiles() {
    // [files]
    const std::string strText = "two lines\nof text\n";
    TnRobotUtils::WriteFile("note.txt", strText.data(), static_cast<unsigned int>(strText.size()), false);
    int nLength = 0;
    if (TnRobotUtils::ReadFile("note.txt", nullptr, &nLength) != 0) {  // asks for the size
        return false;
    }
    std::string strRead(static_cast<std::size_t>(nLength), '\0');
    TnRobotUtils::ReadFile("note.txt", strRead.data(), &nLength);
    std::printf("read %d bytes, %s\n", nLength, strRead == strText ? "the same" : "others");
    // [/files]
    return strRead == strText;
}

}  // namespace

int main() {
    ShowPaths();
    return ShowFiles() ? 0 : 1;
}
