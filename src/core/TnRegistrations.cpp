// The loader tells where each module lies in memory. A record is remembered with what it said, and counts
// as gone when no module lies there any more or another record does.

#include "core/TnRegistrations.h"

#include <link.h>

#include <cstdint>

namespace tnrobot {

namespace {

bool Holds(const dl_phdr_info& module, std::uintptr_t nFirst, std::uintptr_t nLast) {
    for (int n = 0; n < module.dlpi_phnum; ++n) {
        const ElfW(Phdr)& segment = module.dlpi_phdr[n];
        const std::uintptr_t nStart = module.dlpi_addr + segment.p_vaddr;
        if (segment.p_type == PT_LOAD && nFirst >= nStart && nLast - nStart < segment.p_memsz) {
            return true;
        }
    }
    return false;
}

// Whether the record's memory belongs to a module that is loaded now and may be closed: any but the
// program itself, which is the one without a name.
bool LiesInModule(const STnRuntimeClass* pClass) {
    constexpr int kInModule = 1;
    constexpr int kInProgram = 2;
    const int nFound = dl_iterate_phdr(
        [](dl_phdr_info* pModule, std::size_t /*nSize*/, void* pRecord) {
            const auto nFirst = reinterpret_cast<std::uintptr_t>(pRecord);
            if (!Holds(*pModule, nFirst, nFirst + sizeof(STnRuntimeClass) - 1)) {
                return 0;
            }
            return pModule->dlpi_name != nullptr && pModule->dlpi_name[0] == '\0' ? kInProgram : kInModule;
        },
        const_cast<STnRuntimeClass*>(pClass));
    return nFound == kInModule;
}

// Where a module was closed another one may lie now; there the record says something else. The
// same module opened again lies there with the same record, which is as good as before. One of the
// two fields may have been set after the registration.
bool IsThere(const Registration& registration) {
    const STnRuntimeClass* pClass = registration.m_pClass;
    return !registration.m_bInModule ||
           (LiesInModule(pClass) && (pClass->m_lpszClassGuid == registration.m_lpszClassGuid ||
                                     pClass->m_pfnCreateObject == registration.m_pfnCreateObject));
}

}  // namespace

unsigned long long CountClosedModules() {
    unsigned long long nClosed = 0;
    dl_iterate_phdr(
        [](dl_phdr_info* pModule, std::size_t /*nSize*/, void* pClosed) {
            *static_cast<unsigned long long*>(pClosed) = pModule->dlpi_subs;
            return 1;  // the number is the same in every module
        },
        &nClosed);
    return nClosed;
}

template <typename Condition>
void Registrations::_DropIf(Condition condition) {
    Registration** ppLink = &m_pNewest;
    while (*ppLink != nullptr) {
        Registration* p = *ppLink;
        if (condition(*p)) {
            *ppLink = p->m_pOlder;
            delete p;
        } else {
            ppLink = &p->m_pOlder;
        }
    }
}

Registrations::~Registrations() {
    _DropIf([](const Registration&) { return true; });
}

bool Registrations::Add(STnRuntimeClass* pClass) {
    auto* pNew =
        new Registration{pClass, pClass->m_lpszClassGuid, pClass->m_pfnCreateObject, LiesInModule(pClass), nullptr};
    _DropIf([pClass](const Registration& registration) { return registration.m_pClass == pClass; });
    pNew->m_pOlder = m_pNewest;
    m_pNewest = pNew;
    return pNew->m_bInModule;
}

void Registrations::ForgetClosedModules() {
    _DropIf([](const Registration& registration) { return !IsThere(registration); });
}

}  // namespace tnrobot
