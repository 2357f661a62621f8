// Reads class and object tables from untrusted bytes; whole ones are written again as they were.

#include "FuzzBudget.h"
#include "archive/FuzzArchive.h"

using namespace tnfuzz;

namespace {

// Follows a header through the bytes.
class HeaderWalk {
public:
    explicit HeaderWalk(const Bytes& bytes) : m_bytes(bytes) {}

    // @return bytes of the header, 0 when it is not whole.
    std::size_t Length() {
        std::uint16_t nClasses = 0;
        std::uint16_t nObjects = 0;
        bool bOk = Number(nClasses);
        for (unsigned int i = 0; bOk && i < nClasses; ++i) {
            std::uint32_t nLength = 0;
            bOk = Number(nLength) && Skip(nLength);
        }
        constexpr std::size_t kObjectSize = 10;
        bOk = bOk && Number(nObjects) && Skip(nObjects * kObjectSize);
        return bOk ? m_nAt : 0;
    }

private:
    bool Skip(std::size_t nBytes) {
        const bool bOk = m_bytes.size() - m_nAt >= nBytes;
        m_nAt += bOk ? nBytes : 0;
        return bOk;
    }

    template <typename T>
    bool Number(T& value) {
        const std::size_t nFrom = m_nAt;
        if (!Skip(sizeof(T))) {
            return false;
        }
        std::memcpy(&value, m_bytes.data() + nFrom, sizeof(T));
        return true;
    }

    const Bytes& m_bytes;
    std::size_t m_nAt = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const FuzzBudget budget(nSize);
    const Bytes bytes(pData, pData + nSize);
    const LoadingArchive archive(bytes);
    const std::size_t nWhole = HeaderWalk(bytes).Length();
    const int nResult = archive->ReadMapHeader();
    if (nWhole != 0) {
        Require(nResult == 1 && archive.Position() == nWhole, "a whole header is read to its end");
        Require(
            MapHeaderOf(*archive.Get()) == Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(nWhole)),
            "and written as it was");
        return 0;
    }
    // Objects must not come out of tables that are only half there.
    CTnRobotObject* pObject = nullptr;
    Require(archive->ReadObject(&pObject) == 0 || pObject != nullptr, "success means an object");
    return 0;
}
