// Which runtime classes are registered, and which of them have gone with the module that they
// were part of: their records cannot be asked any more.

#ifndef TNROBOTKERNEL_CORE_TNREGISTRATIONS_H_
#define TNROBOTKERNEL_CORE_TNREGISTRATIONS_H_

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

/// The registered records, each once. Externally synchronised.
///
/// Constant-initialised, because modules register classes before any constructor of ours may have
/// run; empty again when the library is unloaded.
class Registrations {
public:
    constexpr Registrations() = default;
    Registrations(const Registrations&) = delete;
    Registrations& operator=(const Registrations&) = delete;
    ~Registrations();

    const Registration* Newest() const { return m_pNewest; }

    /// Adds a record as the newest one; one that is there moves. Throws std::bad_alloc and then
    /// changes nothing. @return whether the record is part of a module that may be closed.
    bool Add(STnRuntimeClass* pClass);

    /// Sets the records aside whose modules are closed. Call it while modules stay.
    void ForgetClosedModules();

    /// Frees what was set aside. Call it when modules come and go again.
    void FreeForgotten();

private:
    template <typename Condition>
    void _ForgetIf(Condition condition);

    Registration* m_pNewest = nullptr;
    Registration* m_pForgotten = nullptr;
};

/// Takes the lock of the registered classes, so that it is not lost in a child; called before a fork.
void LockRegistrationForFork();

/// Gives it back, in the parent and in the child.
void UnlockRegistrationAfterFork();

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_CORE_TNREGISTRATIONS_H_
