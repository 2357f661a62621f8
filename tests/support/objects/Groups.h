// Groups of values, empty and full.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_GROUPS_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_GROUPS_H_

#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/values.h"
#include "support/objects/Values.h"

namespace tntest {

using Group = TnRobotPtr<ITnRobotDataValueGroup>;

/// @return null without the process-wide value pool.
inline Group NewGroup() {
    ITnRobotDataValueGroup* pGroup = nullptr;
    return tn::Adopt(TnCreateRobotValueDataGroup(&pGroup) == 1 ? pGroup : nullptr);
}

/// A group with a value of every type, and a name and a text that no small buffer holds.
inline Group FullGroup() {
    Group group = NewGroup();
    for (const ValueSample& sample : ValueSamples()) {
        group->SetValue(sample.lpszName, sample.create().get());
    }
    group->SetValue("a longer name with a longer text", "a text that does not fit a small buffer");
    return group;
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_GROUPS_H_
