// The lock of everything that logs here, and what the loggers do when the process forks or ends.

#ifndef TNROBOTLOG_TNLOGLOCK_H_
#define TNROBOTLOG_TNLOGLOCK_H_

namespace tnrobotlog {

/// Holds the library's one lock. fork waits for it, so that the child finds nothing half done and
/// nobody holding it who is not there. While the process forks, the thread that does it has the
/// lock and may still log, from handlers of its own. A thread that is cancelled finishes its line.
class CTnLogLock {
public:
    CTnLogLock();
    CTnLogLock(const CTnLogLock&) = delete;
    CTnLogLock& operator=(const CTnLogLock&) = delete;
    ~CTnLogLock();

private:
    const bool m_bTaken;
    int m_nCancelState = 0;
};

/// Told what happens to the process, under the lock.
class CTnProcessGuest {
public:
    CTnProcessGuest() = default;
    CTnProcessGuest(const CTnProcessGuest&) = delete;
    CTnProcessGuest& operator=(const CTnProcessGuest&) = delete;

    /// Nothing may wait in memory from now on: the process is about to be doubled, or ends.
    virtual void WriteWhatWaits() noexcept = 0;

    /// This is the new process.
    virtual void StartAsChild() noexcept = 0;

protected:
    ~CTnProcessGuest() = default;

    /// To be called without the lock, at the end of the constructor of the class that is told. Throws
    /// std::bad_alloc when the system cannot tell us of forks.
    void _Enter();

    /// To be called without the lock, at the beginning of its destructor.
    void _Leave();

private:
    friend void TellGuests(void (CTnProcessGuest::*pfnTell)() noexcept) noexcept;

    CTnProcessGuest* m_pNext = nullptr;  // guarded by the lock
};

/// @return whether lines have to be written at once, because what waits might be written twice or
///         not at all: while the process forks, and when it ends. To be asked under the lock.
bool MustWriteAtOnce();

/// The number of the calling thread, in a forked process too.
/// @param[in] nCached  the number that may be that of the parent's thread.
unsigned long ThreadNumber(unsigned long nCached);

}  // namespace tnrobotlog

#endif  // TNROBOTLOG_TNLOGLOCK_H_
