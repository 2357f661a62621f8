// A directory of a test's own.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_TEMPDIRECTORY_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_TEMPDIRECTORY_H_

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

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
    std::string operator/(const std::string& name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_TEMPDIRECTORY_H_
