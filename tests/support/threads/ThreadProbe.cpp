#include "support/threads/ThreadProbe.h"

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace tntest {

namespace {

constexpr const char* kTasks = "/proc/self/task";

// The letter after the name, which is in parentheses and may contain anything.
char StateLetter(int nThread) {
    const std::string path = std::string(kTasks) + "/" + std::to_string(nThread) + "/stat";
    std::FILE* pFile = std::fopen(path.c_str(), "r");
    if (pFile == nullptr) {
        return 0;
    }
    char szLine[512] = {};
    const std::size_t nRead = std::fread(szLine, 1, sizeof(szLine) - 1, pFile);
    std::fclose(pFile);
    const char* lpszEnd = nRead > 0 ? std::strrchr(szLine, ')') : nullptr;
    return lpszEnd != nullptr && lpszEnd[1] != 0 ? lpszEnd[2] : static_cast<char>(0);
}

}  // namespace

std::size_t CountThreads() {
    DIR* pDirectory = opendir(kTasks);
    if (pDirectory == nullptr) {
        return 0;
    }
    std::size_t nThreads = 0;
    while (const dirent* pEntry = readdir(pDirectory)) {
        nThreads += pEntry->d_name[0] != '.' ? 1 : 0;
    }
    closedir(pDirectory);
    return nThreads;
}

int ThisThreadNumber() {
    return static_cast<int>(syscall(SYS_gettid));
}

bool ThreadExists(int nThread) {
    return StateLetter(nThread) != 0;
}

bool IsBlocked(int nThread) {
    return StateLetter(nThread) == 'S';
}

Caller::Caller(std::function<void()> call)
    : m_thread([pState = m_pState, callNow = std::move(call)] {
          pState->nThread = ThisThreadNumber();
          callNow();
          pState->bReturned = true;
      }) {}

bool Caller::AwaitBlocked() const {
    bool bBlocked = false;
    Eventually([this, &bBlocked] {
        const int nThread = m_pState->nThread;
        bBlocked = !Returned() && nThread != 0 && IsBlocked(nThread);
        return bBlocked || Returned();
    });
    return bBlocked;
}

}  // namespace tntest
