/// @file
/// What archives of object graphs have in common. Used by tn/objects.h.

#ifndef TNROBOTKERNEL_TN_DETAIL_OBJECTTABLES_H_
#define TNROBOTKERNEL_TN_DETAIL_OBJECTTABLES_H_

#include <cstddef>
#include <vector>

#include "TnRobotKernel/core.h"
#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/tn/error.h"

namespace tn::detail {

inline constexpr std::size_t kMostObjects = 65535;  // numbers have 16 bits, and 65535 stands for none
inline constexpr int kDeepestObject = 4096;         // deeper nesting would end in an exhausted stack

// How deep objects are within each other.
class ObjectDepth {
public:
    // Goes one object deeper for as long as it lives.
    class Step {
    public:
        explicit Step(ObjectDepth& depth) : m_depth(depth) { ++m_depth.m_nDepth; }
        Step(const Step&) = delete;
        Step& operator=(const Step&) = delete;
        ~Step() { --m_depth.m_nDepth; }

    private:
        ObjectDepth& m_depth;
    };

    // Only contents count: a null or a reference is the same at every depth.
    bool AllowsContents() const { return m_nDepth <= kDeepestObject; }
    bool IsOutermost() const { return m_nDepth == 1; }

private:
    int m_nDepth = 0;
};

// Keeps counted objects alive until it goes, so that no address is used twice and nothing that a later
// record refers to is gone.
class HeldObjects {
public:
    // Takes a reference, borrowed from the caller. @return whether the object is counted.
    bool Hold(CTnRobotObject& object) {
        auto* pCounted = dynamic_cast<ITnUnknown*>(&object);
        if (pCounted == nullptr) {
            return false;
        }
        m_objects.emplace_back(pCounted, kRetain);
        return true;
    }

private:
    std::vector<TnRobotPtr<ITnUnknown>> m_objects;
};

// Tells why the last object was not read. ReadObject asks the archive that it is given for it, so this
// must not change: archive and caller may have been built at different times.
class ReadingReason {
public:
    ReadingReason(const ReadingReason&) = delete;
    ReadingReason& operator=(const ReadingReason&) = delete;

    // No reason when there was an object, or a null.
    virtual std::error_code LastReason() const noexcept = 0;

protected:
    ReadingReason() = default;
    ~ReadingReason() = default;
};

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_OBJECTTABLES_H_
