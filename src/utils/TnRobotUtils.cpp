// Directories, paths, dated names and whole files. Results go to buffers of 256 bytes of the callers'.

#include "TnRobotKernel/utilities.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fstream>
#include <limits>
#include <memory>

#include "core/TnFormat.h"
#include "core/TnOpenFile.h"
#include "utils/TnRobotDirectories.h"

namespace {

const char* OrEmpty(const char* lpszText) {
    return lpszText != nullptr ? lpszText : "";
}

// All 256 bytes are written, and a longer path is cut without a terminator: callers rely on both.
void CopyPath(const std::string& strDirectory, const char* lpszName, char* lpszPath) {
    if (lpszPath != nullptr) {
        const std::string strPath = strDirectory + "/" + OrEmpty(lpszName);
        std::strncpy(lpszPath, strPath.c_str(), TnRobotUtils::kPathSize);
    }
}

void CopyPart(const char* pBegin, const char* pEnd, char* lpszPart) {
    if (lpszPart != nullptr) {
        const std::size_t nLength =
            std::min<std::size_t>(static_cast<std::size_t>(pEnd - pBegin), TnRobotUtils::kPathSize - 1);
        std::memmove(lpszPart, pBegin, nLength);
        lpszPart[nLength] = '\0';
    }
}

const char* LastSeparator(const char* lpszPath) {
    const char* pLast = nullptr;
    for (const char* p = OrEmpty(lpszPath); *p != '\0'; ++p) {
        if (*p == '/' || *p == '\\') {
            pLast = p;
        }
    }
    return pLast;
}

bool GetStatus(const char* lpszName, struct stat& status) {
    return lpszName != nullptr && *lpszName != '\0' && stat(lpszName, &status) == 0;
}

// Asked for each entry that is listed as a file or without a type, which some file systems do not give. A
// listed file may be gone by now or out of reach, which the listing does not tell.
bool IsRegularFile(const std::string& strPath) {
    struct stat status = {};
    return lstat(strPath.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// The environment's TZ, or the system's time zone, as it is now: localtime_r alone need not look at
// it again. Other threads may be here too, tzset locks; none may change the environment meanwhile,
// as with everything that reads it.
std::tm LocalTime(std::time_t nSeconds) {
    std::tm local = {};
    tzset();
    localtime_r(&nSeconds, &local);
    return local;
}

// "directory/name_YYYY_MM_DD_milliseconds.extension" for a time in milliseconds since the epoch.
std::string DatedPath(const std::string& strDirectory, const char* lpszName, const char* lpszExtension,
                      long long nTime) {
    const std::tm local = LocalTime(nTime / 1000);
    const int nMilliseconds =
        ((local.tm_hour * 60 + local.tm_min) * 60 + local.tm_sec) * 1000 + static_cast<int>(nTime % 1000);
    char szDate[64] = {};  // four integers of at most eleven characters
    _tnsprintf(szDate, sizeof(szDate), "_%04d_%02d_%02d_%d.", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
               nMilliseconds);
    return strDirectory + "/" + OrEmpty(lpszName) + szDate + OrEmpty(lpszExtension);
}

long long MillisecondsNow() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count();
}

}  // namespace

const char* TnRobotUtils::GetWorkDir() {
    return g_strWorkDir.c_str();
}

void TnRobotUtils::MakeWorkFilePath(const char* lpszName, char* lpszPath) {
    CopyPath(g_strWorkDir, lpszName, lpszPath);
}

// The current directory, not the work directory: callers may have moved since the load.
const char* TnRobotUtils::GetProfileDir() {
    if (g_strProfileDir.empty()) {
        const std::string strCurrent = tnrobot::CurrentDirectory();
        if (!strCurrent.empty()) {
            g_strProfileDir = strCurrent + "/TnQuellon";
            mkdir(g_strProfileDir.c_str(), 0777);
        }
    }
    // What was handed out while there was none stays an empty text when the string grows.
    return g_strProfileDir.empty() ? "" : g_strProfileDir.c_str();
}

void TnRobotUtils::MakeProfile(const char* lpszName, char* lpszPath) {
    CopyPath(GetProfileDir(), lpszName, lpszPath);
}

const char* TnRobotUtils::GetDebugDir() {
    if (g_strDebugDir.empty()) {
        g_strDebugDir = g_strWorkDir + "/Debug";
        mkdir(g_strDebugDir.c_str(), 0777);
    }
    return g_strDebugDir.c_str();
}

void TnRobotUtils::SetDebugDir(const char* lpszDirectory) {
    g_strDebugDir = OrEmpty(lpszDirectory);
}

void TnRobotUtils::MakeDebugFile(const char* lpszName, char* lpszPath) {
    CopyPath(GetDebugDir(), lpszName, lpszPath);
}

int TnRobotUtils::GetPurePath(const char* lpszPath, char* lpszDirectory) {
    const char* pSeparator = LastSeparator(lpszPath);
    if (pSeparator == nullptr) {
        return -1;
    }
    CopyPart(lpszPath, pSeparator, lpszDirectory);
    return 0;
}

int TnRobotUtils::GetPureName(const char* lpszPath, char* lpszName) {
    const char* pSeparator = LastSeparator(lpszPath);
    if (pSeparator == nullptr) {
        return -1;
    }
    CopyPart(pSeparator + 1, pSeparator + std::strlen(pSeparator), lpszName);
    return 0;
}

bool TnRobotUtils::MatchWildcard(const char* /*lpszName*/, const char* /*lpszPattern*/) {
    return false;
}

long long TnRobotUtils::GetFileSize(const char* lpszName) {
    struct stat status = {};
    return GetStatus(lpszName, status) ? status.st_size : 0;
}

int TnRobotUtils::IsFileExist(const char* lpszName, int nMode) {
    struct stat status = {};
    if (!GetStatus(lpszName, status) || !S_ISREG(status.st_mode)) {
        return -1;
    }
    return nMode == 0 || access(lpszName, nMode) == 0 ? 0 : -1;
}

// Each try is for a later time than the one before, so the search ends even if the clock stands
// still: at the latest when it has passed all the files there are. A name that does not fit is
// not cut, because the cut one may be that of a file.
void TnRobotUtils::MakeValidFile(const char* lpszDirectory, const char* lpszName, const char* lpszExtension,
                                 char* lpszPath) {
    if (lpszPath == nullptr) {
        return;
    }
    const std::string strDirectory = lpszDirectory != nullptr ? lpszDirectory : GetWorkDir();
    long long nTime = MillisecondsNow();
    std::string strPath = DatedPath(strDirectory, lpszName, lpszExtension, nTime);
    while (strPath.size() < kPathSize && IsFileExist(strPath.c_str(), 0) == 0) {
        nTime = std::max(nTime + 1, MillisecondsNow());
        strPath = DatedPath(strDirectory, lpszName, lpszExtension, nTime);
    }
    if (strPath.size() >= kPathSize) {
        strPath.clear();
    }
    std::memcpy(lpszPath, strPath.c_str(), strPath.size() + 1);
}

// The size that is reported is the most that is written, also when the file grows meanwhile. What
// cannot be read leaves the buffer alone and is still a success: callers rely on that.
int TnRobotUtils::ReadFile(const char* lpszName, char* lpszBuffer, int* pnLength) {
    const long long nSize = GetFileSize(lpszName);
    if (nSize < 1 || nSize > std::numeric_limits<int>::max()) {
        return -1;
    }
    if (lpszBuffer != nullptr) {
        std::ifstream file;
        tnrobot::OpenFile(*file.rdbuf(), lpszName, std::ios::in);
        file.read(lpszBuffer, nSize);
    }
    if (pnLength != nullptr) {
        *pnLength = static_cast<int>(nSize);
    }
    return 0;
}

// Nothing says whether the file could be written: callers rely on the result 0.
int TnRobotUtils::WriteFile(const char* lpszName, const char* lpszData, unsigned int nLength, bool /*bAppend*/) {
    if (lpszData == nullptr || nLength == 0 || lpszName == nullptr) {
        return -1;
    }
    std::ofstream file;
    tnrobot::OpenFile(*file.rdbuf(), lpszName, std::ios::out | std::ios::trunc);
    file.write(lpszData, nLength);
    file.flush();
    return 0;
}

// The directory is copied before the list grows: its text may be one of the list's own.
void TnRobotUtils::FindFile(const char* lpszDirectory, const char* /*lpszPattern*/, std::vector<std::string>& files) {
    const std::string strDirectory = OrEmpty(lpszDirectory);
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(strDirectory.c_str()), closedir);
    if (!directory) {
        return;
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the directory stream is this call's own
    while (const dirent* pEntry = readdir(directory.get())) {
        if (pEntry->d_type != DT_REG && pEntry->d_type != DT_UNKNOWN) {
            continue;
        }
        std::string strPath = strDirectory + "/" + pEntry->d_name;
        if (IsRegularFile(strPath)) {
            files.push_back(std::move(strPath));
        }
    }
}
