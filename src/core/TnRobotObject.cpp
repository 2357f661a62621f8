// The chain of runtime classes: records register themselves as modules are loaded, are looked up by their
// identifiers, and are left out once their module is closed.

#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

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
std::mutex g_registration;               // held while the chain changes
tnrobot::Registrations g_registrations;  // guarded by g_registration
unsigned long long g_nClosed = 0;        // modules closed when the chain was last looked through; guarded, too
std::atomic<bool> g_bMayClose;           // whether a module with registered classes can be closed
std::atomic<unsigned int> g_nMoves{0};   // odd while a record changes its place in the chain

// At the library's end, when threads may still look classes up: then what is remembered stays.
struct FreeRegistrationsAtEnd {
    FreeRegistrationsAtEnd() = default;
    FreeRegistrationsAtEnd(const FreeRegistrationsAtEnd&) = delete;
    FreeRegistrationsAtEnd& operator=(const FreeRegistrationsAtEnd&) = delete;
    ~FreeRegistrationsAtEnd() {
        tnrobot::ForgottenRegistrations forgotten;
        const std::unique_lock<std::mutex> lock(g_registration, std::try_to_lock);
        if (lock.owns_lock()) {
            g_registrations.ForgetAll(forgotten);
        }
    }
} const g_freeAtEnd;

// The link is a plain pointer, because the record's layout is part of the interface.
STnRuntimeClass* Next(const STnRuntimeClass* pClass) {
    return __atomic_load_n(&pClass->m_pNext, __ATOMIC_ACQUIRE);
}

void SetNext(STnRuntimeClass* pClass, STnRuntimeClass* pNext) {
    __atomic_store_n(&pClass->m_pNext, pNext, __ATOMIC_RELEASE);
}

// A record that is linked already would close the chain into a ring. The caller holds
// g_registration, and modules stay.
void Unlink(STnRuntimeClass* pClass) {
    for (STnRuntimeClass* p = g_pHeadClass.load(std::memory_order_acquire); p != nullptr; p = Next(p)) {
        if (Next(p) == pClass) {
            SetNext(p, Next(pClass));
            return;
        }
    }
}

// A plug-in that is closed takes its records with it. The chain runs through them, so it is linked
// anew around them. The caller holds g_registration, and modules stay.
void ForgetClosedModules(unsigned long long nClosed, tnrobot::ForgottenRegistrations& forgotten) {
    if (nClosed == g_nClosed) {
        return;
    }
    g_registrations.ForgetClosedModules(forgotten);
    STnRuntimeClass* pRoot = &CTnRobotObject::classCTnRobotObject;
    const tnrobot::Registration* pNewest = g_registrations.Newest();
    for (const tnrobot::Registration* p = pNewest; p != nullptr; p = p->m_pOlder) {
        SetNext(p->m_pClass, p->m_pOlder != nullptr ? p->m_pOlder->m_pClass : pRoot);
    }
    g_pHeadClass.store(pNewest != nullptr ? pNewest->m_pClass : pRoot, std::memory_order_release);
    g_nClosed = nClosed;
}

struct Creator {
    bool m_bFound = false;
    TnCreateObjectFunction m_pfnCreate = nullptr;
};

// @param[in] mayGoOn  asked before each record is read.
template <typename Condition>
Creator SearchChain(const char* lpszGuid, Condition mayGoOn) {
    const STnRuntimeClass* p = g_pHeadClass.load(std::memory_order_acquire);
    for (; p != nullptr && mayGoOn(); p = Next(p)) {
        if (p->m_lpszClassGuid != nullptr && std::strcmp(p->m_lpszClassGuid, lpszGuid) == 0) {
            return {true, p->m_pfnCreateObject};
        }
    }
    return {};
}

// Most programs never close a module with classes in it, and need nothing of the loader. The flag is set before
// the first record of such a module is linked, so whoever comes to that record by an acquired link finds it set.
// An answer from a chain that moved meanwhile counts for nothing: a class that is registered again leaves its place
// before it comes to the front.
Creator SearchUnlocked(const char* lpszGuid) {
    const unsigned int nMoves = g_nMoves.load(std::memory_order_acquire);
    const Creator creator = SearchChain(lpszGuid, [] { return !g_bMayClose.load(std::memory_order_acquire); });
    // Relaxed suffices: the links before it were acquired, so this is not read ahead of them.
    const bool bMoved = nMoves % 2 == 1 || g_nMoves.load(std::memory_order_relaxed) != nMoves;
    return bMoved ? Creator() : creator;
}

// While nothing moves, and no module goes with its records in the middle of the search. The loader's lock is only
// taken where modules with classes may be closed, and below ours, for which a fork waits: so no child is without it
// because of a look-up. Because of another thread that opens or closes modules at that moment it may be.
Creator SearchLocked(const char* lpszGuid) {
    tnrobot::ForgottenRegistrations forgotten;  // freed when the lock is
    const std::lock_guard<std::mutex> lock(g_registration);
    const auto search = [lpszGuid] { return SearchChain(lpszGuid, [] { return true; }); };
    if (!g_bMayClose.load(std::memory_order_relaxed)) {  // it is set under the lock
        return search();
    }
    Creator creator;
    tnrobot::WhileModulesStay([&search, &creator, &forgotten](unsigned long long nClosed) {
        ForgetClosedModules(nClosed, forgotten);
        creator = search();
    });
    return creator;
}

Creator FindCreator(const char* lpszGuid) {
    const Creator creator = SearchUnlocked(lpszGuid);
    return creator.m_bFound ? creator : SearchLocked(lpszGuid);
}

// The caller holds g_registration, and modules stay.
void MoveToFront(STnRuntimeClass* pClass) {
    STnRuntimeClass* pHead = g_pHeadClass.load(std::memory_order_acquire);
    if (pClass == pHead) {
        return;  // a module was closed meanwhile, and the chain is linked as it was registered
    }
    g_nMoves.fetch_add(1, std::memory_order_acq_rel);
    Unlink(pClass);
    SetNext(pClass, pHead);
    // Release publishes the record's plain fields too: they were written before it came here.
    g_pHeadClass.store(pClass, std::memory_order_release);
    g_nMoves.fetch_add(1, std::memory_order_release);
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
    const Creator creator = FindCreator(lpszGuid);
    return creator.m_pfnCreate != nullptr ? creator.m_pfnCreate() : nullptr;
}

TN_REG_CLASS::TN_REG_CLASS(STnRuntimeClass* pClass) {
    if (pClass == nullptr || pClass == &CTnRobotObject::classCTnRobotObject) {
        return;  // the root record stays the last
    }
    tnrobot::ForgottenRegistrations forgotten;  // freed when the lock is, as what is made without need
    std::unique_ptr<tnrobot::Registration> pNew = tnrobot::RememberRecord(pClass);
    const std::lock_guard<std::mutex> lock(g_registration);
    bool bNewest = false;
    tnrobot::WhileModulesStay([pClass, &bNewest, &forgotten](unsigned long long nClosed) {
        ForgetClosedModules(nClosed, forgotten);
        bNewest = pClass == g_pHeadClass.load(std::memory_order_acquire);
    });
    if (bNewest) {
        return;
    }
    if (!pNew) {
        throw std::bad_alloc();
    }
    if (pNew->m_bInModule) {
        g_bMayClose.store(true, std::memory_order_release);
    }
    g_registrations.Add(std::move(pNew), forgotten);
    tnrobot::WhileModulesStay([pClass, &forgotten](unsigned long long nClosed) {
        ForgetClosedModules(nClosed, forgotten);
        MoveToFront(pClass);
    });
}
