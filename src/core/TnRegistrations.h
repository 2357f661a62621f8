// Which runtime classes are registered, and which of them have gone with the module that they
// were part of: their records cannot be asked any more.

#ifndef TNROBOTKERNEL_CORE_TNREGISTRATIONS_H_
#define TNROBOTKERNEL_CORE_TNREGISTRATIONS_H_

#include <memory>

#include "TnRobotKernel/core.h"

namespace tnrobot {

/// Runs work while no module is opened or closed, so that what lies in a module stays. The loader's own lock is
/// held: the work takes no other lock, allocates and frees nothing, and does not throw. Work may be nested.
/// @param[in] pfnWork   is told how many modules the process has closed so far, and pContext.
void WhileModulesStay(void (*pfnWork)(unsigned long long nClosed, void* pContext), void* pContext);

/// The same for a function object. @param[in] work  void(unsigned long long nClosed).
template <typename Work>
void WhileModulesStay(Work work) {
    WhileModulesStay([](unsigned long long nClosed, void* pWork) { (*static_cast<Work*>(pWork))(nClosed); }, &work);
}

/// One registered record, and what it said then.
struct Registration {
    STnRuntimeClass* m_pClass;
    const char* m_lpszClassGuid;
    TnCreateObjectFunction m_pfnCreateObject;
    bool m_bInModule;  ///< of a module that may be closed; other memory is its owner's affair
    Registration* m_pOlder;
};

/// What was remembered of records that have gone, until it may be freed: when no lock is held, since memory
/// may be an application's own affair, with a lock that another thread holds while it looks a class up.
class ForgottenRegistrations {
public:
    ForgottenRegistrations() = default;
    ForgottenRegistrations(const ForgottenRegistrations&) = delete;
    ForgottenRegistrations& operator=(const ForgottenRegistrations&) = delete;
    ~ForgottenRegistrations();

    void Take(Registration* p) {
        p->m_pOlder = m_pFirst;
        m_pFirst = p;
    }

private:
    Registration* m_pFirst = nullptr;
};

/// @return what is remembered of a record, or null without memory.
std::unique_ptr<Registration> RememberRecord(STnRuntimeClass* pClass) noexcept;

/// The registered records, each once. Externally synchronised.
///
/// Constant-initialised, because modules register classes before any constructor of ours may have
/// run. What is left in the end is freed with ForgetAll.
class Registrations {
public:
    constexpr Registrations() = default;
    Registrations(const Registrations&) = delete;
    Registrations& operator=(const Registrations&) = delete;

    const Registration* Newest() const { return m_pNewest; }

    /// Adds a record as the newest one; one that is there moves.
    void Add(std::unique_ptr<Registration> pNew, ForgottenRegistrations& forgotten) noexcept;

    /// Drops the records whose modules are closed. Call it while modules stay.
    void ForgetClosedModules(ForgottenRegistrations& forgotten) noexcept;

    void ForgetAll(ForgottenRegistrations& forgotten) noexcept;

private:
    template <typename Condition>
    void _ForgetIf(Condition condition, ForgottenRegistrations& forgotten);

    Registration* m_pNewest = nullptr;
};

/// Takes the lock of the registered classes, so that it is not lost in a child; called before a fork.
void LockRegistrationForFork();

/// Gives it back, in the parent and in the child.
void UnlockRegistrationAfterFork();

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_CORE_TNREGISTRATIONS_H_
