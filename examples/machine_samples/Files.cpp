#include "Files.h"

Owned<ITnRobotFile> OpenFile(const std::string& strPath, bool bWrite) {
    ITnRobotFile* pFile = nullptr;
    TnCreateRobotFile(&pFile);
    Owned<ITnRobotFile> file(pFile);
    return file->Open(strPath.c_str(), bWrite) ? std::move(file) : nullptr;
}

Owned<ITnRobotMemFile> OpenMemory() {
    constexpr long long kChunkSize = 4096;
    ITnRobotMemFile* pFile = nullptr;
    TnCreateRobotMemFile(&pFile);
    pFile->OpenWriteFile(kChunkSize);
    return Owned<ITnRobotMemFile>(pFile);
}

std::vector<char> Content(ITnRobotMemFile& file) {
    long long nLength = file.GetTotleLen();
    std::vector<char> bytes(static_cast<std::size_t>(nLength));
    file.GetMemData(bytes.data(), nLength);
    return bytes;
}

AttachedArchive::AttachedArchive(ITnRobotFile& file, bool bStoring) {
    ITnRobotArchive* pArchive = nullptr;
    TnCreateRobotArchive(&pArchive);
    m_archive.reset(pArchive);
    m_archive->Attach(&file, bStoring);
}

AttachedArchive::~AttachedArchive() {
    m_archive->Flush();
    m_archive->Detach();
}
