// Files on disk and in memory, and archives over them.

#ifndef EXAMPLES_COMMON_FILES_H_
#define EXAMPLES_COMMON_FILES_H_

#include <TnRobotKernel/make.h>

#include <string>
#include <vector>

/// Opens a file on disk. @return empty when it cannot be opened.
TnRobotPtr<ITnRobotFile> OpenFile(const std::string& strPath, bool bWrite);

/// Opens an empty file in memory for writing.
TnRobotPtr<ITnRobotMemFile> OpenMemory();

/// @return everything in a memory file.
std::vector<char> Content(ITnRobotMemFile& file);

/// An archive attached to a file, detached at the end of its life.
class AttachedArchive {
public:
    AttachedArchive(ITnRobotFile& file, bool bStoring);
    ~AttachedArchive();
    AttachedArchive(const AttachedArchive&) = delete;
    AttachedArchive& operator=(const AttachedArchive&) = delete;
    ITnRobotArchive* operator->() const { return m_archive.get(); }
    ITnRobotArchive* Get() const { return m_archive.get(); }

private:
    TnRobotPtr<ITnRobotArchive> m_archive;
};

#endif  // EXAMPLES_COMMON_FILES_H_
