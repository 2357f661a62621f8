/// @file
/// The safe way to hold a counted interface: a pointer that owns one reference and gives it back.
///
/// It stands on the root interface alone and adds nothing to the library: everything here is
/// inline. make.h has the functions that create the library's objects as such pointers.

#ifndef TNROBOTKERNEL_PTR_H_
#define TNROBOTKERNEL_PTR_H_

#include <cstddef>
#include <functional>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "TnRobotKernel/core.h"

/// @addtogroup pointer
/// @{

/// Helpers over the public interface, all of them inline: ptr.h, make.h, the headers in tn/ and opencv.h.
namespace tn {

/// Says that the pointer takes over a reference that the caller has.
struct AdoptReference {
    /// Only made by name: braces alone never mean it.
    explicit AdoptReference() = default;
};

/// Says that the pointer adds a reference of its own; the caller keeps the one it has.
struct RetainReference {
    /// Only made by name: braces alone never mean it.
    explicit RetainReference() = default;
};

/// Marks a raw pointer whose reference is handed over: `TnRobotPtr<T>(p, tn::kAdopt)`.
inline constexpr AdoptReference kAdopt{};

/// Marks a raw pointer that is only borrowed: `TnRobotPtr<T>(p, tn::kRetain)`.
inline constexpr RetainReference kRetain{};

}  // namespace tn

/// Owns one reference to a counted object, or is empty.
///
/// A raw pointer comes in only together with the word that says what happens to its reference
/// (kAdopt, kRetain, attach, copy_from, put), and goes out only by name (get, detach, copy_to):
/// there is no conversion to `T*`, so nothing is released twice or forgotten by accident.
///
/// T is an interface or class derived from ITnUnknown, also a pooled one, and may be const. It may
/// be incomplete where a pointer to it is only declared, not where one is copied or destroyed.
///
/// The pointer never refers to an object while it gives that object's reference back: whatever
/// the object does when it goes, it finds the pointer empty or with its new content.
///
/// Lifetime: a copy adds a reference, a move takes it along, the destruction gives it back.
/// Threads:  externally synchronised, like a plain pointer: different pointers to one object may be used by different
///           threads at once, one pointer may not. AddRef and Release must not throw.
/// @tparam T  interface or class derived from ITnUnknown.
template <typename T>
class TnRobotPtr final {
public:
    /// What the pointer points to.
    using element_type = T;

    /// An empty pointer.
    constexpr TnRobotPtr() noexcept = default;

    /// An empty pointer.
    constexpr TnRobotPtr(std::nullptr_t) noexcept {}

    /// Takes over the caller's reference.
    /// @param[in] p  may be null.
    constexpr TnRobotPtr(T* p, tn::AdoptReference) noexcept : m_p(p) {}

    /// Adds a reference; the caller keeps its own.
    /// @param[in] p  may be null.
    TnRobotPtr(T* p, tn::RetainReference) noexcept : m_p(p) { AddReference(p); }

    /// Adds a reference.
    /// @param[in] other  keeps its own; may be empty.
    TnRobotPtr(const TnRobotPtr& other) noexcept : TnRobotPtr(other.m_p, tn::kRetain) {}

    /// Takes the other's reference and leaves it empty.
    /// @param[in,out] other  may be empty.
    TnRobotPtr(TnRobotPtr&& other) noexcept : m_p(other.detach()) {}

    /// Adds a reference, seen as a base of its type.
    /// @param[in] other  keeps its own; may be empty.
    template <typename U, typename = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    TnRobotPtr(const TnRobotPtr<U>& other) noexcept : TnRobotPtr(other.get(), tn::kRetain) {}

    /// Takes the other's reference, seen as a base of its type, and leaves it empty.
    /// @param[in,out] other  may be empty.
    template <typename U, typename = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    TnRobotPtr(TnRobotPtr<U>&& other) noexcept : m_p(other.detach()) {}

