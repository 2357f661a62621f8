// A logger library: built as libTnRobotLog.so, opened by TnRobotLogUtils::Init.

#include <TnRobotKernel/core.h>

#include <atomic>
#include <cstdio>

namespace {

// [logger]
// Writes lines of its level and above to the standard output. Levels are ours to define: 0 is the
// least important one. WriteLog and IsLevelEnabled are called by any thread, at the same time.
class ConsoleLogger final : public ITnRobotLogger {
public:
    void SetLogParam(int nFirst, int nSecond) override {
        if (nFirst == 1) {  // parameters are ours to define too: 1 is the lowest level
            m_nLowest = nSecond;
        }
    }
    bool IsLevelEnabled(int nLevel) override { return nLevel >= m_nLowest; }
    void WriteLog(int nLevel, const char* lpszText) override { std::printf("[%d] %s\n", nLevel, lpszText); }

private:
    std::atomic<int> m_nLowest{0};
};
// [/logger]

}  // namespace

// [create]
// The one name that the library must export, without C++ decoration. 0 is success.
extern "C" TN_ROBOT_API int TnCreateRobotLogger(ITnRobotLogger** ppLogger) {
    *ppLogger = new ConsoleLogger;
    return 0;
}
// [/create]
