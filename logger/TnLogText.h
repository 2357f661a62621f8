// One call, one line: what a text may contain once it stands in the log.

#ifndef TNROBOTLOG_TNLOGTEXT_H_
#define TNROBOTLOG_TNLOGTEXT_H_

#include <string>
#include <string_view>

namespace tnrobotlog {

/// Makes a text fit for one line: a line end at its end is left out, other control characters are
/// written as \n, \r or \x1b, so that no text can look like two lines or steer a terminal. Tabs
/// stay.
/// @param[in] lpszText  null counts as empty.
/// @param[in] strRoom   used when something has to be changed.
/// @return the text itself or strRoom, valid as long as both are.
std::string_view OneLine(const char* lpszText, std::string& strRoom);

}  // namespace tnrobotlog

#endif  // TNROBOTLOG_TNLOGTEXT_H_
