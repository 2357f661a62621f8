// The names of a log file's predecessors, and what becomes of them.

#ifndef TNROBOTLOG_TNOLDFILES_H_
#define TNROBOTLOG_TNOLDFILES_H_

#include <string>

namespace tnrobotlog {

/// Makes room for a new file: "robot.log" becomes "robot.1.log", that one "robot.2.log", and so on
/// up to the first number that is free. When none is, the oldest file goes. A failure in between
/// leaves the numbers below it as they are and one above free, so that trying again loses nothing.
/// @param[in] nOldFiles  highest number, 1 at least.
/// @return 0, or the system's error; the file itself has kept its name then.
int PushDown(const std::string& strFile, int nOldFiles);

/// Gives the newest old file the file's own name again.
void PullUp(const std::string& strFile);

/// Removes old files by their numbers.
/// @param[in] nFirst  first number to go.
/// @param[in] nLast   numbers up to this one go, and then as long as there are more without a gap.
/// @return 0, or the first error of the system's.
int RemoveOldFiles(const std::string& strFile, int nFirst, int nLast);

}  // namespace tnrobotlog

#endif  // TNROBOTLOG_TNOLDFILES_H_
