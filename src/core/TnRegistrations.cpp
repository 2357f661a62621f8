// The loader tells where each module lies in memory. A record is remembered with what it said, and counts
// as gone when no module lies there any more or another record does.

#include "core/TnRegistrations.h"

#include <link.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>

namespace tnrobot {

namespace {

bool Holds(const dl_phdr_info& module, std::uintptr_t nFirst, std::uintptr_t nLast) {
    for (int n = 0; n < module.dlpi_phnum; ++n) {
        const ElfW(Phdr)& segment = module.dlpi_phdr[n];
        const std::uintptr_t nStart = module.dlpi_addr + segment.p_vaddr;
        const bool bWritable = (segment.p_flags & PF_W) != 0;  // as records are, whose links change
        if (segment.p_type == PT_LOAD && bWritable && nFirst >= nStart && nLast - nStart < segment.p_memsz) {
            return true;
        }
    }
    return false;
}

// Where a record lies.
struct Place {
    bool m_bInModule = false;      // in one that is loaded now and may be closed: any but the program itself
    std::uintptr_t m_nLength = 0;  // of that module
};

std::uintptr_t LengthOf(const dl_phdr_info& module) {
    std::uintptr_t nEnd = 0;
    for (int n = 0; n < module.dlpi_phnum; ++n) {
        const ElfW(Phdr)& segment = module.dlpi_phdr[n];
        if (segment.p_type == PT_LOAD) {
            nEnd = std::max(nEnd, static_cast<std::uintptr_t>(segment.p_vaddr + segment.p_memsz));
        }
    }
    return nEnd;
}

Place PlaceOf(const STnRuntimeClass* pClass) {
    struct Search {
        std::uintptr_t m_nFirst = 0;
        Place m_place;
    } search = {reinterpret_cast<std::uintptr_t>(pClass), {}};
    dl_iterate_phdr(
        [](dl_phdr_info* pModule, std::size_t /*nSize*/, void* p) {
            auto* pSearch = static_cast<Search*>(p);
            if (!Holds(*pModule, pSearch->m_nFirst, pSearch->m_nFirst + sizeof(STnRuntimeClass) - 1)) {
                return 0;
            }
            const bool bProgram = pModule->dlpi_name != nullptr && pModule->dlpi_name[0] == '\0';
            pSearch->m_place = {!bProgram, LengthOf(*pModule)};
            return 1;
        },
        &search);
    return search.m_place;
}

// The loader lists a module that is being opened before it has corrected the addresses in it. Until then they
// are what stands in the file, counted from the module's begin.
template <typename Pointer>
bool IsCorrected(Pointer p, Pointer pRegistered, const Place& place) {
    return p == nullptr || p == pRegistered || reinterpret_cast<std::uintptr_t>(p) >= place.m_nLength;
}

// Where a module was closed another one may lie now; there the record says something else. The
// same module opened again lies there with the same record, which is as good as before. One of the
// two fields may have been set after the registration. Nulls are everywhere and prove nothing.
bool IsThere(const Registration& registration) {
    if (!registration.m_bInModule) {
        return true;
    }
    const STnRuntimeClass* pClass = registration.m_pClass;
    const Place place = PlaceOf(pClass);
    if (!place.m_bInModule) {
        return false;
    }
    const char* const lpszGuid = pClass->m_lpszClassGuid;
    const TnCreateObjectFunction pfnCreate = pClass->m_pfnCreateObject;
    const bool bSameGuid = lpszGuid != nullptr && lpszGuid == registration.m_lpszClassGuid;
    const bool bSameFunction = pfnCreate != nullptr && pfnCreate == registration.m_pfnCreateObject;
    return IsCorrected(lpszGuid, registration.m_lpszClassGuid, place) &&
           IsCorrected(pfnCreate, registration.m_pfnCreateObject, place) && (bSameGuid || bSameFunction);
}

}  // namespace

// The loader holds the lock under which it unmaps modules while it calls, and counts them under it too.
void WhileModulesStay(void (*pfnWork)(unsigned long long nClosed, void* pContext), void* pContext) {
    struct Call {
        void (*m_pfnWork)(unsigned long long, void*);
        void* m_pContext;
    } call = {pfnWork, pContext};
    dl_iterate_phdr(
        [](dl_phdr_info* pModule, std::size_t /*nSize*/, void* p) {
            const auto* pCall = static_cast<const Call*>(p);
            pCall->m_pfnWork(pModule->dlpi_subs, pCall->m_pContext);
            return 1;  // once: the number is the same in every module
        },
        &call);
}

ForgottenRegistrations::~ForgottenRegistrations() {
    while (m_pFirst != nullptr) {
        delete std::exchange(m_pFirst, m_pFirst->m_pOlder);
    }
}

std::unique_ptr<Registration> RememberRecord(STnRuntimeClass* pClass) noexcept {
    return std::unique_ptr<Registration>(new (std::nothrow) Registration{
        pClass, pClass->m_lpszClassGuid, pClass->m_pfnCreateObject, PlaceOf(pClass).m_bInModule, nullptr});
}

template <typename Condition>
void Registrations::_ForgetIf(Condition condition, ForgottenRegistrations& forgotten) {
    Registration** ppLink = &m_pNewest;
    while (*ppLink != nullptr) {
        Registration* p = *ppLink;
        if (condition(*p)) {
            *ppLink = p->m_pOlder;
            forgotten.Take(p);
        } else {
            ppLink = &p->m_pOlder;
        }
    }
}

void Registrations::Add(std::unique_ptr<Registration> pNew, ForgottenRegistrations& forgotten) noexcept {
    const STnRuntimeClass* pClass = pNew->m_pClass;
    _ForgetIf([pClass](const Registration& registration) { return registration.m_pClass == pClass; }, forgotten);
    pNew->m_pOlder = m_pNewest;
    m_pNewest = pNew.release();
}

void Registrations::ForgetClosedModules(ForgottenRegistrations& forgotten) noexcept {
    _ForgetIf([](const Registration& registration) { return !IsThere(registration); }, forgotten);
}

void Registrations::ForgetAll(ForgottenRegistrations& forgotten) noexcept {
    _ForgetIf([](const Registration&) { return true; }, forgotten);
}

}  // namespace tnrobot
