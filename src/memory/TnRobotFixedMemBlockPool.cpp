// Blocks are lent from the front of the free list and come back there; the sweep frees them from its end.
// What makes it longer than that is RecoveryMemBuff, which anybody may call with any block.

#include "memory/TnRobotFixedMemBlockPool.h"

#include <memory>

#include "checked/TnChecked.h"
#include "core/TnCreateInstance.h"
#include "core/TnExactCast.h"
#include "core/TnIdleTime.h"
#include "memory/TnHugePages.h"

int CTnRobotFixedMemBlockPool::CreateInstance(unsigned int nBlockSize, unsigned int nMaxCount, double dIdleSeconds,
                                              CTnRobotFixedMemBlockPool** ppPool) {
    if (ppPool == nullptr) {
        return 0;
    }
    return tnrobot::FinishInstance(new CTnRobotFixedMemBlockPool(dIdleSeconds), ppPool,
                                   &CTnRobotFixedMemBlockPool::_Initialize, nBlockSize, nMaxCount);
}

bool CTnRobotFixedMemBlockPool::_Initialize(unsigned int nBlockSize, unsigned int nMaxCount) {
    if (nBlockSize == 0 || nMaxCount == 0) {
        return false;
    }
    m_nBlockSize = nBlockSize;
    m_nMaxCount = nMaxCount;
    return true;
}

// Blocks that callers hold live on without a parent. A block whose last holder has just let go
// is neither held nor back yet: that thread is about to call RecoveryMemBuff, so the pool waits for
// it.
CTnRobotFixedMemBlockPool::~CTnRobotFixedMemBlockPool() {
    std::unique_lock<tnrobot::Mutex> lock(m_mutex);
    m_bClosing = true;
    _LetGoOfAllBlocks();
    while (!m_allBlocks.empty()) {
        m_returned.wait(lock);
        _LetGoOfAllBlocks();
    }
}

void CTnRobotFixedMemBlockPool::_LetGoOfAllBlocks() {
    while (!m_freeBlocks.Empty()) {
        m_freeBlocks.PopFront();
    }
    for (auto it = m_allBlocks.begin(); it != m_allBlocks.end();) {
        (*it)->ShowContent();
        it = (*it)->LetGo() ? m_allBlocks.erase(it) : std::next(it);
    }
}

int CTnRobotFixedMemBlockPool::QueryBlock(ITnRobotMemoryBlock** ppBlock) {
    if (ppBlock == nullptr) {
        return 0;
    }
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    ++m_nAnswered;
    CTnRobotMemoryBlock* pBlock = nullptr;
    do {
        if (m_freeBlocks.Empty() && !_MakeBlock()) {
            return 0;
        }
        pBlock = m_freeBlocks.Front();
        m_freeBlocks.PopFront();
        pBlock->ShowContent();
    } while (!_Lend(pBlock));
    *ppBlock = pBlock;
    return 1;
}

// A block that somebody took back while it was held may just be returned by its last holder: it only
// loses this place on the list, and gets the place of that return.
bool CTnRobotFixedMemBlockPool::_Lend(CTnRobotMemoryBlock* pBlock) {
    if (!pBlock->IsOf(this)) {
        pBlock->AddRef();
        return true;
    }
    pBlock->NoteUnlisted();
    return pBlock->Lend();
}

// The new block is owned by a pointer until the set holds it, so a failed growth leaks nothing. It
// becomes the first free one. @return false when there may be no more.
bool CTnRobotFixedMemBlockPool::_MakeBlock() {
    if (m_allBlocks.size() >= m_nMaxCount) {
        return false;
    }
    m_freeBlocks.Reserve(m_allBlocks.size() + 1);
    auto block = std::make_unique<CTnRobotMemoryBlock>(CTnRobotMemoryBlock::kOwnsMemory, this);
    auto* pMemory = new unsigned char[m_nBlockSize];
    block->SetMemData(pMemory, m_nBlockSize);
    tnrobot::AskForHugePages(pMemory, m_nBlockSize);
    m_allBlocks.insert(block.get());
    block->NoteListed();
    m_freeBlocks.PushFront(tnrobot::Watch(block.release()));
    return true;
}

void CTnRobotFixedMemBlockPool::RecoveryMemBuff(ITnRobotMemoryBlock* pBlock) {
    auto* pPooled = tnrobot::ExactCast<CTnRobotMemoryBlock>(pBlock);
    if (pPooled == nullptr) {
        return;
    }
    pPooled->ClearResource();
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    const bool bOwn = pPooled->IsOf(this);
    if (bOwn) {
        pPooled->NoteReturned();
    }
    m_freeBlocks.Reserve(m_freeBlocks.Size() + 1);  // only a stranger's block, or one twice, finds no room
    if (bOwn) {
        pPooled->NoteListed();
        pPooled->HideContent(this);
    }
    pPooled->UpdateRecoveryTime();
    m_freeBlocks.PushFront(pPooled);
    if (m_bClosing) {
        m_returned.notify_all();
    }
}

// Blocks enter at the front and leave at the back, so the sweep may stop at the first young one.
void CTnRobotFixedMemBlockPool::FreeUnuseMemory() {
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    while (!m_freeBlocks.Empty()) {
        const auto now = std::chrono::system_clock::now();
        if (tnrobot::SecondsBetween(m_freeBlocks.Back()->GetRecoveryTime(), now) < m_dIdleSeconds) {
            break;
        }
        _FreeOldestBlock();
    }
    tnrobot::IfChecked([this] { _CheckInvariants(); });
}

// RecoveryMemBuff takes any block, also a stranger's, one twice and one that is held. Only what the
// set holds has a reference of the pool's to give back. It goes with its last place on the list, to
// its holders if it has any, and stays when the last of them is just returning it.
void CTnRobotFixedMemBlockPool::_FreeOldestBlock() {
    CTnRobotMemoryBlock* pBlock = m_freeBlocks.Back();
    m_freeBlocks.PopBack();
    const auto it = m_allBlocks.find(pBlock);
    if (it == m_allBlocks.end() || !pBlock->NoteUnlisted()) {
        return;
    }
    pBlock->ShowContent();
    if (pBlock->LetGo()) {
        m_allBlocks.erase(it);
    }
}

unsigned int CTnRobotFixedMemBlockPool::GetCount() const {
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    return static_cast<unsigned int>(m_allBlocks.size());
}

unsigned int CTnRobotFixedMemBlockPool::GetMemorySize() const {
    return m_nBlockSize * GetCount();
}

bool CTnRobotFixedMemBlockPool::IsUnused() const {
    std::lock_guard<tnrobot::Mutex> lock(m_mutex);
    return m_allBlocks.empty() && m_nAnswered == m_nAnnounced;
}

void CTnRobotFixedMemBlockPool::_CheckInvariants() const {
    tnrobot::CheckInvariant(*this, m_allBlocks.size() <= m_nMaxCount, "owns more blocks than it may");
    for (const CTnRobotMemoryBlock* pBlock : m_allBlocks) {
        tnrobot::CheckInvariant(*this, pBlock->GetCapacity() == m_nBlockSize, "owns a block of another size");
    }
}
