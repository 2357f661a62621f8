// The commands of the program. Each returns one of ExitCode; UnreadableError leaves those that need
// their files whole.

#ifndef TNROBOT_INSPECT_COMMANDS_H_
#define TNROBOT_INSPECT_COMMANDS_H_

#include <string>
#include <vector>

#include "Document.h"
#include "Terminal.h"

/// What each command has in common.
struct Common {
    ReadOptions reading;
    std::string strColour = "auto";

    Style Colours() const { return Style(WantsColours(strColour)); }
};

struct DumpOptions {
    bool bJson = false;
    bool bFull = false;  ///< values of any length in the table
};

int Info(const std::string& strPath, const Common& common);
int Dump(const std::string& strPath, const DumpOptions& options, const Common& common);
int Diff(const std::string& strFirst, const std::string& strSecond, const Common& common);
int Verify(const std::vector<std::string>& paths, const Common& common);

/// @param[in] bForce  an existing file is replaced.
int Convert(const std::string& strInput, const std::string& strOutput, bool bForce, const Common& common);

#endif  // TNROBOT_INSPECT_COMMANDS_H_
