#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "TnRobotKernel/core.h"

namespace {

constexpr char kLoggerLibrary[] = "libTnRobotLog.so";
constexpr char kLoggerCreator[] = "TnCreateRobotLogger";
constexpr int kLineSize = 1024;

// Init and Destroy run on one thread; the logger and the count are read by every thread that logs.
// Release and acquire suffice for the pointer: all that it publishes is the logger as it was made.
void* s_hLogModel = nullptr;
std::atomic<int> s_nLogTimes{0};
std::atomic<ITnRobotLogger*> s_pLogger{nullptr};

ITnRobotLogger* Logger() {
    return s_pLogger.load(std::memory_order_acquire);
}

// A handle that an earlier, half successful Init left open is given back once the new one exists.
bool OpenLoggerLibrary() {
    void* hLibrary = dlopen(kLoggerLibrary, RTLD_LAZY);
    if (hLibrary == nullptr) {
        return false;
    }
    if (s_hLogModel != nullptr) {
        dlclose(s_hLogModel);
    }
    s_hLogModel = hLibrary;
    return true;
}

void CloseLoggerLibrary() {
    if (s_hLogModel != nullptr) {
        dlclose(s_hLogModel);
        s_hLogModel = nullptr;
    }
}

// An over-long line ends the process whatever the build's own fortification would do.
void FormatLine(char* lpszLine, const char* lpszFormat, va_list args) {
    if (std::vsnprintf(lpszLine, kLineSize, lpszFormat, args) >= kLineSize) {
        std::fputs("*** log line longer than 1023 characters: terminated\n", stderr);
        std::abort();
    }
}

}  // namespace

ITnRobotLogger::~ITnRobotLogger() = default;

int TnRobotLogUtils::Init() {
    if (Logger() != nullptr) {
        s_nLogTimes.fetch_add(1);
        return 0;
    }
    if (!OpenLoggerLibrary()) {
        return -1;
    }
    auto* pfnCreate = reinterpret_cast<TnCreateRobotLoggerFunction>(dlsym(s_hLogModel, kLoggerCreator));
    if (pfnCreate == nullptr) {
        return -1;  // the handle stays open until a later Init replaces it
    }
    ITnRobotLogger* pLogger = nullptr;
    const int nResult = pfnCreate(&pLogger);
    // A logger that a failing creator stored stays in use: the next Init counts it. Do not "fix".
    s_pLogger.store(pLogger, std::memory_order_release);
    if (nResult == 0) {
        s_nLogTimes.fetch_add(1);
    }
    return nResult;
}

void TnRobotLogUtils::SetLogParam(int nFirst, int nSecond) {
    if (ITnRobotLogger* pLogger = Logger()) {
        pLogger->SetLogParam(nFirst, nSecond);
    }
}

void TnRobotLogUtils::PrintLog(int nLevel, const char* lpszFormat, ...) {
    ITnRobotLogger* pLogger = Logger();
    if (pLogger == nullptr || !pLogger->IsLevelEnabled(nLevel)) {
        return;
    }
    char szLine[kLineSize] = {};
    va_list args;
    va_start(args, lpszFormat);
    FormatLine(szLine, lpszFormat, args);
    va_end(args);
    pLogger->WriteLog(nLevel, szLine);
}

void TnRobotLogUtils::Destroy() {
    const int nTimes = s_nLogTimes.load();
    if (nTimes == 0) {
        return;
    }
    if (nTimes == 1) {
        delete s_pLogger.exchange(nullptr, std::memory_order_acq_rel);
        CloseLoggerLibrary();
    }
    s_nLogTimes.fetch_sub(1);
}
