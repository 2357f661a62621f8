/// @file
/// What a value would write to a file: the only place that tells how many bytes a loaded one has. Used by
/// tn/groups.h.

#ifndef TNROBOTKERNEL_TN_DETAIL_STOREDBYTES_H_
#define TNROBOTKERNEL_TN_DETAIL_STOREDBYTES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "TnRobotKernel/tn/saving.h"

namespace tn::detail {

// Takes the beginning of what a value of the library writes, version, type and count, and nothing else.
class StoredBytes final : public ITnRobotArchive {
public:
    // Meaningless where less than that was written.
    std::size_t Count() const {
        std::int32_t nCount = 0;
        std::memcpy(&nCount, m_head.data() + kCount, sizeof(nCount));
        return static_cast<std::size_t>(nCount);
    }

    bool Attach(ITnRobotFile* /*pFile*/, bool /*bStoring*/) override { return false; }
    bool IsStoring() const override { return true; }
    bool IsLoading() const override { return false; }
    long long Write(const void* pData, long long nCount) override {
        const auto nBytes = static_cast<std::size_t>(nCount);
        if (nBytes <= m_head.size() - m_nUsed) {
            std::memcpy(m_head.data() + m_nUsed, pData, nBytes);
            m_nUsed += nBytes;
        }
        return 1;
    }
    long long Read(void* /*pData*/, long long /*nCount*/) override { return -1; }
    int WriteString(const char* /*lpszText*/) override { return 0; }
    const char* ReadString(int& /*nLength*/, int* pError) override {
        if (pError != nullptr) {
            *pError = -1;
        }
        return nullptr;
    }
    int WriteObject(CTnRobotObject* /*pObject*/) override { return 0; }
    int ReadObject(CTnRobotObject** /*ppObject*/) override { return 0; }
    int WriteMapHeader() override { return 0; }
    int ReadMapHeader() override { return 0; }
    void Flush() override {}
    void Detach() override {}

private:
    static constexpr std::size_t kCount = 1 + sizeof(std::int32_t);  // behind version and type
    std::array<unsigned char, kCount + sizeof(std::int32_t)> m_head{};
    std::size_t m_nUsed = 0;
};

// Bytes that belong to a value.
struct BlockView {
    const void* pData = nullptr;  // null for an empty block and where there is none
    std::size_t nBytes = 0;
    bool bIsBlock = false;
};

inline BlockView ViewOfBlock(ITnRobotDataValue& value) {
    int nError = 0;
    unsigned int nRecorded = 0;
    BlockView view;
    view.pData = value.BlockData(nRecorded, &nError);
    view.bIsBlock = nError == 0;
    view.nBytes = view.bIsBlock ? nRecorded : 0;
    // Values of an application's own have a saved form of their own, and are taken at their word.
    StoredBytes stored;
    if (view.bIsBlock && IsValueOfLibrary(value) && value.Serialize(&stored) == 1) {
        view.nBytes = stored.Count();
    }
    return view;
}

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_STOREDBYTES_H_
