// The way to the logger library: opened at the first Init, closed with the last Destroy, and until then
// one pointer that every thread reads when it logs.

#include <dlfcn.h>
#include <pthread.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "TnRobotKernel/core.h"

namespace {

constexpr char kLoggerLibrary[] = "libTnRobotLog.so";
constexpr char kLoggerCreator[] = "TnCreateRobotLogger";
constexpr int kLineSize = 1024;

// Init and Destroy run on one thread; the logger and the count are read by every thread that logs.
// Release and acquire suffice for the pointer: all that it publishes is the logger as it was made.
void* s_hLogModel = nullptr;
std::atomic<int> s_nLogTimes{0};

// The creation function stores its logger right here, with an ordinary store that orders nothing, and
// may go on to log. So it is a plain pointer, which its own thread alone reads until the creation
// function is back; other threads wait for the flag, behind which the whole logger is visible.
ITnRobotLogger* s_pLogger = nullptr;
std::atomic<bool> s_bPublished{false};
std::atomic<pthread_t> s_creator{};  // the thread that is in the creation function

static_assert(std::atomic<ITnRobotLogger*>::is_always_lock_free, "every thread reads the logger");

// The creation function may call Init again, which calls it again while nothing is stored.
constexpr int kMostNestedCreations = 16;
int s_nCreations = 0;

ITnRobotLogger* StoredLogger() {
    return __atomic_load_n(&s_pLogger, __ATOMIC_RELAXED);
}

ITnRobotLogger* Logger() {
    const bool bVisible =
        s_bPublished.load(std::memory_order_acquire) || pthread_equal(s_creator.load(), pthread_self()) != 0;
    return bVisible ? StoredLogger() : nullptr;
}

// @return whether there is a logger.
bool PublishLogger() {
    const bool bStored = StoredLogger() != nullptr;
    if (bStored) {
        s_bPublished.store(true, std::memory_order_release);
    }
    return bStored;
}

// Says for as long as it lives that this thread is in the creation function.
class InCreation {
public:
    InCreation() : m_outer(s_creator.exchange(pthread_self())) { ++s_nCreations; }
    InCreation(const InCreation&) = delete;
    InCreation& operator=(const InCreation&) = delete;
    ~InCreation() {
        --s_nCreations;
        s_creator.store(m_outer);
    }

private:
    pthread_t m_outer;
};

int CallCreator(TnCreateRobotLoggerFunction pfnCreate) {
    const InCreation creation;
    return pfnCreate(&s_pLogger);
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

// All is forgotten before the logger's destructor runs, which may call Init and Destroy itself.
void CloseLogger() {
    void* const hLibrary = std::exchange(s_hLogModel, nullptr);
    s_bPublished.store(false);
    delete __atomic_exchange_n(&s_pLogger, nullptr, __ATOMIC_ACQ_REL);
    if (hLibrary != nullptr) {
        dlclose(hLibrary);
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
    if (PublishLogger()) {
        s_nLogTimes.fetch_add(1);
        return 0;
    }
    if (s_nCreations == kMostNestedCreations || !OpenLoggerLibrary()) {
        return -1;
    }
    auto* pfnCreate = reinterpret_cast<TnCreateRobotLoggerFunction>(dlsym(s_hLogModel, kLoggerCreator));
    if (pfnCreate == nullptr) {
        return -1;  // the handle stays open until a later Init replaces it
    }
    const int nResult = CallCreator(pfnCreate);
    // A logger that a failing creator stored stays in use: the next Init counts it. Do not "fix".
    PublishLogger();
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
    s_nLogTimes.fetch_sub(1);
    // The creation function may end an Init of its own: the one that has called it is still to count.
    if (nTimes == 1 && s_nCreations == 0) {
        CloseLogger();
    }
}
