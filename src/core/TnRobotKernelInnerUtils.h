// What the library's start-up and shut-down hooks do beyond the directories. The frame declares
// it; the values, which own the pool, define it.

#ifndef TNROBOTKERNEL_SRC_CORE_TNROBOTKERNELINNERUTILS_H_
#define TNROBOTKERNEL_SRC_CORE_TNROBOTKERNELINNERUTILS_H_

/// Creates and destroys the process-wide objects. Externally synchronised.
class TnRobotKernelInnerUtils {
public:
    TnRobotKernelInnerUtils() = delete;

    /// Creates the process-wide value pool; a pool that exists is kept.
    static void Init();

    /// Destroys the process-wide value pool, if there is one.
    static void Destroy();
};

#endif  // TNROBOTKERNEL_SRC_CORE_TNROBOTKERNELINNERUTILS_H_
