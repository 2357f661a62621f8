// Closed files, on disk and in memory.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_FILES_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_FILES_H_

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"

namespace tntest {

inline TnRobotPtr<ITnRobotFile> MakeFile() {
    ITnRobotFile* pFile = nullptr;
    TnCreateRobotFile(&pFile);
    return tn::Adopt(pFile);
}

inline TnRobotPtr<ITnRobotMemFile> MakeMemFile() {
    ITnRobotMemFile* pFile = nullptr;
    TnCreateRobotMemFile(&pFile);
    return tn::Adopt(pFile);
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_FILES_H_
