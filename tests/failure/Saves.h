// Every way in which the library writes a file, by name: for a test that kills, refuses and fills up.

#ifndef TNROBOTKERNEL_TESTS_FAILURE_SAVES_H_
#define TNROBOTKERNEL_TESTS_FAILURE_SAVES_H_

#include <string>
#include <vector>

namespace tntest {

/// What a save that does not get through leaves.
enum class Leaves {
    kOldOrNew,   ///< the old file or the new one, whole
    kBeginning,  ///< the old file, or the new one as far as it came
};

/// A way to write a file.
struct Save {
    const char* lpszName;
    const char* lpszEnding;  ///< of the file's name
    Leaves eLeaves;
    bool bReports;  ///< whether its result tells that the file is not there as a whole
    /// @param[in] nContent  which of two contents, 1 or 2, of different length and no byte in common where it counts.
    /// @return its result, true where it has none.
    bool (*run)(const char* lpszPath, int nContent);
};

const std::vector<Save>& AllSaves();

/// Reads the groups of a file that holds those of the save "groups in place".
/// @return how many there are before the file ends or is damaged; -1 when one is not what was written.
int WholeGroups(const std::string& strPath, int nContent);

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_FAILURE_SAVES_H_
