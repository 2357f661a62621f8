// A directory of its own for each test that touches the disk.

#ifndef TNROBOTKERNEL_TESTS_UTILS_TEMPDIRECTORY_H_
#define TNROBOTKERNEL_TESTS_UTILS_TEMPDIRECTORY_H_

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

/// Makes an empty directory and removes it with all it holds.
class TempDirectory {
public:
    TempDirectory() {
        std::string strPattern = (std::filesystem::temp_directory_path() / "tnrobot_XXXXXX").string();
        if (mkdtemp(strPattern.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        m_strPath = std::filesystem::canonical(strPattern).string();
    }
    ~TempDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_strPath, ignored);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::string& Path() const { return m_strPath; }

    /// @return the path of an entry, which need not exist.
    std::string Path(const std::string& strName) const { return m_strPath + "/" + strName; }

    /// Makes a file. @return its path.
    std::string File(const std::string& strName, const std::string& strContent = "x") const {
        std::ofstream(Path(strName), std::ios::binary) << strContent;
        return Path(strName);
    }

    /// Makes a file of zeros that takes no room on the disk. @return its path.
    std::string SparseFile(const std::string& strName, unsigned long long nSize) const {
        File(strName);
        std::filesystem::resize_file(Path(strName), nSize);
        return Path(strName);
    }

    /// Makes a directory. @return its path.
    std::string Directory(const std::string& strName) const {
        std::filesystem::create_directories(Path(strName));
        return Path(strName);
    }

private:
    std::string m_strPath;
};

inline std::string FileContent(const std::string& strPath) {
    std::ifstream file(strPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

#endif  // TNROBOTKERNEL_TESTS_UTILS_TEMPDIRECTORY_H_
