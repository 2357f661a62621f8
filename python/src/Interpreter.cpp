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

// The end of the interpreter ends a thread by unwinding it from wherever it asks for the lock. What lies in the
// way belongs to the interpreter: the unwinding stops here, and the thread goes with its process.
class SleepWhenUnwound final {
public:
    SleepWhenUnwound() = default;
    SleepWhenUnwound(const SleepWhenUnwound&) = delete;
    SleepWhenUnwound& operator=(const SleepWhenUnwound&) = delete;
    ~SleepWhenUnwound() {
        while (!m_bDone) {
            pause();
        }
    }
    void Done() { m_bDone = true; }

private:
    bool m_bDone = false;
};

}  // namespace

[[gnu::noinline]] void TakeLockBack(PyThreadState* pState) {
    SleepWhenUnwound guard;
    PyEval_RestoreThread(pState);
    guard.Done();
}

[[gnu::noinline]] bool CallWithGil(void (*pfnCall)(void*), void* pContext) {
    if (g_bCallsEnded || Py_IsInitialized() == 0) {
        return false;
    }
    SleepWhenUnwound guard;
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

void ObjectMutex::NoteFork() {
    ++g_nForks;
}

std::mutex& ObjectMutex::_Mutex() {
    const unsigned int nForks = g_nForks.load(std::memory_order_relaxed);
    if (m_nFork != nForks) {
        // A child has one thread at first, and whoever had the mutex is not there.
        new (&m_mutex) std::mutex;
        m_nFork = nForks;
    }
    return m_mutex;
}

Locked::Locked(ObjectMutex& mutex) : m_lock(mutex, std::try_to_lock) {
    if (!m_lock.owns_lock()) {
        const WithoutGil others;
        m_lock.lock();
    }
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
