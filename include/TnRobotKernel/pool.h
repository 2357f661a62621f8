/// @file
/// The generic recycling pool: reference-counted elements that return to their pool when the last
/// holder lets them go. Data values and surfaces come from it; applications may pool their own
/// element types.

#ifndef TNROBOTKERNEL_POOL_H_
#define TNROBOTKERNEL_POOL_H_

#include <cstddef>
#include <mutex>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "TnRobotKernel/core.h"
#include "TnRobotKernel/detail/RingQueue.h"

class ITnPoolElement;

namespace tn::detail {

/// Whether a pointer to From can be cast to To without a check: not where From is a virtual base of To,
/// an ambiguous one or none at all.
template <typename From, typename To, typename = void>
struct IsStaticCastable : std::false_type {};
template <typename From, typename To>
struct IsStaticCastable<From, To, std::void_t<decltype(static_cast<To*>(std::declval<From*>()))>> : std::true_type {};

}  // namespace tn::detail

/// @addtogroup pool
/// @{

/// What an element sees of its pool.
///
/// Threads: thread-safe.
class TN_ROBOT_API ITnPoolUnknown : public ITnUnknown {
public:
    ~ITnPoolUnknown() override;

    /// Clears an element and puts it back on the free list; called by ITnPoolElement::Release on the
    /// last holder's thread.
    /// @param[in] pElement  borrowed: the pool holds its own reference already.
    /// @return false for null, otherwise true.
    virtual bool RecoveryResource(ITnPoolElement* pElement) = 0;
};

/// Base of every pooled object.
///
/// Lifetime: the pool keeps one reference for as long as it lives; when the count falls from 2
///           to 1 the element goes back to its pool, when it falls from 1 to 0 it is destroyed.
/// Threads:  AddRef and Release are thread-safe; the rest is externally synchronised.
class TN_ROBOT_API ITnPoolElement : public ITnUnknown {
public:
    ~ITnPoolElement() override;

    /// Gives one reference back; the last holder's one returns the element to its pool. Thread-safe.
    /// @return references left, the pool's own included; 0 when the element was destroyed.
    int Release() override;

    /// Gives back what the element holds; its pool calls it when the element is recycled.
    virtual void ClearResource() = 0;

    /// Stores the pool to return to; pools call it.
    /// @param[in] pParent  borrowed for as long as it is stored; null for none.
    virtual void SetParent(ITnPoolUnknown* pParent);

protected:
    ITnPoolUnknown* m_pParent = nullptr;  ///< borrowed; null on a free list and outside any pool
};

/// How a pool makes and re-initialises elements. Both operations are called with the pool's lock
/// held and must not call back into the same pool.
///
/// Lifetime: each pool over it holds one reference.
/// Threads:  externally synchronised: a pool calls it from one thread at a time. An allocator that
///           several pools share is called by all of them at once.
class TN_ROBOT_API ITnElementAlloc : public ITnUnknown {
public:
    ~ITnElementAlloc() override;

    /// Makes an element.
    /// @param[in]  pParam     what the pool was asked with, borrowed for the call; null leaves
    ///                        defaults.
    /// @param[out] ppElement  +1, which the pool keeps; no parent.
    /// @return whether an element was made.
    virtual bool AllocElement(void* pParam, ITnPoolElement** ppElement) = 0;

    /// Re-initialises a recycled element that has been cleared.
    /// @param[in] pElement  borrowed for the call; one of AllocElement's.
    /// @param[in] pParam    as of AllocElement; null leaves the element cleared.
    virtual void SetElementParam(ITnPoolElement* pElement, void* pParam) = 0;
};

/// A pool of elements of interface T.
///
/// Threads: thread-safe.
/// @tparam T  interface of the elements, derived from ITnPoolElement.
template <typename T>
class ITnPool : public ITnPoolUnknown {
public:
    /// Hands out an element.
    /// @param[in]  nReserved  ignored.
    /// @param[in]  pParam     passed to the allocator unchanged; may be null.
    /// @param[out] ppElement  +1, caller releases.
    /// @return whether *ppElement holds an element.
    virtual bool QueryPoolElement(unsigned int nReserved, void* pParam, T** ppElement) = 0;
};

/// The recycling pool.
///
/// Invariants (under the lock): every element ever made is in m_elements, with one reference of
/// the pool's; an element on the free list has no parent, and no other reference unless somebody
/// gave it back by hand; the free list has room for every element, so that taking one back cannot
/// fail.
///
/// Lifetime: elements outlive their pool; one that somebody still holds when the pool goes is
///           cleared first when it has a single holder, and loses its parent in any case.
/// Threads:  thread-safe; the destruction must not run concurrently with other use of the pool
///           or with the release of its elements.
/// @tparam T  interface of the elements, derived from ITnPoolElement.
template <typename T>
class CTnRobotPool final : public ITnPool<T> {
public:
    /// Makes an empty pool, whose first reference is the creator's.
    /// @param[in] pAlloc  one reference is taken; without an allocator the pool hands out nothing.
    explicit CTnRobotPool(ITnElementAlloc* pAlloc) : m_pAlloc(pAlloc) {
        if (m_pAlloc != nullptr) {
            m_pAlloc->AddRef();
        }
    }

    /// Gives every element and the allocator back; see Lifetime.
    ~CTnRobotPool() override {
        for (ITnPoolElement* pElement : m_elements) {
            LetGo(pElement);
        }
        if (m_pAlloc != nullptr) {
            m_pAlloc->Release();
        }
    }

