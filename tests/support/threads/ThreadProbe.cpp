#include "support/threads/ThreadProbe.h"

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace tntest {

namespace {

constexpr const char* kTasks = "/proc/self/task";

// A file about a thread, or nothing when there is no such thread any more.
std::string ReadAbout(int nThread, const char* lpszFile) {
    const std::string path = std::string(kTasks) + "/" + std::to_string(nThread) + "/" + lpszFile;
    std::FILE* pFile = std::fopen(path.c_str(), "r");
    if (pFile == nullptr) {
        return {};
    }
    std::string text(4096, 0);
    text.resize(std::fread(text.data(), 1, text.size(), pFile));
    std::fclose(pFile);
    return text;
}

// The letter after the name, which is in parentheses and may contain anything.
char StateLetter(int nThread) {
    const std::string line = ReadAbout(nThread, "stat");
    const std::size_t nEnd = line.rfind(')');
    return nEnd != std::string::npos && nEnd + 2 < line.size() ? line[nEnd + 2] : static_cast<char>(0);
}

// How often a thread has left its processor, by itself and not: as long as both stay, it has not run.
std::string Departures(int nThread) {
    const std::string status = ReadAbout(nThread, "status");
    const std::size_t nBegin = status.find("voluntary_ctxt_switches:");
    return nBegin != std::string::npos ? status.substr(nBegin) : std::string();
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

bool Caller::AwaitAllBlocked(const std::vector<Caller>& callers) {
    // Who was blocked in the first look and has not run before the second was blocked in between.
    const auto look = [&callers](std::vector<std::string>& departures) {
        bool bAll = true;
        for (const Caller& caller : callers) {
            bAll = caller.AwaitBlocked() && bAll;
            departures.push_back(Departures(caller.m_pState->nThread));
        }
        return bAll;
    };
    bool bAll = false;
    Eventually([&] {
        std::vector<std::string> before;
        std::vector<std::string> after;
        bAll = look(before) && look(after);
        return !bAll || before == after;
    });
    return bAll;
}

}  // namespace tntest
