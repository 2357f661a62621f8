// One reference to a counted object, given back at the end of the scope, so that a test that
// fails half-way leaks nothing.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_HELD_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_HELD_H_

#include <memory>

namespace tntest {

struct ReleaseReference {
    template <typename T>
    void operator()(T* p) const {
        p->Release();
    }
};

/// Owns one reference.
template <typename T>
using Held = std::unique_ptr<T, ReleaseReference>;

/// Takes over a reference that the caller has.
template <typename T>
Held<T> Hold(T* p) {
    return Held<T>(p);
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_HELD_H_
