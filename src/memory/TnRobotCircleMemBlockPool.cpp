// First the buffer (cutting a block, taking it back, starting over), then the pool, which moves buffers
// between its ready and its spent list. The hard part is what happens between the two locks: see
// _CutBlock and _ReturnLastBlock.

#include "memory/TnRobotCircleMemBlockPool.h"

#include <algorithm>
#include <set>
#include <typeinfo>
#include <vector>

#include "TnRobotKernel/detail/RingQueue.h"
#include "checked/TnChecked.h"
#include "checked/TnHiddenRanges.h"
#include "checked/TnSanitizer.h"
#include "core/TnCreateInstance.h"
#include "core/TnExactCast.h"
#include "memory/TnHugePages.h"

namespace {

constexpr int kInitialBuffers = 4;

}  // namespace

/// One large buffer and the blocks cut from it. Everything but Lock, IsOf and Close wants the
/// caller to hold the buffer's lock.
class CTnRobotCircleMemBlockPool::Buffer : private tnrobot::HiddenPieces {
public:
    explicit Buffer(CTnRobotCircleMemBlockPool* pPool);
    ~Buffer();
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    std::unique_lock<tnrobot::Mutex> Lock() { return std::unique_lock<tnrobot::Mutex>(m_mutex); }
    bool IsOf(const CTnRobotCircleMemBlockPool* pPool) const { return m_pPool == pPool; }

    bool HasRoomFor(unsigned int nSize) const { return nSize <= m_nRoom; }
    bool IsInUse() const { return !m_blocksInUse.empty(); }

    /// Whether the buffer waits in the spent list, of a pool that is not being destroyed, for the
    /// last nBlocks blocks of it.
    bool IsSpentBut(std::size_t nBlocks) const { return !m_bReady && !m_bClosing && m_blocksInUse.size() == nBlocks; }

    void SetSpent() { m_bReady = false; }

    /// Starts over: all memory is free again and the buffer is ready.
    void Rewind();

    /// Cuts a block of nSize bytes, for which there is room.
    /// @return the block, with a reference for its holder beside the buffer's own.
    CTnRobotMemoryBlock* Cut(unsigned int nSize);

    /// Keeps the object of a block that came back, for reuse. A block not in use is kept already.
    void TakeBack(CTnRobotMemoryBlock* pBlock);

    /// From now on the buffer stays in its list, because the pool is being destroyed.
    void BeginClose() { m_bClosing = true; }

    /// Lets go of all blocks, and waits for those on their way back.
    void Close();

private:
    using Blocks = std::set<CTnRobotMemoryBlock*>;

    CTnRobotMemoryBlock* _LendSpareBlock();
    void _AddSpareBlock();
    bool _LetGoOfSpareBlocks();
    void _HideContent(CTnRobotMemoryBlock* pBlock);
    void _CheckInvariants() const;

    CTnRobotCircleMemBlockPool* const m_pPool;
    const std::unique_ptr<unsigned char[]> m_memory;
    tnrobot::Mutex m_mutex;
    tnrobot::ConditionVariable m_returned;                      // a block came back to a closing buffer
    tn::detail::RingQueue<CTnRobotMemoryBlock*> m_spareBlocks;  // guarded by m_mutex, has room for all
    std::vector<Blocks::node_type> m_spareNodes;                // guarded by m_mutex, one for each spare block
    Blocks m_blocksInUse;                                       // guarded by m_mutex
    unsigned char* m_pCursor;                                   // guarded by m_mutex: where the next block starts
    unsigned int m_nRoom = kBufferSize;                         // guarded by m_mutex: bytes from there to the end
    bool m_bReady = true;                                       // guarded by m_mutex
    bool m_bClosing = false;                                    // guarded by m_mutex
};

// The memory is not initialised (as make_unique would do), so it costs nothing before its use.
CTnRobotCircleMemBlockPool::Buffer::Buffer(CTnRobotCircleMemBlockPool* pPool)
    : m_pPool(pPool), m_memory(new unsigned char[kBufferSize]), m_pCursor(m_memory.get()) {
    tnrobot::AskForHugePages(m_memory.get(), kBufferSize);
    tnrobot::PoisonMemory(m_memory.get(), kBufferSize);
}

CTnRobotCircleMemBlockPool::Buffer::~Buffer() {
    tnrobot::UnpoisonMemory(m_memory.get(), kBufferSize);
}

void CTnRobotCircleMemBlockPool::Buffer::Rewind() {
    NoteRewound();
    m_pCursor = m_memory.get();
    m_nRoom = kBufferSize;
    m_bReady = true;
}