    /// Gives the reference back.
    ~TnRobotPtr() { reset(); }

    /// Adds a reference to the other's object, then gives the one held so far back. A pointer
    /// assigned to itself keeps what it has. Pointers to derived types and nullptr work too.
    /// @param[in] other  keeps its own reference; may be empty.
    /// @return this pointer.
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp): copies before it lets go
    TnRobotPtr& operator=(const TnRobotPtr& other) noexcept {
        TnRobotPtr copy(other);
        copy.swap(*this);
        return *this;
    }

    /// Takes the other's reference, then gives the one held so far back. A pointer moved into
    /// itself keeps what it has. Pointers to derived types work too.
    /// @param[in,out] other  empty afterwards.
    /// @return this pointer.
    TnRobotPtr& operator=(TnRobotPtr&& other) noexcept {
        TnRobotPtr(std::move(other)).swap(*this);
        return *this;
    }

    /// @return the object, borrowed for as long as somebody holds it; null when empty.
    T* get() const noexcept { return m_p; }

    /// The object's operations. The pointer must not be empty.
    /// @return the object, borrowed.
    T* operator->() const noexcept { return m_p; }

    /// The object. The pointer must not be empty.
    /// @return the object, borrowed.
    T& operator*() const noexcept { return *m_p; }

    /// @return whether there is an object.
    explicit operator bool() const noexcept { return m_p != nullptr; }

    /// Gives the reference back; the pointer is empty afterwards.
    void reset() noexcept { GiveBack(detach()); }

    /// Takes over the caller's reference, then gives the one held so far back. Attaching the object
    /// that is held already hands over a second reference to it.
    /// @param[in] p  may be null.
    void attach(T* p) noexcept { GiveBack(std::exchange(m_p, p)); }

    /// Hands the reference to the caller; the pointer is empty afterwards.
    /// @return the object: +1, caller releases; null when the pointer was empty.
    [[nodiscard]] T* detach() noexcept {
        T* p = m_p;
        m_p = nullptr;
        return p;
    }

    /// Room for a function that stores a new reference: `TnCreateRobotFile(file.put())`. What was
    /// held is given back first, so that a function that stores nothing leaves the pointer empty.
    /// @return borrowed until the pointer is used again.
    T** put() noexcept {
        reset();
        return &m_p;
    }

    /// Adds a reference to the caller's object, then gives the one held so far back.
    /// @param[in] p  borrowed; may be null.
    void copy_from(T* p) noexcept { TnRobotPtr(p, tn::kRetain).swap(*this); }

    /// Stores the object with one more reference, for results of the library's style. What was
    /// there is overwritten.
    /// @param[out] pp  +1, caller releases; null when the pointer is empty.
    template <typename U, typename = std::enable_if_t<std::is_convertible_v<T*, U*>>>
    void copy_to(U** pp) const noexcept {
        AddReference(m_p);
        *pp = m_p;
    }

    /// The same object seen as another type, with one more reference.
    /// @tparam U  interface or class, which T need not know.
    /// @return empty when the pointer is, or when the object is not a U.
    template <typename U>
    [[nodiscard]] TnRobotPtr<U> try_as() const& noexcept {
        return TnRobotPtr<U>(Cast<U>(), tn::kRetain);
    }

    /// The same object seen as another type, with the reference of this pointer, which is empty
    /// afterwards.
    /// @tparam U  interface or class, which T need not know.
    /// @return empty, with this pointer left alone, when the object is not a U.
    template <typename U>
    [[nodiscard]] TnRobotPtr<U> try_as() && noexcept {
        U* p = Cast<U>();
        if (p != nullptr) {
            m_p = nullptr;
        }
        return TnRobotPtr<U>(p, tn::kAdopt);
    }

    /// As try_as, for an object that must be a U: throws std::bad_cast when it is not, which leaves
    /// this pointer alone.
    /// @tparam U  interface or class, which T need not know.
    /// @return empty only when this pointer is.
    template <typename U>
    [[nodiscard]] TnRobotPtr<U> as() const& {
        return TnRobotPtr<U>(CheckedCast<U>(), tn::kRetain);
    }

    /// As above, with the reference of this pointer, which is empty afterwards.
    /// @tparam U  interface or class, which T need not know.
    /// @return empty only when this pointer was.
    template <typename U>
    [[nodiscard]] TnRobotPtr<U> as() && {
        U* p = CheckedCast<U>();
        m_p = nullptr;
        return TnRobotPtr<U>(p, tn::kAdopt);
    }

    /// Exchanges the contents; no reference is added or given back.
    /// @param[in,out] other  may be this pointer.
    void swap(TnRobotPtr& other) noexcept {
        T* p = m_p;
        m_p = other.m_p;
        other.m_p = p;
    }

    /// Exchanges the contents; no reference is added or given back.
    /// @param[in,out] a  one pointer.
    /// @param[in,out] b  the other.
    friend void swap(TnRobotPtr& a, TnRobotPtr& b) noexcept { a.swap(b); }

