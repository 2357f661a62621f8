// Counted objects that tell what a pointer does to them.

#ifndef TNROBOTKERNEL_TESTS_PTR_PTRPROBE_H_
#define TNROBOTKERNEL_TESTS_PTR_PTRPROBE_H_

#include <atomic>
#include <functional>

#include "TnRobotKernel/core.h"
#include "TnRobotKernel/pool.h"

namespace tntest {

/// An interface of an application's own.
class ITnPtrProbe : public ITnUnknown {
public:
    virtual int Number() const = 0;
};

/// A second role that only some probes have.
class ITnPtrRole {
public:
    ITnPtrRole() = default;
    ITnPtrRole(const ITnPtrRole&) = delete;
    ITnPtrRole& operator=(const ITnPtrRole&) = delete;
    virtual ~ITnPtrRole() = default;
};

/// Counts the objects alive and the calls that change the count.
class PtrProbe : public ITnPtrProbe {
public:
    explicit PtrProbe(int nNumber = 0) : m_nNumber(nNumber) { ++s_nLive; }
    ~PtrProbe() override {
        --s_nLive;
        if (m_onEnd) {
            m_onEnd();
        }
    }

    void AddRef() override {
        ++m_nAdded;
        ITnPtrProbe::AddRef();
    }

    int Number() const override { return m_nNumber; }
    int References() const { return m_nRefCount.load(); }
    int Added() const { return m_nAdded.load(); }

    /// Called when the object goes.
    void OnEnd(std::function<void()> function) { m_onEnd = std::move(function); }

    static int LiveCount() { return s_nLive.load(); }

private:
    static inline std::atomic<int> s_nLive{0};

    int m_nNumber;
    std::atomic<int> m_nAdded{0};
    std::function<void()> m_onEnd;
};

/// Its counted base does not lie at its start, so that a cast moves the pointer.
class RolePtrProbe final : public ITnPtrRole, public PtrProbe {
public:
    using PtrProbe::PtrProbe;
};

/// An element of a recycling pool.
class PooledPtrProbe final : public ITnPoolElement {
public:
    void ClearResource() override { ++m_nCleared; }
    int Cleared() const { return m_nCleared; }
    int References() const { return m_nRefCount.load(); }

private:
    int m_nCleared = 0;
};

/// Makes the elements above.
class PooledPtrProbeAlloc final : public ITnElementAlloc {
public:
    bool AllocElement(void* /*pParam*/, ITnPoolElement** ppElement) override {
        *ppElement = new PooledPtrProbe;
        return true;
    }
    void SetElementParam(ITnPoolElement* /*pElement*/, void* /*pParam*/) override {}
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_PTR_PTRPROBE_H_
