#include "TnOldFiles.h"

#include <spdlog/sinks/rotating_file_sink.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace tnrobotlog {

namespace {

std::string Name(const std::string& strFile, int nNumber) {
    return spdlog::sinks::rotating_file_sink_st::calc_filename(strFile, static_cast<std::size_t>(nNumber));
}

bool IsFree(const std::string& strName) {
    struct stat status = {};
    return lstat(strName.c_str(), &status) != 0 && errno == ENOENT;
}

int FirstFree(const std::string& strFile, int nLast) {
    int nNumber = 1;
    while (nNumber < nLast && !IsFree(Name(strFile, nNumber))) {
        ++nNumber;
    }
    return nNumber;
}

}  // namespace

int PushDown(const std::string& strFile, int nOldFiles) {
    for (int nNumber = FirstFree(strFile, nOldFiles); nNumber > 0; --nNumber) {
        if (std::rename(Name(strFile, nNumber - 1).c_str(), Name(strFile, nNumber).c_str()) != 0) {
            return errno;
        }
    }
    return 0;
}

void PullUp(const std::string& strFile) {
    std::rename(Name(strFile, 1).c_str(), strFile.c_str());
}

int RemoveOldFiles(const std::string& strFile, int nFirst, int nLast) {
    int nError = 0;
    bool bWasThere = true;
    for (int nNumber = nFirst; nNumber <= nLast || bWasThere; ++nNumber) {
        bWasThere = unlink(Name(strFile, nNumber).c_str()) == 0;
        if (!bWasThere && errno != ENOENT && nError == 0) {
            nError = errno;
        }
    }
    return nError;
}

}  // namespace tnrobotlog
