/// @file
/// Files of several groups: the Python classes GroupFileWriter and GroupFileReader.

#ifndef PYTHON_FILES_H_
#define PYTHON_FILES_H_

#include "Interpreter.h"

namespace tnrobot::python {

/// Adds the classes.
void BindFiles(py::module_& module);

}  // namespace tnrobot::python

#endif  // PYTHON_FILES_H_