private:
    static void CheckType() {
        static_assert(std::is_base_of_v<ITnUnknown, T>, "TnRobotPtr<T> holds types derived from ITnUnknown");
    }

    // Counting changes nothing that users of a const object could see.
    static void AddReference(T* p) noexcept {
        CheckType();
        if (p != nullptr) {
            const_cast<std::remove_const_t<T>*>(p)->AddRef();
        }
    }

    static void GiveBack(T* p) noexcept {
        CheckType();
        if (p != nullptr) {
            const_cast<std::remove_const_t<T>*>(p)->Release();
        }
    }

    // A cast that the compiler knows to succeed needs no look at the object.
    template <typename U>
    U* Cast() const noexcept {
        if constexpr (std::is_convertible_v<T*, U*>) {
            return m_p;
        } else {
            return dynamic_cast<U*>(m_p);
        }
    }

    template <typename U>
    U* CheckedCast() const {
        U* p = Cast<U>();
        if (p == nullptr && m_p != nullptr) {
            throw std::bad_cast();
        }
        return p;
    }

    T* m_p = nullptr;  // one reference
};

namespace tn {

/// @return a pointer that takes over the caller's reference.
/// @param[in] p  may be null.
template <typename T>
[[nodiscard]] TnRobotPtr<T> Adopt(T* p) noexcept {
    return TnRobotPtr<T>(p, kAdopt);
}

/// @return a pointer with a reference of its own; the caller keeps the one it has, if any.
/// @param[in] p  borrowed; may be null.
template <typename T>
[[nodiscard]] TnRobotPtr<T> Retain(T* p) noexcept {
    return TnRobotPtr<T>(p, kRetain);
}

/// Creates an object of an application's own counted class, whose first reference the pointer
/// owns.
/// @tparam T  the class, derived from ITnUnknown.
/// @param[in] args  passed to the constructor, whose exceptions pass through.
/// @return the new object.
template <typename T, typename... Args>
[[nodiscard]] TnRobotPtr<T> MakeObject(Args&&... args) {
    return TnRobotPtr<T>(new T(std::forward<Args>(args)...), kAdopt);
}

namespace detail {

// Present only for types whose pointers compare, so that unrelated ones have no comparison at all.
template <typename T, typename U>
using IfComparable =
    std::enable_if_t<std::is_convertible_v<T*, const volatile U*> || std::is_convertible_v<U*, const volatile T*>,
                     bool>;

}  // namespace detail
}  // namespace tn

/// @param[in] a  one pointer.
/// @param[in] b  the other.
/// @return whether both point to the same object, or are both empty.
template <typename T, typename U>
tn::detail::IfComparable<T, U> operator==(const TnRobotPtr<T>& a, const TnRobotPtr<U>& b) noexcept {
    return a.get() == b.get();
}

