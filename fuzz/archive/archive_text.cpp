// Reads texts from untrusted bytes and compares with the format as it is written down.

#include "FuzzBudget.h"
#include "archive/FuzzArchive.h"
#include "core/TnReadStep.h"

using namespace tnfuzz;

namespace {

// A count read short has zeros in the missing bytes.
std::int32_t CountAt(const Bytes& bytes, std::size_t nAt) {
    std::int32_t nCount = 0;
    std::memcpy(&nCount, bytes.data() + nAt, std::min(sizeof(nCount), bytes.size() - nAt));
    return nCount;
}

// @return whether there was a text; nAt is then behind it.
bool CheckNextText(LoadingArchive& archive, const Bytes& bytes, std::size_t& nAt) {
    int nLength = 0;
    int nError = 1;
    const char* lpszText = archive->ReadString(nLength, &nError);
    if (nAt >= bytes.size()) {
        Require(nError == -1 && lpszText == nullptr, "no text behind the end");
        return false;
    }
    const std::int32_t nCount = CountAt(bytes, nAt);
    nAt += std::min<std::size_t>(4, bytes.size() - nAt);
    if (nCount <= 0) {
        Require(lpszText == nullptr && nError == (nCount == 0 ? 0 : -1), "no characters, no text");
        return nCount == 0;
    }
    const std::size_t nThere = std::min<std::size_t>(static_cast<std::size_t>(nCount), bytes.size() - nAt);
    if (nThere == 0) {
        Require(nError == -1 && lpszText == nullptr, "a text without its first character is a failure");
        return false;
    }
    Require(nError == 0 && lpszText != nullptr, "a text that has begun is read");
    const bool bCounts = static_cast<std::size_t>(nCount) <= tnrobot::kReadStep;
    Require(nLength == (bCounts ? nCount : static_cast<int>(nThere)),
            "its length is the one that is stored, or what is there of a long one");
    Require(std::memcmp(lpszText, bytes.data() + nAt, nThere) == 0, "its characters are those of the file");
    // One zero, and all that follows the same as what comes before it.
    const std::size_t nZeros = static_cast<std::size_t>(nLength) - nThere;
    Require(lpszText[nThere] == '\0' && std::memcmp(lpszText + nThere, lpszText + nThere + 1, nZeros) == 0,
            "zeros follow them");
    nAt += nThere;

    const StoringArchive copy;
    const std::string strText(lpszText);
    Require(copy->WriteString(strText.c_str()) == 1, "a text can be written");
    Require(copy.Content() == tntest::SavedString(strText), "as it is documented");
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const FuzzBudget budget(nSize);
    const Bytes bytes(pData, pData + nSize);
    LoadingArchive archive(bytes);
    std::size_t nAt = 0;
    while (CheckNextText(archive, bytes, nAt)) {
        Require(archive.Position() == nAt, "each text takes its own bytes");
    }
    // Raw reads go on where texts have ended.
    Bytes rest(nSize + 1);
    const long long nRead = archive->Read(rest.data(), static_cast<long long>(rest.size()));
    Require(nRead == static_cast<long long>(nSize - nAt), "the rest can be read");
    Require(std::equal(rest.begin(), rest.begin() + nRead, bytes.begin() + static_cast<std::ptrdiff_t>(nAt)),
            "and is what the file holds");
    return 0;
}
