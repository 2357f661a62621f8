#include "support/Watchdog.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tntest {

namespace {

char g_szMessage[256];

// Only what a signal handler may call.
void OnAlarm(int /*nSignal*/) {
    if (write(STDERR_FILENO, g_szMessage, std::strlen(g_szMessage)) < 0) {
        _exit(2);
    }
    abort();
}

void NameTheTest() {
    const testing::TestInfo* pTest = testing::UnitTest::GetInstance()->current_test_info();
    std::snprintf(g_szMessage, sizeof(g_szMessage), "watchdog: %s.%s hangs\n",
                  pTest != nullptr ? pTest->test_suite_name() : "", pTest != nullptr ? pTest->name() : "");
}

}  // namespace

Watchdog::Watchdog(unsigned int nSeconds) {
    NameTheTest();
    struct sigaction action = {};
    action.sa_handler = OnAlarm;
    sigaction(SIGALRM, &action, nullptr);
    alarm(nSeconds);
}

Watchdog::~Watchdog() {
    alarm(0);
}

void Watchdog::Extend(unsigned int nSeconds) {
    alarm(nSeconds);
}

}  // namespace tntest
