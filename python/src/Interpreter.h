/// @file
/// The interpreter's lock around calls of the library, and locks of objects that several Python threads share.
///
/// Rules that keep this free of deadlocks:
/// - nobody waits for an ObjectMutex with the interpreter's lock in hand;
/// - nobody runs Python code with an ObjectMutex in hand. Making a str, bytes, int or float runs none; making
///   a container may, for the collector of cycles begins there.

#ifndef PYTHON_INTERPRETER_H_
#define PYTHON_INTERPRETER_H_

#include <pybind11/pybind11.h>

#include <cstddef>
#include <exception>
#include <mutex>
#include <utility>

namespace tnrobot::python {

namespace py = pybind11;

/// Stands around whatever may ask for the interpreter's lock. At its end the interpreter ends the threads that ask, by
/// unwinding them; unwinding ours would give Python objects back without that lock, so such a thread sleeps here
/// instead, until the process has gone. Exceptions pass.
class StopUnwinding final {
public:
    StopUnwinding() = default;
    StopUnwinding(const StopUnwinding&) = delete;
    StopUnwinding& operator=(const StopUnwinding&) = delete;
    ~StopUnwinding() {
        if (!m_bDone && std::uncaught_exceptions() == m_nExceptions) {
            Sleep();
        }
    }

    /// It was not unwound.
    void Done() { m_bDone = true; }

private:
    [[noreturn]] static void Sleep();

    const int m_nExceptions = std::uncaught_exceptions();
    bool m_bDone = false;
};

/// Calls something of Python's that may run Python code, where this thread may have to end; see StopUnwinding.
/// @param[in] call  holds no object of its own.
template <typename Call>
auto CallPython(Call call) {
    StopUnwinding guard;
    auto result = call();
    guard.Done();
    return result;
}

/// Takes the interpreter's lock back, if the interpreter is not at its end.
/// @param[in] pState  what PyEval_SaveThread has returned on this thread.
void TakeLockBack(PyThreadState* pState);

/// Gives the interpreter's lock to others for as long as it lives.
class WithoutGil final {
public:
    WithoutGil() : m_pState(PyEval_SaveThread()) {}
    WithoutGil(const WithoutGil&) = delete;
    WithoutGil& operator=(const WithoutGil&) = delete;
    ~WithoutGil() { TakeLockBack(m_pState); }

private:
    PyThreadState* m_pState;
};

/// Calls a function with the interpreter's lock, from a thread that Python may not know.
/// @param[in] pfnCall   called with the lock; throws nothing.
/// @param[in] pContext  handed to it.
/// @return false, with nothing called, when the interpreter is at its end.
bool CallWithGil(void (*pfnCall)(void*), void* pContext);

/// Tells that Python code must not be begun from other threads any more.
void EndCalls();

/// Throws ImportError where this is not the main interpreter: what is shared with the library's threads finds their
/// interpreter by the process, and there is only one end of it.
void CheckInterpreter();

/// A mutex that is free when its bytes are zero, and after a fork in the child, whoever has had it.
class ObjectMutex final {
public:
    ObjectMutex() = default;
    ObjectMutex(const ObjectMutex&) = delete;
    ObjectMutex& operator=(const ObjectMutex&) = delete;

    void lock() { m_mutex.lock(); }
    void unlock() { m_mutex.unlock(); }
    bool try_lock() { return m_mutex.try_lock(); }

    /// Frees it where it was inherited. To be called before it is locked, with the interpreter's lock: two threads of
    /// a child may be the first.
    void Settle();

    /// Called in the child of a fork: mutexes that were made before are free.
    static void NoteFork();

private:
    std::mutex m_mutex;
    unsigned int m_nFork = 0;  // forks that it has heard of; guarded by the interpreter's lock
};

/// Holds an ObjectMutex. Made with the interpreter's lock in hand, which others have while this one waits. A thread
/// that the interpreter's end stops in between holds nothing: others may use the object until the process has gone.
class Locked final {
public:
    explicit Locked(ObjectMutex& mutex);

private:
    std::unique_lock<ObjectMutex> m_lock;
};

/// Runs a function without the interpreter's lock and with a mutex.
template <typename Call>
auto RunLocked(ObjectMutex& mutex, Call call) {
    mutex.Settle();
    const WithoutGil others;
    const std::lock_guard<ObjectMutex> lock(mutex);
    return call();
}

/// Base of everything that a Python class stands for: memory that begins as zeros, since an object whose
/// __init__ was never called has memory all the same. Its members must take zeros for "nothing".
struct Bound {
    static void* operator new(std::size_t nBytes);
    static void operator delete(void* pMemory) noexcept;
};

/// Holds a Python object on any thread, and gives it back with the interpreter's lock.
class SharedObject final {
public:
    SharedObject() = default;
    /// Made with the interpreter's lock.
    explicit SharedObject(py::object object) : m_pObject(object.release().ptr()) {}
    SharedObject(SharedObject&& other) noexcept : m_pObject(std::exchange(other.m_pObject, nullptr)) {}
    SharedObject& operator=(SharedObject&& other) noexcept {
        std::swap(m_pObject, other.m_pObject);
        return *this;
    }
    SharedObject(const SharedObject&) = delete;
    SharedObject& operator=(const SharedObject&) = delete;
    ~SharedObject();

    PyObject* Get() const { return m_pObject; }

private:
    PyObject* m_pObject = nullptr;
};

/// Throws what Python has to say, if a signal has come for this thread.
void CheckSignals();

}  // namespace tnrobot::python

#endif  // PYTHON_INTERPRETER_H_
