/// @file
/// What the Python class Group stands for.

#ifndef PYTHON_GROUPS_H_
#define PYTHON_GROUPS_H_

#include "Interpreter.h"
#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/values.h"

namespace tnrobot::python {

/// A group and the mutex that Python threads share it by.
class Group final : public Bound {
public:
    Group();

    /// @return the group. ValueError for an object whose __init__ was never called.
    ITnRobotDataValueGroup& Get() const;

    /// Puts another group in its place.
    void Replace(TnRobotPtr<ITnRobotDataValueGroup> group);

    ObjectMutex& Mutex() const { return m_mutex; }

private:
    mutable ObjectMutex m_mutex;
    TnRobotPtr<ITnRobotDataValueGroup> m_group;  // guarded by m_mutex
};

/// @return an empty group; throws std::bad_alloc where there is none.
TnRobotPtr<ITnRobotDataValueGroup> NewGroup();

/// Adds the class.
void BindGroups(py::module_& module);

}  // namespace tnrobot::python

#endif  // PYTHON_GROUPS_H_
