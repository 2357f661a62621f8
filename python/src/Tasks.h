/// @file
/// Python functions on the tasks of a pool: what is below the class TaskPool.

#ifndef PYTHON_TASKS_H_
#define PYTHON_TASKS_H_

#include "Interpreter.h"

namespace tnrobot::python {

/// Adds the class.
void BindTasks(py::module_& module);

}  // namespace tnrobot::python

#endif  // PYTHON_TASKS_H_