// The block gets its holder's reference under the lock: a block in use with one reference is one
// that is coming back.
CTnRobotMemoryBlock* CTnRobotCircleMemBlockPool::Buffer::Cut(unsigned int nSize) {
    CTnRobotMemoryBlock* pBlock = _LendSpareBlock();
    m_spareNodes.back().value() = pBlock;
    m_blocksInUse.insert(std::move(m_spareNodes.back()));
    m_spareNodes.pop_back();
    pBlock->SetMemData(m_pCursor, nSize);
    Show(m_memory.get(), kBufferSize - m_nRoom, nSize, typeid(*pBlock));
    tnrobot::UnpoisonMemory(m_pCursor, nSize);
    m_pCursor += nSize;
    m_nRoom -= nSize;
    _CheckInvariants();
    return pBlock;
}

// A spare block that somebody took back while it was held may just be returned by its last holder:
// the next one serves as well. The memory that it still points at is not shown: it may be another block's by now.
CTnRobotMemoryBlock* CTnRobotCircleMemBlockPool::Buffer::_LendSpareBlock() {
    for (std::size_t nLeft = m_spareBlocks.Size(); nLeft > 0; --nLeft) {
        CTnRobotMemoryBlock* pBlock = m_spareBlocks.Front();
        m_spareBlocks.PopFront();
        tnrobot::NoteTaken(pBlock);
        if (pBlock->Lend()) {
            return pBlock;
        }
        m_spareBlocks.PushBack(pBlock);
    }
    _AddSpareBlock();
    CTnRobotMemoryBlock* pNew = m_spareBlocks.Back();
    m_spareBlocks.PopBack();
    pNew->Lend();
    return pNew;
}

// Makes room for one more block in every container, so that neither cutting nor taking back can
// fail from here on; a failure in between leaves nothing behind but the room.
void CTnRobotCircleMemBlockPool::Buffer::_AddSpareBlock() {
    const std::size_t nBlocks = m_blocksInUse.size() + m_spareBlocks.Size() + 1;
    m_spareBlocks.Reserve(nBlocks);
    if (m_spareNodes.capacity() < nBlocks) {
        m_spareNodes.reserve(2 * nBlocks);
    }
    auto block = std::make_unique<CTnRobotMemoryBlock>(0U, m_pPool);
    block->SetOwnerPtr(this);
    Blocks node{block.get()};
    m_spareNodes.push_back(node.extract(node.begin()));
    m_spareBlocks.PushBack(tnrobot::Watch(block.release()));
}

void CTnRobotCircleMemBlockPool::Buffer::TakeBack(CTnRobotMemoryBlock* pBlock) {
    pBlock->NoteReturned();
    Blocks::node_type node = m_blocksInUse.extract(pBlock);
    if (!node.empty()) {
        _HideContent(pBlock);
        m_spareNodes.push_back(std::move(node));
        m_spareBlocks.PushBack(pBlock);
    }
    if (m_bClosing) {
        m_returned.notify_all();
    }
}

void CTnRobotCircleMemBlockPool::Buffer::_HideContent(CTnRobotMemoryBlock* pBlock) {
    if (const unsigned char* pData = pBlock->HideContent(m_pPool)) {
        NoteHidden(static_cast<std::size_t>(pData - m_memory.get()), pBlock->GetCapacity());
    }
}

// Blocks that callers hold live on without a parent: also a spare one, which somebody may have taken
// back from its holders. A block whose last holder has just let go is neither held nor back yet: that
// thread is about to call RecoveryMemBuff.
void CTnRobotCircleMemBlockPool::Buffer::Close() {
    std::unique_lock<tnrobot::Mutex> lock = Lock();
    for (auto it = m_blocksInUse.begin(); it != m_blocksInUse.end();) {
        it = (*it)->LetGo() ? m_blocksInUse.erase(it) : std::next(it);
    }
    m_returned.wait(lock, [this] { return _LetGoOfSpareBlocks() && m_blocksInUse.empty(); });
}

// @return whether none is left.
bool CTnRobotCircleMemBlockPool::Buffer::_LetGoOfSpareBlocks() {
    for (std::size_t nLeft = m_spareBlocks.Size(); nLeft > 0; --nLeft) {
        CTnRobotMemoryBlock* pBlock = m_spareBlocks.Front();
        m_spareBlocks.PopFront();
        tnrobot::NoteTaken(pBlock);
        if (!pBlock->LetGo()) {
            m_spareBlocks.PushBack(pBlock);
        }
    }
    return m_spareBlocks.Empty();
}

void CTnRobotCircleMemBlockPool::Buffer::_CheckInvariants() const {
    tnrobot::CheckInvariant(*m_pPool, m_pCursor + m_nRoom == m_memory.get() + kBufferSize,
                            "a buffer's cursor and room disagree");
    tnrobot::CheckInvariant(*m_pPool, m_spareNodes.size() == m_spareBlocks.Size(),
                            "a spare block has no place to be kept in");
}

