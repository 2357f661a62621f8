/// @file
/// Values of Python as values of the library, and the other way round.

#ifndef PYTHON_VALUES_H_
#define PYTHON_VALUES_H_

#include "Interpreter.h"
#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/values.h"

namespace tnrobot::python {

/// Makes a value.
/// @param[in] object  bool, int, float, str, bytes and their kind, a NumPy scalar, or a tnrobotkernel.Value.
/// @param[in] type    ValueType, or None for the one that fits the object.
/// @return the value. TypeError for an object that is none of these or not of that type, OverflowError for a
///         number that the type does not hold, ValueError for a text with a zero.
TnRobotPtr<ITnRobotDataValue> MakeValue(py::handle object, const py::object& type);

/// @return what a value holds: bool, int, float, str, bytes or None. Makes no container, so it may be called with
///         an ObjectMutex in hand.
py::object FromValue(ITnRobotDataValue& value);

/// A name of a group as the library takes it.
/// @param[in] name  a str; anything else is a TypeError.
/// @param[out] bValid  whether it can be a name: it is not empty and has no zero.
std::string NameOf(py::handle name, bool& bValid);

}  // namespace tnrobot::python

#endif  // PYTHON_VALUES_H_
