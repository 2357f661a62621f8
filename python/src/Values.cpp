// Which type a value of Python is stored as, and what becomes of it on the way.

#include "Values.h"

#include <cmath>
#include <limits>
#include <string>

#include "Errors.h"
#include "TnRobotKernel/make.h"
#include "TnRobotKernel/tn/groups.h"

namespace tnrobot::python {

namespace {

using DataValue = TnRobotPtr<ITnRobotDataValue>;

[[noreturn]] void RaiseWrongType(py::handle object, const std::string& strWanted) {
    Raise(PyExc_TypeError, std::string("a value cannot be made of ") + Py_TYPE(object.ptr())->tp_name + strWanted);
}

// A whole number with its sign apart, so that the whole range of both 64-bit types fits.
struct Whole {
    bool bNegative = false;
    unsigned long long nBits = 0;  // two's complement
};

Whole ReadWhole(py::handle object) {
    const auto number = py::reinterpret_steal<py::object>(CallPython([=] { return PyNumber_Index(object.ptr()); }));
    if (!number) {
        throw py::error_already_set();
    }
    int nOverflow = 0;
    const long long nSigned = PyLong_AsLongLongAndOverflow(number.ptr(), &nOverflow);
    if (nOverflow == 0) {
        if (nSigned == -1 && PyErr_Occurred() != nullptr) {
            throw py::error_already_set();
        }
        return {nSigned < 0, static_cast<unsigned long long>(nSigned)};
    }
    const unsigned long long nUnsigned = nOverflow > 0 ? PyLong_AsUnsignedLongLong(number.ptr()) : 0;
    if (nOverflow < 0 || PyErr_Occurred() != nullptr) {
        PyErr_Clear();
        Raise(PyExc_OverflowError, "a value holds whole numbers from -2**63 to 2**64 - 1");
    }
    return {false, nUnsigned};
}

template <typename T>
bool Fits(const Whole& whole) {
    if (whole.bNegative) {
        return std::is_signed_v<T> &&
               static_cast<long long>(whole.nBits) >= static_cast<long long>(std::numeric_limits<T>::min());
    }
    return whole.nBits <= static_cast<unsigned long long>(std::numeric_limits<T>::max());
}

template <typename T>
T Narrow(py::handle object, const char* lpszType) {
    const Whole whole = ReadWhole(object);
    if (!Fits<T>(whole)) {
        Raise(PyExc_OverflowError, std::string("the number does not fit ValueType.") + lpszType);
    }
    return static_cast<T>(whole.nBits);
}

DataValue MakeWhole(py::handle object) {
    const Whole whole = ReadWhole(object);
    if (Fits<int>(whole)) {
        return tn::MakeIntData(static_cast<int>(whole.nBits));
    }
    if (Fits<long long>(whole)) {
        return tn::MakeLonglongData(static_cast<long long>(whole.nBits));
    }
    return tn::MakeULonglongData(whole.nBits);
}

// Numbers that are no truth values and no texts; PyFloat_AsDouble alone takes anything with __float__.
double ReadReal(py::handle object) {
    if (PyFloat_Check(object.ptr()) == 0 && (PyBool_Check(object.ptr()) != 0 || PyNumber_Check(object.ptr()) == 0)) {
        RaiseWrongType(object, " here: a number is wanted");
    }
    const double dValue = CallPython([=] { return PyFloat_AsDouble(object.ptr()); });
    if (dValue == -1 && PyErr_Occurred() != nullptr) {
        throw py::error_already_set();
    }
    return dValue;
}

DataValue MakeFloat(py::handle object) {
    const double dValue = ReadReal(object);
    // The next double above the largest float still rounds to it; what rounds to infinity does not fit.
    if (std::isfinite(dValue) && std::isinf(static_cast<float>(dValue))) {
        Raise(PyExc_OverflowError, "the number does not fit ValueType.FLOAT");
    }
    return tn::MakeFloatData(static_cast<float>(dValue));
}

DataValue MakeText(py::handle object) {
    if (PyUnicode_Check(object.ptr()) == 0) {
        RaiseWrongType(object, " of type STRING: a str is wanted");
    }
    const std::string strText = TextOf(object);
    if (strText.find('\0') != std::string::npos) {
        Raise(PyExc_ValueError, "a text with a zero inside cannot be stored");
    }
    return tn::MakeStringData(strText.c_str());
}

DataValue MakeChar(py::handle object) {
    std::string strText;
    if (PyUnicode_Check(object.ptr()) != 0) {
        strText = TextOf(object);
    } else if (PyBytes_Check(object.ptr()) != 0) {
        strText.assign(PyBytes_AS_STRING(object.ptr()), static_cast<std::size_t>(PyBytes_GET_SIZE(object.ptr())));
    } else {
        RaiseWrongType(object, " of type CHAR: a str of one character is wanted");
    }
    if (strText.size() != 1) {
        Raise(PyExc_ValueError, "ValueType.CHAR holds one character of one byte");
    }
    return tn::MakeCharData(strText.front());
}

DataValue MakeBlock(py::handle object) {
    Py_buffer view{};
    if (PyObject_GetBuffer(object.ptr(), &view, PyBUF_SIMPLE) != 0) {
        throw py::error_already_set();
    }
    const bool bFits = static_cast<std::size_t>(view.len) <= std::numeric_limits<unsigned int>::max();
    DataValue value;
    if (bFits) {
        value = tn::MakeBlockData(view.buf, static_cast<unsigned int>(view.len));
    }
    PyBuffer_Release(&view);
    if (!bFits) {
        Raise(PyExc_OverflowError, "a block holds up to 2**32 - 1 bytes");
    }
    return value;
}

// The type of numpy.generic, if NumPy is loaded at all: without it there are no scalars of it. Kept once found.
PyObject* NumpyScalarType() {
    static PyObject* s_pType = nullptr;
    PyObject* pModules = PySys_GetObject("modules");  // borrowed
    PyObject* pNumpy = s_pType == nullptr && pModules != nullptr ? PyDict_GetItemString(pModules, "numpy") : nullptr;
    if (pNumpy != nullptr) {
        s_pType = PyObject_GetAttrString(pNumpy, "generic");
        PyErr_Clear();  // NumPy is just being loaded
    }
    return s_pType;
}

bool IsNumpyScalar(py::handle object) {
    PyObject* pType = NumpyScalarType();
    return pType != nullptr && CallPython([=] { return PyObject_IsInstance(object.ptr(), pType); }) == 1;
}

bool IsTruth(py::handle object) {
    return PyBool_Check(object.ptr()) != 0 ||
           (IsNumpyScalar(object) && py::cast<std::string>(Attribute(Attribute(object, "dtype"), "kind")) == "b");
}

DataValue MakeTruth(py::handle object) {
    if (!IsTruth(object)) {
        RaiseWrongType(object, " of type BOOL: a bool is wanted");
    }
    return tn::MakeBoolData(PyObject_IsTrue(object.ptr()) == 1);
}

DataValue MakeOfType(py::handle object, ETnRobotDataValueType eType) {
    switch (eType) {
        case DATA_TYPE_BOOL:
            return MakeTruth(object);
        case DATA_TYPE_SHORT:
            return tn::MakeShortData(Narrow<short>(object, "SHORT"));
        case DATA_TYPE_USHORT:
            return tn::MakeUShortData(Narrow<unsigned short>(object, "USHORT"));
        case DATA_TYPE_INT:
            return tn::MakeIntData(Narrow<int>(object, "INT"));
        case DATA_TYPE_UINT:
            return tn::MakeUintData(Narrow<unsigned int>(object, "UINT"));
        case DATA_TYPE_FLOAT:
            return MakeFloat(object);
        case DATA_TYPE_DOUBLE:
            return tn::MakeDoubleData(ReadReal(object));
        case DATA_TYPE_LONGLONG:
            return tn::MakeLonglongData(Narrow<long long>(object, "LONGLONG"));
        case DATA_TYPE_ULONGLONG:
            return tn::MakeULonglongData(Narrow<unsigned long long>(object, "ULONGLONG"));
        case DATA_TYPE_STRING:
            return MakeText(object);
        case DATA_TYPE_BLOCK:
            return MakeBlock(object);
        case DATA_TYPE_CHAR:
            return MakeChar(object);
        case DATA_TYPE_BYTE:
            return tn::MakeByteData(Narrow<unsigned char>(object, "BYTE"));
        case DATA_TYPE_NONE:
            break;
    }
    Raise(PyExc_TypeError, "a value cannot be made of type NONE");
}

// The type that holds every number of a NumPy type.
ETnRobotDataValueType TypeOfScalar(py::handle object) {
    const py::object dtype = Attribute(object, "dtype");
    const auto chKind = py::cast<std::string>(Attribute(dtype, "kind")).at(0);
    const auto nBytes = py::cast<int>(Attribute(dtype, "itemsize"));
    const bool bSigned = chKind == 'i';
    if (chKind == 'b') {
        return DATA_TYPE_BOOL;
    }
    if (chKind == 'f' && nBytes <= 8) {
        return nBytes <= 4 ? DATA_TYPE_FLOAT : DATA_TYPE_DOUBLE;
    }
    if (bSigned || chKind == 'u') {
        switch (nBytes) {
            case 1:
                return bSigned ? DATA_TYPE_SHORT : DATA_TYPE_BYTE;
            case 2:
                return bSigned ? DATA_TYPE_SHORT : DATA_TYPE_USHORT;
            case 4:
                return bSigned ? DATA_TYPE_INT : DATA_TYPE_UINT;
            default:
                return bSigned ? DATA_TYPE_LONGLONG : DATA_TYPE_ULONGLONG;
        }
    }
    RaiseWrongType(object, "");
}

DataValue MakeFitting(py::handle object) {
    PyObject* pObject = object.ptr();
    if (PyBool_Check(pObject) != 0) {
        return tn::MakeBoolData(pObject == Py_True);
    }
    if (PyLong_Check(pObject) != 0) {
        return MakeWhole(object);
    }
    if (PyFloat_Check(pObject) != 0) {
        return tn::MakeDoubleData(PyFloat_AS_DOUBLE(pObject));
    }
    if (PyUnicode_Check(pObject) != 0) {
        return MakeText(object);
    }
    if (PyBytes_Check(pObject) != 0 || PyByteArray_Check(pObject) != 0 || PyMemoryView_Check(pObject) != 0) {
        return MakeBlock(object);
    }
    if (IsNumpyScalar(object)) {
        return MakeOfType(object, TypeOfScalar(object));
    }
    if (CallPython([=] { return py::isinstance(object, TypeNamed("Value")); })) {
        const py::object held = Attribute(object, "value");
        return MakeOfType(held, static_cast<ETnRobotDataValueType>(NumberOf("ValueType", Attribute(object, "type"))));
    }
    RaiseWrongType(object, "");
}

}  // namespace

DataValue MakeValue(py::handle object, const py::object& type) {
    DataValue value = type.is_none()
                          ? MakeFitting(object)
                          : MakeOfType(object, static_cast<ETnRobotDataValueType>(NumberOf("ValueType", type)));
    if (!value) {
        throw std::bad_alloc();
    }
    return value;
}

py::object FromValue(ITnRobotDataValue& value) {
    int nLength = 0;
    switch (value.GetDataValueType()) {
        case DATA_TYPE_BOOL:
            return py::bool_(value.BoolData(nullptr));
        case DATA_TYPE_SHORT:
            return py::int_(value.ShortData(nullptr));
        case DATA_TYPE_USHORT:
            return py::int_(value.UShortData(nullptr));
        case DATA_TYPE_INT:
            return py::int_(value.IntData(nullptr));
        case DATA_TYPE_UINT:
            return py::int_(value.UintData(nullptr));
        case DATA_TYPE_FLOAT:
            return py::float_(static_cast<double>(value.FloatData(nullptr)));
        case DATA_TYPE_DOUBLE:
            return py::float_(value.DoubleData(nullptr));
        case DATA_TYPE_LONGLONG:
            return py::int_(value.LonglongData(nullptr));
        case DATA_TYPE_ULONGLONG:
            return py::int_(value.ULonglongData(nullptr));
        case DATA_TYPE_STRING: {
            const char* lpszText = value.StringData(nLength, nullptr);
            return lpszText != nullptr ? py::object(TextFrom(lpszText, std::char_traits<char>::length(lpszText)))
                                       : py::object(py::str(""));
        }
        case DATA_TYPE_BLOCK: {
            const tn::detail::BlockView view = tn::detail::ViewOfBlock(value);
            return py::bytes(static_cast<const char*>(view.pData), view.pData != nullptr ? view.nBytes : 0);
        }
        case DATA_TYPE_CHAR: {
            const char chValue = value.CharData(nullptr);
            return TextFrom(&chValue, 1);
        }
        case DATA_TYPE_BYTE:
            return py::int_(value.ByteData(nullptr));
        case DATA_TYPE_NONE:
            break;
    }
    return py::none();
}

std::string NameOf(py::handle name, bool& bValid) {
    if (PyUnicode_Check(name.ptr()) == 0) {
        Raise(PyExc_TypeError, std::string("a name is a str, not ") + Py_TYPE(name.ptr())->tp_name);
    }
    std::string strName = TextOf(name);
    bValid = !strName.empty() && strName.find('\0') == std::string::npos;
    return strName;
}

}  // namespace tnrobot::python
