// A file on disk and a file in memory, behind one interface.

#include <TnRobotKernel/make.h>

#include <cstdio>
#include <string>

namespace {

int ShowDiskFile() {
    // [disk]
    const auto file = tn::MakeFile();
    const std::string strText = "one two three";
    if (!file->Open("words.txt", true) || file->Write(strText.data(), static_cast<long long>(strText.size())) != 1) {
        return 1;
    }
    file->Flush();
    const bool bWritten = file->GetPos() != -1;  // -1 once anything could not be written
    file->Close();

    char szWord[6] = {};
    if (!file->Open("words.txt", false) || file->Seek(8, ITnRobotFile::SEEK_DIRECT_BEGIN) != 0 ||
        file->Read(szWord, 5) != 5) {
        return 1;
    }
    std::printf("disk file: written %s, the word at 8 is %s\n", bWritten ? "well" : "badly", szWord);
    // [/disk]
    return 0;
}

int ShowMemoryFile() {
    // [memory]
    const auto file = tn::MakeMemFile();
    if (!file->OpenWriteFile(4096)) {  // grows by 4096 bytes at a time
        return 1;
    }
    file->Write("picture", 7);
    file->Write("+numbers", 8);
    long long nLength = file->GetTotleLen();
    std::string strContent(static_cast<std::size_t>(nLength), '\0');
    file->GetMemData(strContent.data(), nLength);
    std::printf("memory file: %lld bytes, %s\n", nLength, strContent.c_str());
    // [/memory]
    return 0;
}

}  // namespace

int main() {
    return ShowDiskFile() + ShowMemoryFile();
}