CTnRobotCircleMemBlockPool::CTnRobotCircleMemBlockPool() = default;

int CTnRobotCircleMemBlockPool::CreateInstance(ITnRobotMemoryBlockPool** ppPool) {
    return tnrobot::FinishInstance(new CTnRobotCircleMemBlockPool, ppPool, &CTnRobotCircleMemBlockPool::_Init);
}

bool CTnRobotCircleMemBlockPool::_Init() {
    for (int i = 0; i < kInitialBuffers; ++i) {
        _AddBuffer();
    }
    return true;
}

void CTnRobotCircleMemBlockPool::_AddBuffer() {
    m_readyBuffers.push_back(std::make_unique<Buffer>(this));
}

// A thread that is giving a block back holds m_mutex to the end when it wants to move a buffer,
// so taking the lock once more at the end waits until the last such thread is out.
CTnRobotCircleMemBlockPool::~CTnRobotCircleMemBlockPool() {
    std::unique_lock<tnrobot::Mutex> lock(m_mutex);
    m_readyBuffers.splice(m_readyBuffers.end(), m_spentBuffers);
    for (const auto& buffer : m_readyBuffers) {
        const auto bufferLock = buffer->Lock();
        buffer->BeginClose();
    }
    lock.unlock();
    for (const auto& buffer : m_readyBuffers) {
        buffer->Close();
    }
    lock.lock();
}

int CTnRobotCircleMemBlockPool::QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) {
    if (ppBlock == nullptr || nSize > kBufferSize) {
        return 0;
    }
    return _CutBlock(_ChooseBuffer(nSize), nSize, ppBlock);
}

// The first ready buffer with enough room. Full ones on the way there become spent, or start over
// when nothing of them is in use.
CTnRobotCircleMemBlockPool::Buffer& CTnRobotCircleMemBlockPool::_ChooseBuffer(unsigned int nSize) {
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    while (!m_readyBuffers.empty()) {
        Buffer& first = *m_readyBuffers.front();
        const auto bufferLock = first.Lock();
        if (first.HasRoomFor(nSize)) {
            return first;
        }
        if (!first.IsInUse()) {
            first.Rewind();
            return first;
        }
        first.SetSpent();
        m_spentBuffers.splice(m_spentBuffers.end(), m_readyBuffers, m_readyBuffers.begin());
    }
    _AddBuffer();
    return *m_readyBuffers.back();
}

// Between the choice and this lock other threads may have cut from the buffer, even made it
// spent and given all its blocks back. Whatever its state is now, cutting from its tail is safe;
// without room the request has lost the race, and callers know that answer: 1 and no block.
int CTnRobotCircleMemBlockPool::_CutBlock(Buffer& buffer, unsigned int nSize, ITnRobotMemoryBlock** ppBlock) {
    const auto bufferLock = buffer.Lock();
    if (buffer.HasRoomFor(nSize)) {
        *ppBlock = buffer.Cut(nSize);
    }
    return 1;
}

void CTnRobotCircleMemBlockPool::RecoveryMemBuff(ITnRobotMemoryBlock* pBlock) {
    auto* pPooled = tnrobot::ExactCast<CTnRobotMemoryBlock>(pBlock);
    auto* pBuffer = pPooled != nullptr ? static_cast<Buffer*>(pPooled->GetOwnerPtr()) : nullptr;
    if (pBuffer == nullptr || !pBuffer->IsOf(this)) {
        return;
    }
    auto bufferLock = pBuffer->Lock();
    if (!pBuffer->IsSpentBut(1)) {
        pBuffer->TakeBack(pPooled);
        return;
    }
    bufferLock.unlock();
    _ReturnLastBlock(*pBuffer, pPooled);
}

// The locks are taken anew in their order; the block stays in use meanwhile, so that neither the
// buffer nor the pool can go. A block that was cut in between keeps the buffer spent.
void CTnRobotCircleMemBlockPool::_ReturnLastBlock(Buffer& buffer, CTnRobotMemoryBlock* pBlock) {
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    const auto bufferLock = buffer.Lock();
    buffer.TakeBack(pBlock);
    if (!buffer.IsSpentBut(0)) {
        return;
    }
    buffer.Rewind();
    const auto it = std::find_if(m_spentBuffers.begin(), m_spentBuffers.end(),
                                 [&](const auto& spent) { return spent.get() == &buffer; });
    m_readyBuffers.splice(m_readyBuffers.end(), m_spentBuffers, it);
}

int TnCreateRobotCircleMemoryBlockPool(ITnRobotMemoryBlockPool** ppPool) {
    return CTnRobotCircleMemBlockPool::CreateInstance(ppPool);
}
