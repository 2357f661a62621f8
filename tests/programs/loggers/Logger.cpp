// A logger library that reports every call on the standard output. Compiled once per variant:
//   TNROBOT_LOGGER_OWN_DECLARATIONS  does without the library's headers
//   TNROBOT_LOGGER_RESULT            what the creation function answers
//   TNROBOT_LOGGER_STORES            whether it makes a logger even so
//   TNROBOT_LOGGER_AT_WORK           what the creation function does once its logger is in place:
//                                    any of LogLine, InitAgain, CompareAddress, DestroyAgain
//   TNROBOT_LOGGER_AT_END            what the logger's destructor does
//   TNROBOT_LOGGER_INITS_FIRST       the creation function calls Init before it has stored anything
// With LOGGER_WORKS in the environment every variant makes a logger and answers 0.

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#ifdef TNROBOT_LOGGER_OWN_DECLARATIONS
#include "programs/loggers/OwnDeclarations.h"
#else
#include "TnRobotKernel/core.h"
#endif

#define TNROBOT_LOGGER_EXPORT __attribute__((visibility("default")))

namespace {

// A level that is refused without a report, for those who ask in a loop.
constexpr int kSilentLevel = -2;

void AtEnd() {
#ifdef TNROBOT_LOGGER_AT_END
    TNROBOT_LOGGER_AT_END;
    std::puts("and gone");
    std::fflush(stdout);
#endif
}

class CTnReportingLogger final : public ITnRobotLogger {
public:
    ~CTnReportingLogger() override {
        Report("destroyed\n");
        AtEnd();
    }

    void AddRef() override { Report("AddRef\n"); }
    int Release() override {
        Report("Release\n");
        return 0;
    }
    void SetLogParam(int nFirst, int nSecond) override { Report("SetLogParam %d %d\n", nFirst, nSecond); }
    void WriteLog(int nLevel, const char* lpszText) override { Report("WriteLog %d [%s]\n", nLevel, lpszText); }
    bool IsLevelEnabled(int nLevel) override {
        if (nLevel != kSilentLevel) {
            Report("IsLevelEnabled %d\n", nLevel);
        }
        return nLevel >= 0;
    }

private:
    __attribute__((format(printf, 1, 2))) static void Report(const char* lpszFormat, ...) {
        va_list arguments;
        va_start(arguments, lpszFormat);
        std::vprintf(lpszFormat, arguments);
        va_end(arguments);
        std::fflush(stdout);
    }
};

#ifdef TNROBOT_LOGGER_AT_WORK
// A creation function may use the logging facade as soon as it has stored its logger.
enum : unsigned int { LogLine = 1, InitAgain = 2, CompareAddress = 4, DestroyAgain = 8 };

ITnRobotLogger** g_ppStored = nullptr;  // where the first call was told to store

void UseTheFacade(unsigned int nSteps, ITnRobotLogger** ppLogger) {
    if ((nSteps & LogLine) != 0) {
        TnRobotLogUtils::PrintLog(1, "%s", "from the creation function");
    }
    if ((nSteps & InitAgain) != 0) {
        std::printf("inner Init %d\n", TnRobotLogUtils::Init());
    }
    if ((nSteps & DestroyAgain) != 0) {
        TnRobotLogUtils::Destroy();
        TnRobotLogUtils::PrintLog(1, "%s", "still there");
    }
    if ((nSteps & CompareAddress) != 0) {
        std::printf("same address %d\n", g_ppStored == nullptr || g_ppStored == ppLogger ? 1 : 0);
        g_ppStored = ppLogger;
    }
    std::fflush(stdout);
}
#endif

}  // namespace

extern "C" TNROBOT_LOGGER_EXPORT int TnCreateRobotLogger(ITnRobotLogger** ppLogger) {
#ifdef TNROBOT_LOGGER_INITS_FIRST
    const int nInner = TnRobotLogUtils::Init();
    if (*ppLogger != nullptr) {
        return nInner;
    }
#endif
    const bool bWorks = std::getenv("LOGGER_WORKS") != nullptr;
    if (bWorks || TNROBOT_LOGGER_STORES) {
        *ppLogger = new CTnReportingLogger;
    }
#ifdef TNROBOT_LOGGER_AT_WORK
    UseTheFacade(TNROBOT_LOGGER_AT_WORK, ppLogger);
#endif
    return bWorks ? 0 : TNROBOT_LOGGER_RESULT;
}
