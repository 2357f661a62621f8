// One call, one line: what a text may contain once it stands in the log.

#ifndef TNROBOTLOG_TNLOGTEXT_H_
#define TNROBOTLOG_TNLOGTEXT_H_

#include <string>
#include <string_view>

namespace tnrobotlog {

/// Makes a text fit for one line: a line end at its end is left out; other characters that could
/// make it look like two lines, or steer a terminal, are written byte by byte as \n, \r or \x1b.
/// These are the control characters, those from 128 to 159 included, as single bytes and in UTF-8,
/// and those that separate lines or turn the direction of writing. Tabs stay, and so do bytes from
/// 160 on that are no UTF-8: a text in another character set.
/// @param[in] lpszText  null counts as empty.
/// @param[in] strRoom   used when something has to be changed.
/// @return the text itself or strRoom, valid as long as both are.
std::string_view OneLine(const char* lpszText, std::string& strRoom);

}  // namespace tnrobotlog

#endif  // TNROBOTLOG_TNLOGTEXT_H_