/// @param[in] a  one pointer.
/// @param[in] b  the other.
/// @return whether they point to different objects.
template <typename T, typename U>
tn::detail::IfComparable<T, U> operator!=(const TnRobotPtr<T>& a, const TnRobotPtr<U>& b) noexcept {
    return a.get() != b.get();
}

/// @param[in] a  pointer.
/// @param[in] p  borrowed; may be null.
/// @return whether a points to this object.
template <typename T, typename U>
tn::detail::IfComparable<T, U> operator==(const TnRobotPtr<T>& a, U* p) noexcept {
    return a.get() == p;
}

/// @param[in] p  borrowed; may be null.
/// @param[in] b  pointer.
/// @return whether b points to this object.
template <typename T, typename U>
tn::detail::IfComparable<T, U> operator==(T* p, const TnRobotPtr<U>& b) noexcept {
    return p == b.get();
}

/// @param[in] a  pointer.
/// @param[in] p  borrowed; may be null.
/// @return whether a points to another object.
template <typename T, typename U>
tn::detail::IfComparable<T, U> operator!=(const TnRobotPtr<T>& a, U* p) noexcept {
    return a.get() != p;
}

/// @param[in] p  borrowed; may be null.
/// @param[in] b  pointer.
/// @return whether b points to another object.
template <typename T, typename U>
tn::detail::IfComparable<T, U> operator!=(T* p, const TnRobotPtr<U>& b) noexcept {
    return p != b.get();
}

/// @param[in] a  pointer.
/// @return whether a is empty.
template <typename T>
bool operator==(const TnRobotPtr<T>& a, std::nullptr_t) noexcept {
    return !a;
}

/// @param[in] b  pointer.
/// @return whether b is empty.
template <typename T>
bool operator==(std::nullptr_t, const TnRobotPtr<T>& b) noexcept {
    return !b;
}

/// @param[in] a  pointer.
/// @return whether a has an object.
template <typename T>
bool operator!=(const TnRobotPtr<T>& a, std::nullptr_t) noexcept {
    return static_cast<bool>(a);
}

/// @param[in] b  pointer.
/// @return whether b has an object.
template <typename T>
bool operator!=(std::nullptr_t, const TnRobotPtr<T>& b) noexcept {
    return static_cast<bool>(b);
}

/// Orders pointers of one type by address, for sorted containers.
/// @param[in] a  one pointer.
/// @param[in] b  the other.
/// @return whether a comes before b.
template <typename T>
bool operator<(const TnRobotPtr<T>& a, const TnRobotPtr<T>& b) noexcept {
    return std::less<T*>()(a.get(), b.get());
}

/// As <, turned round.
/// @param[in] a  one pointer.
/// @param[in] b  the other.
/// @return whether a comes after b.
template <typename T>
bool operator>(const TnRobotPtr<T>& a, const TnRobotPtr<T>& b) noexcept {
    return b < a;
}

/// As >, negated.
/// @param[in] a  one pointer.
/// @param[in] b  the other.
/// @return whether a does not come after b.
template <typename T>
bool operator<=(const TnRobotPtr<T>& a, const TnRobotPtr<T>& b) noexcept {
    return !(b < a);
}

/// As <, negated.
/// @param[in] a  one pointer.
/// @param[in] b  the other.
/// @return whether a does not come before b.
template <typename T>
bool operator>=(const TnRobotPtr<T>& a, const TnRobotPtr<T>& b) noexcept {
    return !(a < b);
}

/// Hashes the object's address, for unordered containers.
/// @tparam T  as of TnRobotPtr.
template <typename T>
struct std::hash<TnRobotPtr<T>> {
    /// @param[in] pointer  may be empty.
    /// @return the hash of the raw pointer.
    std::size_t operator()(const TnRobotPtr<T>& pointer) const noexcept { return std::hash<T*>()(pointer.get()); }
};

/// @}

#endif  // TNROBOTKERNEL_PTR_H_
