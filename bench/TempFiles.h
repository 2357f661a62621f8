// Files that live in a directory of the program's own until it ends.

#ifndef TNROBOTKERNEL_BENCH_TEMPFILES_H_
#define TNROBOTKERNEL_BENCH_TEMPFILES_H_

#include <filesystem>
#include <fstream>
#include <string>

#include "BenchSupport.h"

namespace bench {

inline std::string FilePath(const std::string& strName) {
    static const struct Directory {
        Directory() {
            path = (std::filesystem::temp_directory_path() / "tnrobotbenchXXXXXX").string();
            Require(mkdtemp(path.data()) != nullptr, "no temporary directory");
        }
        ~Directory() {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
        std::string path;
    } s_directory;
    return s_directory.path + "/" + strName;
}

/// @return how many write system calls the process has made, 0 where the system does not say.
inline long long WriteCalls() {
    std::ifstream io("/proc/self/io");
    std::string strWord;
    long long nCalls = 0;
    while (io >> strWord) {
        if (strWord == "syscw:") {
            io >> nCalls;
            break;
        }
    }
    return nCalls;
}

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_TEMPFILES_H_
