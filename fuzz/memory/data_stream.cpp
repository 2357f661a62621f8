// Runs a sequence of operations on a data stream whose pool hands out blocks of odd sizes, or none,
// and on a model of it.

#include <TnRobotKernel/TnRobotKernel.h>

#include <vector>

#include "FuzzBudget.h"
#include "FuzzInput.h"
#include "TnRobotKernel/ptr.h"
#include "support/fakes/TestBlocks.h"

using namespace tnfuzz;

namespace {

// What the input says decides what a request gets.
class OddPool final : public ITnRobotMemoryBlockPool {
public:
    explicit OddPool(FuzzInput& input) : m_input(input) {}

    int QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) override {
        Require(nSize == 0x100000, "a stream asks for 1 MiB");
        const unsigned int nAnswer = m_input.Below(64);
        if (nAnswer == 0 || m_input.Left() == 0) {
            return 0;
        }
        if (nAnswer == 1) {
            return 1;  // and no block
        }
        const unsigned int nBytes = nAnswer == 2 ? 0 : nAnswer;
        *ppBlock = new tntest::TestBlock(nBytes, tntest::TestBlockPool::kFill);
        if (nBytes != 0) {
            m_sizes.push_back(nBytes);
        }
        return 1;
    }
    void FreeUnuseMemory() override {}

    /// Sizes of the blocks that the stream has got since the last call of Forget.
    const std::vector<std::size_t>& Sizes() const { return m_sizes; }
    void Forget() { m_sizes.clear(); }

private:
    FuzzInput& m_input;
    std::vector<std::size_t> m_sizes;
};

// The content in one piece, and where a reader stands in it.
class StreamModel {
public:
    explicit StreamModel(const OddPool& pool) : m_pool(pool) {}

    std::size_t Length() const { return m_content.size(); }
    const Bytes& Content() const { return m_content; }

    /// @param[in] nKept  bytes of those given that found room.
    void Write(const Bytes& bytes, std::size_t nKept) {
        m_content.insert(m_content.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(nKept));
    }

    /// @return bytes that the blocks have room for.
    std::size_t Room() const {
        std::size_t nRoom = 0;
        for (const std::size_t nSize : m_pool.Sizes()) {
            nRoom += nSize;
        }
        return nRoom;
    }

    void Clear() {
        m_content.clear();
        m_nBlock = 0;
    }
    void BeginRead() {
        m_nBlock = 0;
        m_nRemaining = m_content.size();
    }
    void EndRead() {
        m_nBlock = FullBlocks();
        m_nRemaining = 0;
    }

    /// @return the piece that comes next, empty at the end.
    Bytes Read() {
        const std::size_t nFull = FullBlocks();
        if (m_nRemaining == 0) {
            return {};
        }
        const std::size_t nBlock = std::min(m_nBlock, nFull);
        Bytes piece = Piece(nBlock);
        m_nBlock = nBlock < nFull ? nBlock + 1 : m_nBlock;
        m_nRemaining -= std::min(m_nRemaining, piece.size());
        return piece;
    }

private:
    std::size_t FullBlocks() const { return m_pool.Sizes().size() - (Room() > m_content.size() ? 1 : 0); }

    // The last one may be filled in part, or not there at all.
    Bytes Piece(std::size_t nBlock) const {
        std::size_t nFrom = 0;
        for (std::size_t i = 0; i < nBlock; ++i) {
            nFrom += m_pool.Sizes()[i];
        }
        const std::size_t nSize = nBlock < m_pool.Sizes().size() ? m_pool.Sizes()[nBlock] : 0;
        const std::size_t nEnd = std::min(nFrom + nSize, m_content.size());
        return {m_content.begin() + static_cast<std::ptrdiff_t>(nFrom),
                m_content.begin() + static_cast<std::ptrdiff_t>(nEnd)};
    }

    const OddPool& m_pool;
    Bytes m_content;
    std::size_t m_nBlock = 0;
    std::size_t m_nRemaining = 0;
};

class Run {
public:
    explicit Run(FuzzInput& input) : m_input(input), m_pool(tn::MakeObject<OddPool>(input)), m_model(*m_pool) {
        ITnRobotMemDataStream* pStream = nullptr;
        Require(TnCreateRobotMemDataStream(m_pool.get(), &pStream) == 1, "a stream can be made");
        m_stream.attach(pStream);
    }

    void Step() {
        CheckLastPiece();
        switch (m_input.Below(8)) {
            case 0:
                Require(m_stream->BeginReadData() == 0, "a pass can begin");
                m_model.BeginRead();
                ForgetLastPiece();
                break;
            case 1:
                m_stream->EndReadData();
                m_model.EndRead();
                ForgetLastPiece();
                break;
            case 2:
                m_stream->Clear();
                m_pool->Forget();
                m_model.Clear();
                break;
            case 3:
            case 4:
            case 5:
                Read();
                break;
            default:
                Write();
        }
        Require(m_stream->GetTotleLength() == m_model.Length(), "the length is the model's");
    }

    // One whole pass gives the whole content.
    void Finish() {
        m_stream->BeginReadData();
        Bytes all;
        unsigned int nSize = 0;
        while (const unsigned char* pPiece = m_stream->ReadData(nSize)) {
            all.insert(all.end(), pPiece, pPiece + nSize);
        }
        m_stream->EndReadData();
        Require(all == m_model.Content(), "a pass gives all content");
    }

private:
    void Write() {
        constexpr unsigned int kMost = 200;
        const Bytes bytes(m_input.Below(kMost), m_input.Number<std::uint8_t>());
        const std::size_t nBefore = m_model.Length();
        const int nResult = m_stream->WriteData(bytes.data(), static_cast<unsigned int>(bytes.size()));
        const std::size_t nKept = m_stream->GetTotleLength() - nBefore;
        Require(nKept <= bytes.size(), "no more is kept than was given");
        m_model.Write(bytes, nKept);
        Require(nResult == (nKept == bytes.size() ? 0 : -1), "a write fails when it does not keep all");
        Require(nResult == 0 || m_model.Room() == m_model.Length(), "what finds room is kept");
    }

    void Read() {
        unsigned int nSize = 1;
        const unsigned char* pPiece = m_stream->ReadData(nSize);
        const Bytes expected = m_model.Read();
        Require((pPiece == nullptr) == expected.empty() && nSize == expected.size(),
                "a piece is as large as the model's");
        Require(std::equal(expected.begin(), expected.end(), pPiece), "and the same");
        if (pPiece != nullptr) {
            m_pLastPiece = pPiece;
            m_lastPiece = expected;
        }
    }

    // A piece stays until the next one, also when the content goes.
    void CheckLastPiece() const {
        Require(std::equal(m_lastPiece.begin(), m_lastPiece.end(), m_pLastPiece), "a piece stays as it was read");
    }

    void ForgetLastPiece() { m_lastPiece.clear(); }

    FuzzInput& m_input;
    TnRobotPtr<OddPool> m_pool;
    StreamModel m_model;
    TnRobotPtr<ITnRobotMemDataStream> m_stream;
    const unsigned char* m_pLastPiece = nullptr;
    Bytes m_lastPiece;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const FuzzBudget budget(nSize);
    FuzzInput input(pData, nSize);
    Run run(input);
    while (input.Left() != 0) {
        run.Step();
    }
    run.Finish();
    return 0;
}
