// The one smart pointer over reference-counted interfaces.

#ifndef TNROBOTKERNEL_SRC_CORE_TNREF_H_
#define TNROBOTKERNEL_SRC_CORE_TNREF_H_

#include <utility>

namespace tnrobot {

/// Holds one reference to a counted object. Adopt takes over a reference that exists, Share adds
/// one, Detach hands the reference on.
template <typename T>
class Ref {
public:
    Ref() = default;
    Ref(const Ref& other) : m_p(other.m_p) {
        if (m_p != nullptr) {
            m_p->AddRef();
        }
    }
    Ref(Ref&& other) noexcept : m_p(std::exchange(other.m_p, nullptr)) {}
    Ref& operator=(Ref other) noexcept {
        std::swap(m_p, other.m_p);
        return *this;
    }
    ~Ref() { Reset(); }

    static Ref Adopt(T* p) {
        Ref ref;
        ref.m_p = p;
        return ref;
    }

    static Ref Share(T* p) {
        if (p != nullptr) {
            p->AddRef();
        }
        return Adopt(p);
    }

    T* Detach() { return std::exchange(m_p, nullptr); }

    // The pointer is forgotten first, so that nothing finds it while the object goes.
    void Reset() {
        if (T* p = Detach()) {
            p->Release();
        }
    }

    T* Get() const { return m_p; }
    T* operator->() const { return m_p; }
    explicit operator bool() const { return m_p != nullptr; }

    /// For creation functions that store a new reference; drops the one held before.
    T** Receive() {
        Reset();
        return &m_p;
    }

private:
    T* m_p = nullptr;
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CORE_TNREF_H_
