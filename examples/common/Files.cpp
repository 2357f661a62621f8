#include "Files.h"

Owned<ITnRobotFile> OpenFile(const std::string& strPath, bool bWrite) {
    Owned<ITnRobotFile> file = Create(TnCreateRobotFile);
    return file->Open(strPath.c_str(), bWrite) ? std::move(file) : nullptr;
}

Owned<ITnRobotMemFile> OpenMemory() {
    constexpr long long kChunkSize = 4096;
    Owned<ITnRobotMemFile> file = Create(TnCreateRobotMemFile);
    file->OpenWriteFile(kChunkSize);
    return file;
}

std::vector<char> Content(ITnRobotMemFile& file) {
    long long nLength = file.GetTotleLen();
    std::vector<char> bytes(static_cast<std::size_t>(nLength));
    file.GetMemData(bytes.data(), nLength);
    return bytes;
}

AttachedArchive::AttachedArchive(ITnRobotFile& file, bool bStoring) : m_archive(Create(TnCreateRobotArchive)) {
    m_archive->Attach(&file, bStoring);
}

AttachedArchive::~AttachedArchive() {
    m_archive->Flush();
    m_archive->Detach();
}
