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
#include <mutex>
#include <utility>

namespace tnrobot::python {

namespace py = pybind11;

/// Takes the interpreter's lock back. When the interpreter is at its end it ends the threads that ask for its
/// lock; unwinding ours would give Python objects back without that lock, so such a thread sleeps instead, until
/// the process has gone.
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

/// A mutex that is free when its bytes are zero, and after a fork in the child, whoever has had it.
class ObjectMutex final {
public:
    ObjectMutex() = default;
    ObjectMutex(const ObjectMutex&) = delete;
    ObjectMutex& operator=(const ObjectMutex&) = delete;

    void lock() { _Mutex().lock(); }
    void unlock() { m_mutex.unlock(); }
    bool try_lock() { return _Mutex().try_lock(); }

    /// Called in the child of a fork: mutexes that were made before are free.
    static void NoteFork();

private:
    std::mutex& _Mutex();

    std::mutex m_mutex;
    unsigned int m_nFork = 0;  // forks that it has heard of; changed in a child by its first user
};

/// Holds an ObjectMutex. Made with the interpreter's lock in hand, which others have while this one waits.
class Locked final {
public:
    explicit Locked(ObjectMutex& mutex);

private:
    std::unique_lock<ObjectMutex> m_lock;
};

/// Runs a function without the interpreter's lock and with a mutex.
template <typename Call>
auto RunLocked(ObjectMutex& mutex, Call call) {
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
