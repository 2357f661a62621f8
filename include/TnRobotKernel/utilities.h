// Static helper classes for applications.

#ifndef TNROBOTKERNEL_UTILITIES_H_
#define TNROBOTKERNEL_UTILITIES_H_

#include "TnRobotKernel/core.h"

/// The library's start-up and shut-down, and the directory they record.
class TN_ROBOT_API TnRobotUtils {
public:
    TnRobotUtils() = delete;

    /// Records the current directory as the work directory and creates the process-wide value
    /// pool when there is none. Runs by itself when the library is loaded. Externally
    /// synchronised.
    static void Init();

    /// Destroys the process-wide value pool; values still held survive, cleared. Runs by itself
    /// when the library is unloaded. Externally synchronised with every use of values.
    static void Destroy();

    /// @return the work directory, empty when it was longer than 255 bytes; borrowed until the
    ///         next Init. Externally synchronised with Init.
    static const char* GetWorkDir();
};

#endif  // TNROBOTKERNEL_UTILITIES_H_
