// Locks, and what threads do that outlive the interpreter.

#include "Interpreter.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace tnrobot::python {

namespace {

std::atomic<bool> g_bCallsEnded{false};
std::atomic<unsigned int> g_nForks{0};

// Gives a mutex back when its thread is unwound.
class FreeWhenUnwound final {
public:
    explicit FreeWhenUnwound(ObjectMutex& mutex) : m_pMutex(&mutex) {}
    FreeWhenUnwound(const FreeWhenUnwound&) = delete;
    FreeWhenUnwound& operator=(const FreeWhenUnwound&) = delete;
    ~FreeWhenUnwound() {
        if (m_pMutex != nullptr) {
            m_pMutex->unlock();
        }
    }
    void Done() { m_pMutex = nullptr; }

private:
    ObjectMutex* m_pMutex;
};

}  // namespace

void StopUnwinding::Sleep() {
    for (;;) {
        pause();
    }
}

[[gnu::noinline]] void TakeLockBack(PyThreadState* pState) {
    StopUnwinding guard;
    PyEval_RestoreThread(pState);
    guard.Done();
}

[[gnu::noinline]] bool CallWithGil(void (*pfnCall)(void*), void* pContext) {
    if (g_bCallsEnded || Py_IsInitialized() == 0) {
        return false;
    }
    StopUnwinding guard;
    const PyGILState_STATE eState = PyGILState_Ensure();
    // Whoever has ended the calls did so with the lock.
    const bool bCall = !g_bCallsEnded;
    if (bCall) {
        pfnCall(pContext);
    }
    PyGILState_Release(eState);
    guard.Done();
    return bCall;
}

void EndCalls() {
    g_bCallsEnded = true;
}

void CheckInterpreter() {
    if (PyInterpreterState_Get() != PyInterpreterState_Main()) {
        throw py::import_error("tnrobotkernel works in the main interpreter only");
    }
}

void ObjectMutex::NoteFork() {
    ++g_nForks;
}

void ObjectMutex::Settle() {
    const unsigned int nForks = g_nForks.load(std::memory_order_relaxed);
    if (m_nFork != nForks) {
        // A child has one thread at first, and whoever had the mutex is not there.
        new (&m_mutex) std::mutex;
        m_nFork = nForks;
    }
}

[[gnu::noinline]] Locked::Locked(ObjectMutex& mutex) : m_lock(mutex, std::defer_lock) {
    mutex.Settle();
    if (m_lock.try_lock()) {
        return;
    }
    PyThreadState* pState = PyEval_SaveThread();
    mutex.lock();
    StopUnwinding sleep;
    FreeWhenUnwound free(mutex);
    PyEval_RestoreThread(pState);
    free.Done();
    sleep.Done();
    m_lock = std::unique_lock<ObjectMutex>(mutex, std::adopt_lock);
}

void* Bound::operator new(std::size_t nBytes) {
    void* pMemory = std::calloc(1, nBytes);
    if (pMemory == nullptr) {
        throw std::bad_alloc();
    }
    return pMemory;
}

void Bound::operator delete(void* pMemory) noexcept {
    std::free(pMemory);
}

SharedObject::~SharedObject() {
    if (m_pObject != nullptr) {
        // An object that the interpreter has left behind is nobody's any more.
        CallWithGil([](void* pObject) { Py_DECREF(static_cast<PyObject*>(pObject)); }, m_pObject);
    }
}

void CheckSignals() {
    if (PyErr_CheckSignals() != 0) {
        throw py::error_already_set();
    }
}

}  // namespace tnrobot::python
