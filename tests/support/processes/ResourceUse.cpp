#include "support/processes/ResourceUse.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace tntest {

namespace {

// A line of /proc/self/status, in bytes.
long long StatusValue(const char* lpszKey) {
    std::FILE* pFile = std::fopen("/proc/self/status", "r");
    if (pFile == nullptr) {
        return -1;
    }
    long long nKiB = -1;
    char szLine[256];
    while (std::fgets(szLine, sizeof(szLine), pFile) != nullptr) {
        if (std::strncmp(szLine, lpszKey, std::strlen(lpszKey)) == 0) {
            nKiB = std::atoll(szLine + std::strlen(lpszKey));
        }
    }
    std::fclose(pFile);
    return nKiB * 1024;
}

[[noreturn]] void MeasureAndExit(const std::function<void()>& work, int nPipe) {
    // The peak of a forked process starts at its size.
    const long long nBefore = StatusValue("VmSize:");
    work();
    const long long nGrowth = StatusValue("VmPeak:") - nBefore;
    const bool bWritten = write(nPipe, &nGrowth, sizeof(nGrowth)) == static_cast<ssize_t>(sizeof(nGrowth));
    _exit(bWritten && !::testing::Test::HasFailure() ? 0 : 1);
}

}  // namespace

long long PeakGrowth(const std::function<void()>& work) {
    if (kSanitizerOwnsMemory) {
        work();
        return 0;
    }
    int pipes[2] = {-1, -1};
    if (pipe(pipes) != 0) {
        return -1;
    }
    const pid_t nChild = fork();
    if (nChild == 0) {
        MeasureAndExit(work, pipes[1]);
    }
    close(pipes[1]);
    long long nGrowth = -1;
    if (read(pipes[0], &nGrowth, sizeof(nGrowth)) != static_cast<ssize_t>(sizeof(nGrowth))) {
        nGrowth = -1;
    }
    close(pipes[0]);
    int nStatus = 0;
    if (nChild < 0 || waitpid(nChild, &nStatus, 0) != nChild || nStatus != 0) {
        return -1;
    }
    return nGrowth;
}

namespace {

double ThreadSeconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

long ThreadWaits() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

}  // namespace

double SecondsFor(const std::function<void()>& work) {
    const double dStart = ThreadSeconds();
    work();
    return ThreadSeconds() - dStart;
}

long WaitsDuring(const std::function<void()>& work) {
    const long nStart = ThreadWaits();
    work();
    return ThreadWaits() - nStart;
}

}  // namespace tntest
