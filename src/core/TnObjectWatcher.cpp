// The watchers are a list under one lock, which every serialisable object looks at when it is destroyed.

#include "core/TnObjectWatcher.h"

#include <atomic>

namespace tnrobot {

namespace {

std::mutex g_objects;                   // held while a watcher remembers or forgets objects
ObjectWatcher* g_pWatchers = nullptr;   // guarded by g_objects
std::atomic<unsigned int> g_nWatchers;  // how many there are; changed under g_objects

}  // namespace

void ObjectWatcher::LockForFork() {
    g_objects.lock();
}

void ObjectWatcher::UnlockAfterFork() {
    g_objects.unlock();
}

// Most programs destroy objects while no archive refers to any: they must not meet at the lock. An
// archive that begins to watch at the same moment does not know an object that is going already. An
// object that an archive knows goes after it has become known: its holders have to see to that
// themselves, and so the count is seen too, in whatever order it is read. What it counts is read under
// the lock only.
void ObjectWatcher::Tell(const CTnRobotObject* pObject) noexcept {
    if (g_nWatchers.load(std::memory_order_acquire) == 0) {
        return;
    }
    const auto lock = LockObjects();
    for (ObjectWatcher* p = g_pWatchers; p != nullptr; p = p->m_pNext) {
        p->_ObjectGone(pObject);
    }
}

std::unique_lock<std::mutex> ObjectWatcher::LockObjects() {
    return std::unique_lock<std::mutex>(g_objects);
}

void ObjectWatcher::Watch() {
    if (m_bWatches) {
        return;
    }
    m_bWatches = true;
    m_pNext = g_pWatchers;
    m_ppThis = &g_pWatchers;
    if (m_pNext != nullptr) {
        m_pNext->m_ppThis = &m_pNext;
    }
    g_pWatchers = this;
    g_nWatchers.fetch_add(1, std::memory_order_release);
}

void ObjectWatcher::StopWatching() {
    if (!m_bWatches) {
        return;
    }
    m_bWatches = false;
    const auto lock = LockObjects();
    *m_ppThis = m_pNext;
    if (m_pNext != nullptr) {
        m_pNext->m_ppThis = m_ppThis;
    }
    g_nWatchers.fetch_sub(1, std::memory_order_release);
}

}  // namespace tnrobot
