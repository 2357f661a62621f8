/// @file
/// Waiting for Python: the classes Event, Signal and AlarmClock.

#ifndef PYTHON_CONCURRENCY_H_
#define PYTHON_CONCURRENCY_H_

#include "Interpreter.h"

namespace tnrobot::python {

/// Adds the classes.
void BindConcurrency(py::module_& module);

}  // namespace tnrobot::python

#endif  // PYTHON_CONCURRENCY_H_
