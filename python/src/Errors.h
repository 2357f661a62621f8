/// @file
/// Failures of the library as exceptions of Python, and paths of Python as those of the library.

#ifndef PYTHON_ERRORS_H_
#define PYTHON_ERRORS_H_

#include <string>
#include <system_error>

#include "Interpreter.h"

namespace tnrobot::python {

/// Throws the Python exception for a reason: tnrobotkernel.Error for tn::errc, ValueError for arguments that
/// mean nothing, the fitting OSError for what the system refused. An exception that is waiting to be seen, such
/// as KeyboardInterrupt, goes first.
/// @param[in] reason   a failure.
/// @param[in] strPath  the file it is about; empty for none.
[[noreturn]] void Raise(const std::error_code& reason, const std::string& strPath = {});

/// Raises where there is a reason.
inline void Check(const std::error_code& reason, const std::string& strPath = {}) {
    if (reason) {
        Raise(reason, strPath);
    }
}

/// Throws an exception of Python's own.
[[noreturn]] void Raise(PyObject* pType, const std::string& strText);

/// @return the path as the system has it.
/// @param[in] path  str, bytes or os.PathLike; anything else is a TypeError, one with a zero a ValueError.
std::string PathOf(const py::object& path);

/// @return a text as UTF-8; what was no UTF-8 when Python read it comes out as it was.
/// @param[in] text  a str.
std::string TextOf(py::handle text);

/// @return bytes as a str, the other way round.
py::str TextFrom(const char* lpszText, std::size_t nBytes);

/// Takes Python's own words for enumerators: those are members of enumerations of the package.
/// @param[in] lpszEnum  its name in tnrobotkernel._types.
/// @param[in] nNumber   its number.
py::object Enumerator(const char* lpszEnum, int nNumber);

/// @return the number of an enumerator, which may be given as such.
/// @param[in] lpszEnum  its name in tnrobotkernel._types; numbers that it has not are a ValueError.
int NumberOf(const char* lpszEnum, const py::object& enumerator);

/// @return a class of tnrobotkernel._types, which stays for the life of the process.
/// @param[in] lpszName  a literal.
py::handle TypeNamed(const char* lpszName);

/// Reads an attribute. Names are made once: Python's caches would keep a new one of each call for a while.
/// @param[in] lpszName  a literal.
py::object Attribute(py::handle object, const char* lpszName);

/// Adds what translates exceptions.
void BindErrors(py::module_& module);

}  // namespace tnrobot::python

#endif  // PYTHON_ERRORS_H_
