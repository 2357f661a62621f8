// Which exception a failure is.

#include "Errors.h"

#include <cerrno>
#include <exception>
#include <unordered_map>

#include "TnRobotKernel/tn/error.h"

namespace tnrobot::python {

namespace {

// Finds by the address of a literal what is made once and kept. Used with the interpreter's lock.
template <typename Make>
py::handle Cached(std::unordered_map<const char*, PyObject*>& cache, const char* lpszName, Make make) {
    PyObject*& pKept = cache[lpszName];
    if (pKept == nullptr) {
        pKept = make().release().ptr();
    }
    return pKept;
}

py::handle NameObject(const char* lpszName) {
    static auto* const s_pNames = new std::unordered_map<const char*, PyObject*>;
    return Cached(*s_pNames, lpszName,
                  [=] { return py::reinterpret_steal<py::object>(PyUnicode_InternFromString(lpszName)); });
}

// Calls a class of the package, which runs Python code: nothing that has to be given back lies within the call.
template <typename... Args>
py::object CallType(py::handle type, const Args&... args) {
    const py::tuple all = py::make_tuple(args...);
    PyObject* pResult = CallPython([&] { return PyObject_CallObject(type.ptr(), all.ptr()); });
    if (pResult == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::object>(pResult);
}

[[noreturn]] void RaiseObject(const py::object& exception) {
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr())), exception.ptr());
    throw py::error_already_set();
}

[[noreturn]] void RaiseSystem(const std::error_code& reason, const std::string& strPath) {
    const auto type = py::reinterpret_borrow<py::object>(PyExc_OSError);
    if (strPath.empty()) {
        RaiseObject(CallType(type, reason.value(), reason.message()));
    }
    RaiseObject(CallType(type, reason.value(), reason.message(), TextFrom(strPath.data(), strPath.size())));
}

}  // namespace

void Raise(const std::error_code& reason, const std::string& strPath) {
    if (PyErr_Occurred() != nullptr) {
        throw py::error_already_set();
    }
    if (reason.category() == tn::error_category()) {
        const py::object path = strPath.empty() ? py::none() : py::object(TextFrom(strPath.data(), strPath.size()));
        RaiseObject(CallType(TypeNamed("Error"), reason.value(), reason.message(), path));
    }
    if (reason == std::errc::invalid_argument) {
        Raise(PyExc_ValueError, reason.message());
    }
    if (reason == std::errc::operation_canceled) {
        RaiseObject(CallType(TypeNamed("CancelledError")));
    }
    RaiseSystem(reason, strPath);
}

void Raise(PyObject* pType, const std::string& strText) {
    PyErr_SetString(pType, strText.c_str());
    throw py::error_already_set();
}

std::string PathOf(const py::object& path) {
    PyObject* pBytes = nullptr;
    if (CallPython([&] { return PyUnicode_FSConverter(path.ptr(), &pBytes); }) == 0) {
        throw py::error_already_set();
    }
    const auto bytes = py::reinterpret_steal<py::object>(pBytes);
    std::string strPath(PyBytes_AS_STRING(pBytes), static_cast<std::size_t>(PyBytes_GET_SIZE(pBytes)));
    return strPath;
}

std::string TextOf(py::handle text) {
    Py_ssize_t nBytes = 0;
    if (const char* lpszText = PyUnicode_AsUTF8AndSize(text.ptr(), &nBytes)) {
        return {lpszText, static_cast<std::size_t>(nBytes)};
    }
    PyErr_Clear();  // half of a pair, as what was no UTF-8 comes
    const auto bytes =
        py::reinterpret_steal<py::object>(PyUnicode_AsEncodedString(text.ptr(), "utf-8", "surrogateescape"));
    if (!bytes) {
        throw py::error_already_set();
    }
    return {PyBytes_AS_STRING(bytes.ptr()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.ptr()))};
}

py::str TextFrom(const char* lpszText, std::size_t nBytes) {
    PyObject* pText = PyUnicode_DecodeUTF8(lpszText, static_cast<Py_ssize_t>(nBytes), "surrogateescape");
    if (pText == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::str>(pText);
}

py::object Enumerator(const char* lpszEnum, int nNumber) {
    return CallType(TypeNamed(lpszEnum), nNumber);
}

int NumberOf(const char* lpszEnum, const py::object& enumerator) {
    const py::handle type = TypeNamed(lpszEnum);
    if (PyLong_CheckExact(enumerator.ptr()) == 0 && !CallPython([&] { return py::isinstance(enumerator, type); })) {
        Raise(PyExc_TypeError, std::string("expected a ") + lpszEnum + ", not " + Py_TYPE(enumerator.ptr())->tp_name);
    }
    return static_cast<int>(PyLong_AsLong(CallType(type, enumerator).ptr()));  // all of them are small
}

py::handle TypeNamed(const char* lpszName) {
    static auto* const s_pTypes = new std::unordered_map<const char*, PyObject*>;
    return Cached(*s_pTypes, lpszName, [=] {
        return CallPython([=] { return py::object(py::module_::import("tnrobotkernel._types").attr(lpszName)); });
    });
}

py::object Attribute(py::handle object, const char* lpszName) {
    const py::handle name = NameObject(lpszName);
    PyObject* pValue = CallPython([=] { return PyObject_GetAttr(object.ptr(), name.ptr()); });
    if (pValue == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::object>(pValue);
}

void BindErrors(py::module_& module) {
    py::register_local_exception_translator([](std::exception_ptr pFailure) {
        try {
            std::rethrow_exception(std::move(pFailure));
        } catch (const std::system_error& error) {
            try {
                Raise(error.code());
            } catch (py::error_already_set& raised) {
                raised.restore();
            }
        }
    });
    module.def("_end_calls", &EndCalls, "Let no other thread begin Python code any more.");
    module.def("_check_interpreter", &CheckInterpreter, "ImportError where this is not the main interpreter.");
    module.def("_note_fork", &ObjectMutex::NoteFork, "Called in the child of a fork.");
}

}  // namespace tnrobot::python
