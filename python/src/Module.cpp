// The extension module tnrobotkernel._core: classes and functions that the package's Python code completes.

#include "Concurrency.h"
#include "Errors.h"
#include "Files.h"
#include "Groups.h"
#include "Interpreter.h"
#include "Pools.h"
#include "Surfaces.h"
#include "Tasks.h"

namespace tnrobot::python {

namespace {

newfunc g_pfnNew = nullptr;

// TypeError for a class that has none of pybind11's among its bases but the one of all.
PyObject* NewInstance(PyTypeObject* pType, PyObject* pArguments, PyObject* pNames) {
    if (py::detail::all_type_info(pType).empty()) {
        PyErr_Format(PyExc_TypeError, "cannot create '%s' instances", pType->tp_name);
        return nullptr;
    }
    return g_pfnNew(pType, pArguments, pNames);
}

// pybind11 ends the process where somebody makes an object of the base of all its classes, as pickling one with an
// old protocol does. To be called before there are classes, which inherit it.
void RefuseBareObjects() {
    auto* pBase = reinterpret_cast<PyTypeObject*>(py::detail::get_internals().instance_base);
    if (pBase->tp_new != &NewInstance) {
        g_pfnNew = pBase->tp_new;
        pBase->tp_new = &NewInstance;
    }
}

}  // namespace

}  // namespace tnrobot::python

PYBIND11_MODULE(_core, module) {
    tnrobot::python::CheckInterpreter();
    tnrobot::python::RefuseBareObjects();
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
