// A directory of a test's own.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_TEMPDIRECTORY_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_TEMPDIRECTORY_H_

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace tntest {

/// Makes an empty directory and removes it with all that is in it.
class TempDirectory {
public:
    TempDirectory() {
        std::string path = (std::filesystem::temp_directory_path() / "tnrobotXXXXXX").string();
        if (mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        m_path = std::filesystem::canonical(path);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;
    ~TempDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    const std::filesystem::path& Path() const { return m_path; }
    /// @return the path of an entry, which need not exist.
    std::string operator/(const std::string& name) const { return (m_path / name).string(); }

    /// @return the names of all entries, hidden ones too, sorted.
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    /// Makes a file. @return its path.
    std::string File(const std::string& name, const std::string& content = "x") const {
        std::ofstream(*this / name, std::ios::binary) << content;
        return *this / name;
    }

    /// Makes a file of zeros that takes no room on the disk. @return its path.
    std::string SparseFile(const std::string& name, unsigned long long nSize) const {
        File(name);
        std::filesystem::resize_file(*this / name, nSize);
        return *this / name;
    }

    /// Makes a directory. @return its path.
    std::string Directory(const std::string& name) const {
        std::filesystem::create_directories(*this / name);
        return *this / name;
    }

private:
    std::filesystem::path m_path;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_PROCESSES_TEMPDIRECTORY_H_
