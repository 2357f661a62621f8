// The two-step construction shared by every class that needs more than field initialisation.

#ifndef TNROBOTKERNEL_SRC_CORE_TNCREATEINSTANCE_H_
#define TNROBOTKERNEL_SRC_CORE_TNCREATEINSTANCE_H_

#include "TnRobotKernel/ptr.h"
#include "core/TnChecked.h"

namespace tnrobot {

/// Runs the second step on a new object and hands it out.
/// @param[in]  pNew   object with one reference, taken over.
/// @param[in]  init   called with the object, returns whether it succeeded.
/// @param[out] ppOut  the object, or null when init failed.
/// @return 1 on success, 0 on failure, which has destroyed the object.
template <typename Class, typename Interface, typename Init>
int FinishInstance(Class* pNew, Interface** ppOut, Init init) {
    TnRobotPtr<Class> object = tn::Adopt(Watch(pNew));
    if (!init(*pNew)) {
        *ppOut = nullptr;
        return 0;
    }
    *ppOut = object.detach();
    return 1;
}

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CORE_TNCREATEINSTANCE_H_
