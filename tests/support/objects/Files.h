// Closed files, on disk and in memory.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_FILES_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_FILES_H_

#include "TnRobotKernel/memory.h"
#include "support/objects/Held.h"

namespace tntest {

inline Held<ITnRobotFile> MakeFile() {
    ITnRobotFile* pFile = nullptr;
    TnCreateRobotFile(&pFile);
    return Hold(pFile);
}

inline Held<ITnRobotMemFile> MakeMemFile() {
    ITnRobotMemFile* pFile = nullptr;
    TnCreateRobotMemFile(&pFile);
    return Hold(pFile);
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_FILES_H_
