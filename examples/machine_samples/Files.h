// What both halves of the example need around files: owning pointers and archives over files.

#ifndef MACHINE_SAMPLES_FILES_H_
#define MACHINE_SAMPLES_FILES_H_

#include <TnRobotKernel/TnRobotKernel.h>

#include <memory>
#include <string>
#include <vector>

/// Releases one reference; makes std::unique_ptr own counted objects.
struct ReleaseReference {
    void operator()(ITnUnknown* pObject) const { pObject->Release(); }
};

template <typename T>
using Owned = std::unique_ptr<T, ReleaseReference>;

/// Opens a file on disk. @return null when it cannot be opened.
Owned<ITnRobotFile> OpenFile(const std::string& strPath, bool bWrite);

/// Opens an empty file in memory for writing.
Owned<ITnRobotMemFile> OpenMemory();

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
    Owned<ITnRobotArchive> m_archive;
};

#endif  // MACHINE_SAMPLES_FILES_H_
