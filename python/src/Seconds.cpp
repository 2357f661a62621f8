// Time limits, and signals during waits.

#include "Seconds.h"

#include <cmath>

#include "Errors.h"

namespace tnrobot::python {

std::chrono::milliseconds LimitOf(const py::object& seconds) {
    if (seconds.is_none()) {
        return tn::kNoLimit;
    }
    if (PyBool_Check(seconds.ptr()) != 0 || PyNumber_Check(seconds.ptr()) == 0) {
        Raise(PyExc_TypeError,
              std::string("a time limit is a number of seconds or None, not ") + Py_TYPE(seconds.ptr())->tp_name);
    }
    const double dSeconds = CallPython([&] { return PyFloat_AsDouble(seconds.ptr()); });
    if (dSeconds == -1 && PyErr_Occurred() != nullptr) {
        throw py::error_already_set();
    }
    if (std::isnan(dSeconds)) {
        Raise(PyExc_ValueError, "a time limit is a number");
    }
    constexpr double kMilli = 1000;
    constexpr double kLongest = 1e15;  // milliseconds; beyond lies no limit
    const double dMilliseconds = std::ceil(dSeconds * kMilli);
    if (dMilliseconds >= kLongest) {
        return tn::kNoLimit;
    }
    return std::chrono::milliseconds(dMilliseconds > 0 ? static_cast<long long>(dMilliseconds) : 0);
}

bool SignalsAllowWaiting() {
    bool bAllowed = true;
    // Once an exception waits to be seen no handler may run any more: the library may ask again before it is.
    CallWithGil(
        [](void* pAllowed) {
            *static_cast<bool*>(pAllowed) = PyErr_Occurred() == nullptr && PyErr_CheckSignals() == 0;
        },
        &bAllowed);
    return bAllowed;
}

}  // namespace tnrobot::python
