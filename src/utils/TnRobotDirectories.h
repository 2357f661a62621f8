// The directories that the library remembers.

#ifndef TNROBOTKERNEL_SRC_UTILS_TNROBOTDIRECTORIES_H_
#define TNROBOTKERNEL_SRC_UTILS_TNROBOTDIRECTORIES_H_

#include <string>

// They are there before anything else of the library is made at load, and go after everything at
// unload. Externally synchronised.
extern std::string g_strWorkDir;     ///< current directory at load
extern std::string g_strDebugDir;    ///< empty at load
extern std::string g_strProfileDir;  ///< empty at load

namespace tnrobot {

/// @return the current directory; empty when it takes more than 255 bytes.
std::string CurrentDirectory();

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_UTILS_TNROBOTDIRECTORIES_H_
