// The extension module tnrobotkernel._core: classes and functions that the package's Python code completes.

#include "Concurrency.h"
#include "Errors.h"
#include "Files.h"
#include "Groups.h"
#include "Interpreter.h"
#include "Pools.h"
#include "Surfaces.h"
#include "Tasks.h"

PYBIND11_MODULE(_core, module) {
    tnrobot::python::CheckInterpreter();
    module.doc() = "What is below the package tnrobotkernel.";
    tnrobot::python::BindErrors(module);
    tnrobot::python::BindGroups(module);
    tnrobot::python::BindFiles(module);
    tnrobot::python::BindPools(module);
    tnrobot::python::BindSurfaces(module);
    tnrobot::python::BindPictures(module);
    tnrobot::python::BindConcurrency(module);
    tnrobot::python::BindTasks(module);
}
