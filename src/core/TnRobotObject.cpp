#include <cstring>

#include "TnRobotKernel/core.h"

// The root record has no creation function, so its identifier creates nothing.
STnRuntimeClass CTnRobotObject::classCTnRobotObject = {"00000000-0000-0000-0000-000000000000", nullptr, nullptr,
                                                       nullptr};

namespace {

// Newest registration first. A plug-in that is opened at run time registers its classes while
// other threads look theirs up, so records are published with release and read with acquire.
std::atomic<STnRuntimeClass*> g_pHeadClass{&CTnRobotObject::classCTnRobotObject};

// A record that were linked twice would close the chain into a ring.
bool IsRegistered(const STnRuntimeClass* pClass) {
    const STnRuntimeClass* p = g_pHeadClass.load(std::memory_order_acquire);
    while (p != nullptr && p != pClass) {
        p = p->m_pNext;
    }
    return p != nullptr;
}

const STnRuntimeClass* FindClass(const char* lpszGuid) {
    const STnRuntimeClass* p = g_pHeadClass.load(std::memory_order_acquire);
    while (p != nullptr && (p->m_lpszClassGuid == nullptr || std::strcmp(p->m_lpszClassGuid, lpszGuid) != 0)) {
        p = p->m_pNext;
    }
    return p;
}

}  // namespace

CTnRobotObject::~CTnRobotObject() = default;
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
    if (pClass == nullptr || IsRegistered(pClass)) {
        return;
    }
    STnRuntimeClass* pHead = g_pHeadClass.load(std::memory_order_acquire);
    do {
        pClass->m_pNext = pHead;
    } while (!g_pHeadClass.compare_exchange_weak(pHead, pClass, std::memory_order_release, std::memory_order_acquire));
}
