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
// Lifetime: holds a reference to the archive behind it.
// Threads:  externally synchronised.
class ForwardingArchive : public ITnRobotArchive {
public:
    // The archive behind is borrowed for the call; a reference is taken.
    explicit ForwardingArchive(ITnRobotArchive& archive) : m_archive(&archive, kRetain) {}

    bool Attach(ITnRobotFile* pFile, bool bStoring) override { return m_archive->Attach(pFile, bStoring); }
    bool IsStoring() const override { return m_archive->IsStoring(); }
    bool IsLoading() const override { return m_archive->IsLoading(); }
    long long Write(const void* pData, long long nCount) override { return m_archive->Write(pData, nCount); }
    long long Read(void* pData, long long nCount) override { return m_archive->Read(pData, nCount); }
    int WriteString(const char* lpszText) override { return m_archive->WriteString(lpszText); }
    const char* ReadString(int& nLength, int* pError) override { return m_archive->ReadString(nLength, pError); }
    int WriteObject(CTnRobotObject* pObject) override { return m_archive->WriteObject(pObject); }
    int ReadObject(CTnRobotObject** ppObject) override { return m_archive->ReadObject(ppObject); }
    int WriteMapHeader() override { return m_archive->WriteMapHeader(); }
    int ReadMapHeader() override { return m_archive->ReadMapHeader(); }
    void Flush() override { m_archive->Flush(); }
    void Detach() override { m_archive->Detach(); }

private:
    const TnRobotPtr<ITnRobotArchive> m_archive;
};

// A detached archive.
inline TnRobotPtr<ITnRobotArchive> NewArchive() {
    TnRobotPtr<ITnRobotArchive> archive;
    TnCreateRobotArchive(archive.put());
    return archive;
}

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_FORWARDINGARCHIVE_H_
