// The directory strings that live as long as the library.

#ifndef TNROBOTKERNEL_SRC_CORE_TNROBOTDIRECTORIES_H_
#define TNROBOTKERNEL_SRC_CORE_TNROBOTDIRECTORIES_H_

#include <string>

extern std::string g_strWorkDir;     ///< current directory at load; set by TnRobotUtils::Init
extern std::string g_strDebugDir;    ///< empty at load
extern std::string g_strProfileDir;  ///< empty at load

#endif  // TNROBOTKERNEL_SRC_CORE_TNROBOTDIRECTORIES_H_
