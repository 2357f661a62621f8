// An archive that keeps nothing, to find out whether an object can be saved before the first byte is.

#ifndef TNROBOTKERNEL_SRC_VALUES_TNTRIALARCHIVE_H_
#define TNROBOTKERNEL_SRC_VALUES_TNTRIALARCHIVE_H_

#include "TnRobotKernel/archive.h"

namespace tnrobot {

/// Stores everything with success, and none of it anywhere. It has no file to load from.
///
/// Threads: externally synchronised.
class TrialArchive final : public ITnRobotArchive {
public:
    /// @param[in] bStoring  what it says of itself: an archive without a file neither stores nor loads.
    explicit TrialArchive(bool bStoring) : m_bStoring(bStoring) {}

    bool Attach(ITnRobotFile* pFile, bool bStoring) override;
    bool IsStoring() const override { return m_bStoring; }
    bool IsLoading() const override { return false; }
    long long Write(const void* pData, long long nCount) override;
    long long Read(void* pData, long long nCount) override;
    int WriteString(const char* lpszText) override;
    const char* ReadString(int& nLength, int* pError) override;
    int WriteObject(CTnRobotObject* pObject) override;
    int ReadObject(CTnRobotObject** ppObject) override;
    int WriteMapHeader() override;
    int ReadMapHeader() override;
    void Flush() override {}
    void Detach() override {}

private:
    const bool m_bStoring;
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_VALUES_TNTRIALARCHIVE_H_
