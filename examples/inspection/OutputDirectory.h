// The directory that the results go to, and what has been written there.

#ifndef INSPECTION_OUTPUTDIRECTORY_H_
#define INSPECTION_OUTPUTDIRECTORY_H_

#include <string>
#include <vector>

/// Makes up file names that are not taken yet, and lists the files that were written under them.
class OutputDirectory {
public:
    /// @param[in] strDirectory  created when it is not there.
    explicit OutputDirectory(std::string strDirectory);

    /// @return path of a new file, dated; empty when it would be too long.
    std::string NewFile(const std::string& strName, const char* lpszExtension);

    /// Prints the directory, and the files with their sizes. @return whether each of them is there and not empty.
    bool List() const;

private:
    std::string m_strDirectory;
    std::vector<std::string> m_files;
};

#endif  // INSPECTION_OUTPUTDIRECTORY_H_
