// An archive that an application has made itself, of which the library knows no more than the interface.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_FAKES_FOREIGNARCHIVE_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_FAKES_FOREIGNARCHIVE_H_

#include <string>
#include <utility>
#include <vector>

#include "TnRobotKernel/archive.h"
#include "support/objects/Archives.h"

namespace tntest {

/// Loads bytes like the library's archive, and texts from a list.
class ForeignArchive final : public ITnRobotArchive {
public:
    /// What a ReadString answers. One that works says nothing of errors, as the pointer to them may be null.
    struct Text {
        const char* lpszText;
        int nLength;
        bool bFails = false;
    };

    ForeignArchive(Bytes bytes, std::vector<Text> texts)
        : m_channel(Loading(std::move(bytes))), m_texts(std::move(texts)) {}

    bool Attach(ITnRobotFile* /*pFile*/, bool /*bStoring*/) override { return false; }
    bool IsStoring() const override { return false; }
    bool IsLoading() const override { return true; }
    long long Write(const void* /*pData*/, long long /*nCount*/) override { return 0; }
    long long Read(void* pData, long long nCount) override { return m_channel->Read(pData, nCount); }
    int WriteString(const char* /*lpszText*/) override { return 0; }
    const char* ReadString(int& nLength, int* pError) override {
        const Text text = m_nNext < m_texts.size() ? m_texts[m_nNext++] : Text{nullptr, 0, true};
        nLength = text.nLength;
        if (text.bFails && pError != nullptr) {
            *pError = -5;
        }
        return text.lpszText;
    }
    int WriteObject(CTnRobotObject* /*pObject*/) override { return 0; }
    int ReadObject(CTnRobotObject** /*ppObject*/) override { return 0; }
    int WriteMapHeader() override { return 0; }
    int ReadMapHeader() override { return 0; }
    void Flush() override {}
    void Detach() override {}

private:
    Channel m_channel;
    std::vector<Text> m_texts;
    std::size_t m_nNext = 0;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_FAKES_FOREIGNARCHIVE_H_
