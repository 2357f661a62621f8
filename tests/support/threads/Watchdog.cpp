#include "support/threads/Watchdog.h"

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

// Where everything takes longer, as in an emulator, TNROBOT_TEST_PATIENCE says how many times longer.
unsigned int WithPatience(unsigned int nSeconds) {
    const char* lpszPatience = std::getenv("TNROBOT_TEST_PATIENCE");
    const int nPatience = lpszPatience != nullptr ? std::atoi(lpszPatience) : 1;
    return nPatience > 1 ? nSeconds * static_cast<unsigned int>(nPatience) : nSeconds;
}

}  // namespace

Watchdog::Watchdog(unsigned int nSeconds) {
    NameTheTest();
    struct sigaction action = {};
    action.sa_handler = OnAlarm;
    sigaction(SIGALRM, &action, nullptr);
    alarm(WithPatience(nSeconds));
}

Watchdog::~Watchdog() {
    alarm(0);
}

void Watchdog::Extend(unsigned int nSeconds) {
    alarm(WithPatience(nSeconds));
}

}  // namespace tntest