    /// Sets how many elements the pool may own, 4294967295 at first. Those it owns already stay.
    /// @param[in] nMaxCount  elements, handed out and free ones together.
    void SetMaxCount(unsigned int nMaxCount) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_nMaxCount = nMaxCount;
    }

    /// Hands out the element that has been free longest, or a new one. The first argument is ignored.
    /// @param[in]  pParam     passed to the allocator unchanged; may be null.
    /// @param[out] ppElement  +1, caller releases.
    /// @return whether *ppElement holds an element: false, with both lists as they were, for a null
    ///         ppElement, without an allocator, when the maximum is reached, and when the allocator
    ///         fails (all leave *ppElement untouched), and for an element that is not a T
    ///         (*ppElement is null then). Exceptions of the allocator pass through.
    bool QueryPoolElement(unsigned int /*nReserved*/, void* pParam, T** ppElement) override {
        if (ppElement == nullptr || m_pAlloc == nullptr) {
            return false;
        }
        ITnPoolElement* pStranger = nullptr;
        const bool bOk = HandOut(pParam, ppElement, pStranger);
        if (pStranger != nullptr) {
            pStranger->Release();  // without the lock: what goes may call anything
        }
        return bOk;
    }

    /// Clears an element and puts it back on the free list; called by ITnPoolElement::Release.
    ///
    /// Nobody looks whether the pool made the element. A stranger is lent like the pool's own, but stays
    /// its owner's, who must keep it for as long as the pool may lend it. One that is not a T costs the
    /// request that meets it, which fails and takes it off the list.
    /// @param[in] pElement  borrowed: the pool holds its own reference already.
    /// @return false for null, otherwise true.
    bool RecoveryResource(ITnPoolElement* pElement) override {
        if (pElement == nullptr) {
            return false;
        }
        pElement->ClearResource();
        pElement->SetParent(nullptr);
        std::lock_guard<std::mutex> lock(m_mutex);
        // A stranger's element can come without reserved room; elements of this pool never do.
        m_freeElements.Reserve(m_freeElements.Size() + 1);
        m_freeElements.PushBack(pElement);
        return true;
    }

    /// @return the lock of both lists, for an owner that takes care of it around a fork; borrowed.
    std::mutex& Mutex() { return m_mutex; }

private:
    // pStranger is given back by the caller when it is not null.
    bool HandOut(void* pParam, T** ppElement, ITnPoolElement*& pStranger) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_freeElements.Empty() ? HandOutNew(pParam, ppElement, pStranger) : HandOutFree(pParam, ppElement);
    }

    // Both lists have grown before the allocator is asked, so nothing can fail once the element
    // exists.
    bool HandOutNew(void* pParam, T** ppElement, ITnPoolElement*& pStranger) {
        if (m_elements.size() >= m_nMaxCount) {
            return false;
        }
        m_freeElements.Reserve(m_elements.size() + 1);
        m_elements.reserve(RoomFor(m_elements.size() + 1));
        ITnPoolElement* pElement = nullptr;
        if (!m_pAlloc->AllocElement(pParam, &pElement)) {
            return false;
        }
        *ppElement = dynamic_cast<T*>(pElement);
        if (*ppElement == nullptr) {
            pStranger = pElement;
            return false;
        }
        m_elements.push_back(pElement);
        Lend(pElement);
        return true;
    }

    // The element leaves the free list only after it has been re-initialised: when that throws,
    // it stays where it was, cleared again.
    bool HandOutFree(void* pParam, T** ppElement) {
        ITnPoolElement* pElement = m_freeElements.Front();
        *ppElement = AsElementType(pElement);
        if (*ppElement == nullptr) {
            m_freeElements.PopFront();  // a stranger; the next request shall not meet it
            return false;
        }
        try {
            m_pAlloc->SetElementParam(pElement, pParam);
        } catch (...) {
            *ppElement = nullptr;
            pElement->ClearResource();
            throw;
        }
        m_freeElements.PopFront();
        Lend(pElement);
        return true;
    }

    // The checked cast, which the elements of one pool need not pay for twice: they are almost
    // always of one class, and what was true of one object of a class is true of all.
    T* AsElementType(ITnPoolElement* pElement) {
        if constexpr (tn::detail::IsStaticCastable<ITnPoolElement, T>::value) {
            const std::type_info& type = typeid(*pElement);
            if (m_pKnownType == nullptr || *m_pKnownType != type) {
                if (dynamic_cast<T*>(pElement) == nullptr) {
                    return nullptr;
                }
                m_pKnownType = &type;
            }
            return static_cast<T*>(pElement);
        } else {
            return dynamic_cast<T*>(pElement);
        }
    }

    void Lend(ITnPoolElement* pElement) {
        pElement->SetParent(this);
        pElement->AddRef();
    }

    // Drops the pool's reference. An element with one holder returns here and is cleared under its
    // holder's hands, which is contractual; one with two or more keeps its parent in Release, and a
    // later return would address a pool that is gone. Its holders keep it alive here.
    void LetGo(ITnPoolElement* pElement) {
        constexpr int kTwoHolders = 2;
        if (pElement->Release() >= kTwoHolders) {
            pElement->SetParent(nullptr);
        }
    }

    static std::size_t RoomFor(std::size_t nCount) {
        std::size_t nRoom = 8;
        while (nRoom < nCount) {
            nRoom *= 2;
        }
        return nRoom;
    }

    std::mutex m_mutex;
    std::vector<ITnPoolElement*> m_elements;                // guarded by m_mutex; only grows
    tn::detail::RingQueue<ITnPoolElement*> m_freeElements;  // guarded by m_mutex; front returned first
    unsigned int m_nMaxCount = 4294967295U;                 // guarded by m_mutex
    const std::type_info* m_pKnownType = nullptr;           // guarded by m_mutex; a class that is a T
    ITnElementAlloc* m_pAlloc;                              // one reference
};

/// @}

#endif  // TNROBOTKERNEL_POOL_H_
