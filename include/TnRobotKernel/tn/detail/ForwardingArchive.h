/// @file
/// An archive in front of another one. Used by tn/saving.h and tn/objects.h.

#ifndef TNROBOTKERNEL_TN_DETAIL_FORWARDINGARCHIVE_H_
#define TNROBOTKERNEL_TN_DETAIL_FORWARDINGARCHIVE_H_

#include "TnRobotKernel/archive.h"
#include "TnRobotKernel/ptr.h"

namespace tn::detail {

// Hands every call on. What stands in front of an archive sees what an object does while it is saved or
// loaded, whoever implements object and archive; an object that is handed the archive behind it by one of
// its calls is out of sight.
//
// Values and groups read and write in many small pieces. Where the file is known they go straight to it
// instead of through one more call.
//
// Lifetime: holds a reference to the archive behind it, and to nothing else: the file is the archive's.
// Threads:  externally synchronised.
class ForwardingArchive : public ITnRobotArchive {
public:
    // The archive behind is borrowed for the call; a reference is taken. It is attached to the file, if
    // one is given.
    explicit ForwardingArchive(ITnRobotArchive& archive, ITnRobotFile* pFile = nullptr)
        : m_archive(&archive, kRetain), m_pFile(pFile) {}

    bool Attach(ITnRobotFile* pFile, bool bStoring) override { return m_archive->Attach(pFile, bStoring); }
    bool IsStoring() const override { return m_archive->IsStoring(); }
    bool IsLoading() const override { return m_archive->IsLoading(); }
    long long Write(const void* pData, long long nCount) override {
        return m_pFile != nullptr ? m_pFile->Write(pData, nCount) : m_archive->Write(pData, nCount);
    }
    long long Read(void* pData, long long nCount) override {
        return m_pFile != nullptr ? m_pFile->Read(pData, nCount) : m_archive->Read(pData, nCount);
    }
    int WriteString(const char* lpszText) override { return m_archive->WriteString(lpszText); }
    const char* ReadString(int& nLength, int* pError) override { return m_archive->ReadString(nLength, pError); }
    int WriteObject(CTnRobotObject* pObject) override { return m_archive->WriteObject(pObject); }
    int ReadObject(CTnRobotObject** ppObject) override { return m_archive->ReadObject(ppObject); }
    int WriteMapHeader() override { return m_archive->WriteMapHeader(); }
    int ReadMapHeader() override { return m_archive->ReadMapHeader(); }
    void Flush() override { m_archive->Flush(); }
    void Detach() override {
        m_pFile = nullptr;
        m_archive->Detach();
    }

private:
    const TnRobotPtr<ITnRobotArchive> m_archive;
    ITnRobotFile* m_pFile;  // null where every call is for the archive
};

// A detached archive.
inline TnRobotPtr<ITnRobotArchive> NewArchive() {
    TnRobotPtr<ITnRobotArchive> archive;
    TnCreateRobotArchive(archive.put());
    return archive;
}

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_FORWARDINGARCHIVE_H_
