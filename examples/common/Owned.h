// Owning pointers to the library's counted objects.

#ifndef EXAMPLES_COMMON_OWNED_H_
#define EXAMPLES_COMMON_OWNED_H_

#include <TnRobotKernel/TnRobotKernel.h>

#include <memory>

/// Releases one reference; makes std::unique_ptr own counted objects.
struct ReleaseReference {
    void operator()(ITnUnknown* pObject) const { pObject->Release(); }
};

template <typename T>
using Owned = std::unique_ptr<T, ReleaseReference>;

/// Calls a creation function that takes nothing else. @return the new object, null on failure.
template <typename T>
Owned<T> Create(int (*pfnCreate)(T**)) {
    T* pObject = nullptr;
    pfnCreate(&pObject);
    return Owned<T>(pObject);
}

#endif  // EXAMPLES_COMMON_OWNED_H_
