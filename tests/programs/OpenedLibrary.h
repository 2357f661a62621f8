// For programs that open the library at run time without being linked with it: how to reach it,
// and what the process holds meanwhile.

#ifndef TNROBOTKERNEL_TESTS_PROGRAMS_OPENEDLIBRARY_H_
#define TNROBOTKERNEL_TESTS_PROGRAMS_OPENEDLIBRARY_H_

#include <dirent.h>
#include <dlfcn.h>

#include <fstream>
#include <string>

#include "TnRobotKernel/values.h"

namespace tntest {

template <typename Function>
Function Find(void* pLibrary, const char* lpszSymbol) {
    return reinterpret_cast<Function>(dlsym(pLibrary, lpszSymbol));
}

/// @return a value of the opened library's, or null.
inline ITnRobotDataValue* CreateInt(void* pLibrary, int nValue) {
    using Create = int (*)(int, ITnRobotDataValue**);
    const auto create = Find<Create>(pLibrary, "_Z20TnCreateRobotIntDataiPP17ITnRobotDataValue");
    ITnRobotDataValue* pValue = nullptr;
    return create != nullptr && create(nValue, &pValue) == 0 ? pValue : nullptr;
}

/// Lines of the process's memory map that hold the text; an empty text counts all of them.
inline int CountMappings(const std::string& text) {
    std::ifstream maps("/proc/self/maps");
    int nLines = 0;
    for (std::string line; std::getline(maps, line);) {
        nLines += line.find(text) != std::string::npos ? 1 : 0;
    }
    return nLines;
}

inline bool IsMapped(const std::string& name) {
    return CountMappings(name) > 0;
}

/// Entries of a directory such as /proc/self/task.
inline int CountEntries(const char* lpszDirectory) {
    DIR* pDirectory = opendir(lpszDirectory);
    int nEntries = 0;
    while (pDirectory != nullptr && readdir(pDirectory) != nullptr) {
        ++nEntries;
    }
    if (pDirectory != nullptr) {
        closedir(pDirectory);
    }
    return nEntries;
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_PROGRAMS_OPENEDLIBRARY_H_
