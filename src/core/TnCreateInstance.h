// The two-step construction shared by every class that needs more than field initialisation.

#ifndef TNROBOTKERNEL_SRC_CORE_TNCREATEINSTANCE_H_
#define TNROBOTKERNEL_SRC_CORE_TNCREATEINSTANCE_H_

#include <utility>

#include "checked/TnChecked.h"
#include "core/TnRef.h"

namespace tnrobot {

/// Runs the second step on a new object and hands it out.
/// @param[in]  pNew   object with one reference, taken over.
/// @param[out] ppOut  the object, or null when the second step failed.
/// @param[in]  pfnInit  the class's _Init, which returns whether it succeeded.
/// @param[in]  given    what it is called with.
/// @return 1 on success, 0 on failure, which has destroyed the object.
template <typename Class, typename Interface, typename... Args, typename... Given>
int FinishInstance(Class* pNew, Interface** ppOut, bool (Class::*pfnInit)(Args...), Given&&... given) {
    Ref<Class> object = Ref<Class>::Adopt(Watch(pNew));
    if (!(pNew->*pfnInit)(std::forward<Given>(given)...)) {
        *ppOut = nullptr;
        return 0;
    }
    *ppOut = object.Detach();
    return 1;
}

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CORE_TNCREATEINSTANCE_H_
