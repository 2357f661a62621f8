// The chain of runtime classes: records register themselves as modules are loaded, are looked up by their
// identifiers, and are left out once their module is closed.

#include <cstring>
#include <mutex>

#include "TnRobotKernel/core.h"
#include "core/TnObjectWatcher.h"
#include "core/TnRegistrations.h"

// The root record has no creation function, so its identifier creates nothing.
STnRuntimeClass CTnRobotObject::classCTnRobotObject = {"00000000-0000-0000-0000-000000000000", nullptr, nullptr,
                                                       nullptr};

namespace {

// Newest registration first. A plug-in that is opened at run time registers its classes while
// other threads look theirs up, so links are published with release and read with acquire.
std::atomic<STnRuntimeClass*> g_pHeadClass{&CTnRobotObject::classCTnRobotObject};
std::mutex g_registration;                  // held while the chain changes
tnrobot::Registrations g_registrations;     // guarded by g_registration
std::atomic<unsigned long long> g_nClosed;  // modules closed when the chain was last looked through
std::atomic<bool> g_bMayClose;              // whether a module with registered classes can be closed; see FindClass

// The link is a plain pointer, because the record's layout is part of the interface.
STnRuntimeClass* Next(const STnRuntimeClass* pClass) {
    return __atomic_load_n(&pClass->m_pNext, __ATOMIC_ACQUIRE);
}

void SetNext(STnRuntimeClass* pClass, STnRuntimeClass* pNext) {
    __atomic_store_n(&pClass->m_pNext, pNext, __ATOMIC_RELEASE);
}

// A record that is linked already would close the chain into a ring. The caller holds
// g_registration.
void Unlink(STnRuntimeClass* pClass) {
    for (STnRuntimeClass* p = g_pHeadClass.load(std::memory_order_acquire); p != nullptr; p = Next(p)) {
        if (Next(p) == pClass) {
            SetNext(p, Next(pClass));
            return;
        }
    }
}

// A plug-in that is closed takes its records with it. The chain runs through them, so it is linked
// anew around them. The caller holds g_registration.
void ForgetClosedModules() {
    const unsigned long long nClosed = tnrobot::CountClosedModules();
    // Relaxed suffices: it is written only under the lock that is held here.
    if (nClosed == g_nClosed.load(std::memory_order_relaxed)) {
        return;
    }
    g_registrations.ForgetClosedModules();
    STnRuntimeClass* pRoot = &CTnRobotObject::classCTnRobotObject;
    const tnrobot::Registration* pNewest = g_registrations.Newest();
    for (const tnrobot::Registration* p = pNewest; p != nullptr; p = p->m_pOlder) {
        SetNext(p->m_pClass, p->m_pOlder != nullptr ? p->m_pOlder->m_pClass : pRoot);
    }
    g_pHeadClass.store(pNewest != nullptr ? pNewest->m_pClass : pRoot, std::memory_order_release);
    // Last, with release: whoever acquires this number goes the new way around what was closed.
    g_nClosed.store(nClosed, std::memory_order_release);
}

const STnRuntimeClass* SearchChain(const char* lpszGuid) {
    const STnRuntimeClass* p = g_pHeadClass.load(std::memory_order_acquire);
    while (p != nullptr && (p->m_lpszClassGuid == nullptr || std::strcmp(p->m_lpszClassGuid, lpszGuid) != 0)) {
        p = Next(p);
    }
    return p;
}

// A class that is registered again leaves its place before it comes to the front, so who misses it
// looks once more while nothing moves.
//
// Acquire and release suffice for the flag and the number, too: a module that was closed before this
// look-up was registered before, and the flag was set then. One that is closed meanwhile may be gone in
// the middle of the search, whatever is read here: its owner has to prevent that.
const STnRuntimeClass* FindClass(const char* lpszGuid) {
    if (g_bMayClose.load(std::memory_order_acquire) &&
        tnrobot::CountClosedModules() != g_nClosed.load(std::memory_order_acquire)) {
        const std::lock_guard<std::mutex> lock(g_registration);
        ForgetClosedModules();
    }
    const STnRuntimeClass* pClass = SearchChain(lpszGuid);
    if (pClass == nullptr) {
        const std::lock_guard<std::mutex> lock(g_registration);
        pClass = SearchChain(lpszGuid);
    }
    return pClass;
}

}  // namespace

void tnrobot::LockRegistrationForFork() {
    g_registration.lock();
}

void tnrobot::UnlockRegistrationAfterFork() {
    g_registration.unlock();
}

// Archives refer to objects that they do not hold.
CTnRobotObject::~CTnRobotObject() {
    tnrobot::ObjectWatcher::Tell(this);
}

ITnRobotSerialize::~ITnRobotSerialize() = default;

CTnRobotObject* CTnRobotObject::CreateObjectFromGUID(const char* lpszGuid) {
    if (lpszGuid == nullptr || lpszGuid[0] == '\0') {
        return nullptr;
    }
    const STnRuntimeClass* pClass = FindClass(lpszGuid);
    if (pClass == nullptr || pClass->m_pfnCreateObject == nullptr) {
        return nullptr;
    }
    return pClass->m_pfnCreateObject();
}

TN_REG_CLASS::TN_REG_CLASS(STnRuntimeClass* pClass) {
    if (pClass == nullptr || pClass == &CTnRobotObject::classCTnRobotObject) {
        return;  // the root record stays the last
    }
    const std::lock_guard<std::mutex> lock(g_registration);
    ForgetClosedModules();
    STnRuntimeClass* pHead = g_pHeadClass.load(std::memory_order_acquire);
    if (pClass == pHead) {
        return;
    }
    // What can fail comes first: a class that moves keeps its place when memory ends.
    if (g_registrations.Add(pClass)) {
        g_bMayClose.store(true, std::memory_order_release);
    }
    Unlink(pClass);
    SetNext(pClass, pHead);
    // Release publishes the record's plain fields too: they were written before it came here.
    g_pHeadClass.store(pClass, std::memory_order_release);
}
