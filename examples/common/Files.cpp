#include "Files.h"

#include <utility>

TnRobotPtr<ITnRobotFile> OpenFile(const std::string& strPath, bool bWrite) {
    auto file = tn::MakeFile();
    return file->Open(strPath.c_str(), bWrite) ? std::move(file) : nullptr;
}

TnRobotPtr<ITnRobotMemFile> OpenMemory() {
    constexpr long long kChunkSize = 4096;
    auto file = tn::MakeMemFile();
    file->OpenWriteFile(kChunkSize);
    return file;
}

std::vector<char> Content(ITnRobotMemFile& file) {
    long long nLength = file.GetTotleLen();
    std::vector<char> bytes(static_cast<std::size_t>(nLength));
    file.GetMemData(bytes.data(), nLength);
    return bytes;
}

AttachedArchive::AttachedArchive(ITnRobotFile& file, bool bStoring) : m_archive(tn::MakeArchive()) {
    m_archive->Attach(&file, bStoring);
}

AttachedArchive::~AttachedArchive() {
    m_archive->Flush();
    m_archive->Detach();
}
