// Archives over memory: one that loads from the bytes of a fuzz input, one that stores.

#ifndef TNROBOTKERNEL_FUZZ_ARCHIVE_FUZZARCHIVE_H_
#define TNROBOTKERNEL_FUZZ_ARCHIVE_FUZZARCHIVE_H_

#include <TnRobotKernel/TnRobotKernel.h>

#include <utility>

#include "FuzzInput.h"
#include "TnRobotKernel/ptr.h"
#include "support/fakes/TestFile.h"

namespace tnfuzz {

inline TnRobotPtr<ITnRobotMemFile> MakeMemFile() {
    ITnRobotMemFile* pFile = nullptr;
    TnCreateRobotMemFile(&pFile);
    return tn::Adopt(pFile);
}

inline TnRobotPtr<ITnRobotArchive> MakeArchive() {
    ITnRobotArchive* pArchive = nullptr;
    TnCreateRobotArchive(&pArchive);
    return tn::Adopt(pArchive);
}

/// Loads from bytes. An empty input is a file that cannot be read from.
class LoadingArchive {
public:
    explicit LoadingArchive(Bytes bytes) : m_bytes(std::move(bytes)), m_file(MakeMemFile()), m_archive(MakeArchive()) {
        m_file->OpenMemFile(m_bytes.data(), static_cast<long long>(m_bytes.size()), false);
        m_archive->Attach(m_file.get(), false);
    }

    ITnRobotArchive* operator->() const { return m_archive.get(); }
    ITnRobotArchive* Get() const { return m_archive.get(); }

    /// @return bytes read so far.
    std::size_t Position() const { return m_bytes.empty() ? 0 : static_cast<std::size_t>(m_file->GetPos()); }

private:
    Bytes m_bytes;
    TnRobotPtr<ITnRobotMemFile> m_file;
    TnRobotPtr<ITnRobotArchive> m_archive;
};

/// Stores into memory.
class StoringArchive {
public:
    StoringArchive() : m_file(tntest::TestFile::Create()), m_archive(MakeArchive()) {
        m_archive->Attach(m_file.get(), true);
    }

    ITnRobotArchive* operator->() const { return m_archive.get(); }
    ITnRobotArchive* Get() const { return m_archive.get(); }
    const Bytes& Content() const { return m_file->Content(); }

private:
    TnRobotPtr<tntest::TestFile> m_file;
    TnRobotPtr<ITnRobotArchive> m_archive;
};

/// @return the tables of an archive as it writes them: they outlive the file they came with.
inline Bytes MapHeaderOf(ITnRobotArchive& archive) {
    const auto file = tntest::TestFile::Create();
    archive.Detach();
    archive.Attach(file.get(), true);
    Require(archive.WriteMapHeader() == 1, "tables can be written");
    return file->Content();
}

/// @return what a value or a group saves. They leave no traces in an archive, so all share one.
template <typename Object>
Bytes SavedForm(Object& object) {
    static const TnRobotPtr<ITnRobotArchive> s_archive = MakeArchive();
    const auto file = tntest::TestFile::Create();
    s_archive->Attach(file.get(), true);
    Require(object.Serialize(s_archive.get()) == 1, "everything that was loaded can be saved");
    s_archive->Detach();
    return file->Content();
}

}  // namespace tnfuzz

#endif  // TNROBOTKERNEL_FUZZ_ARCHIVE_FUZZARCHIVE_H_
