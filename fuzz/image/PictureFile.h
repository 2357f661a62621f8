// A file in memory with a path of its own, for targets whose library operation takes a path.

#ifndef TNROBOTKERNEL_FUZZ_IMAGE_PICTUREFILE_H_
#define TNROBOTKERNEL_FUZZ_IMAGE_PICTUREFILE_H_

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <string>

#include "FuzzInput.h"

namespace tnfuzz {

/// A directory of this process, removed with what it holds when the process ends properly.
class ScratchDirectory {
public:
    ScratchDirectory() : m_strPath((Base() / "tnrobot_fuzz_XXXXXX").string()) {
        Require(mkdtemp(m_strPath.data()) != nullptr, "a directory can be made");
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_strPath, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    std::string Path(const std::string& strName) const { return m_strPath + "/" + strName; }

private:
    // Memory rather than a disk, where there is such a file system.
    static std::filesystem::path Base() {
        const char* lpszMemory = "/dev/shm";
        return access(lpszMemory, W_OK) == 0 ? std::filesystem::path(lpszMemory)
                                             : std::filesystem::temp_directory_path();
    }

    std::string m_strPath;
};

/// Replaces a file's content.
inline void WriteWholeFile(const std::string& strPath, const std::uint8_t* pData, std::size_t nSize) {
    const int nFile = open(strPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR);
    Require(nFile >= 0 && write(nFile, pData, nSize) == static_cast<ssize_t>(nSize), "a file can be written");
    close(nFile);
}

}  // namespace tnfuzz

#endif  // TNROBOTKERNEL_FUZZ_IMAGE_PICTUREFILE_H_
