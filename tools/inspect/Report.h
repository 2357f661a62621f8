// The texts that several commands print about a file.

#ifndef TNROBOT_INSPECT_REPORT_H_
#define TNROBOT_INSPECT_REPORT_H_

#include <string>
#include <utility>
#include <vector>

#include "Document.h"
#include "Terminal.h"

/// What is known about a file as a whole, in the order in which it is printed.
using Facts = std::vector<std::pair<std::string, std::string>>;

Facts FactsOf(const Document& document);

/// @return "good" or "damaged", coloured; of an archive what was looked at, too.
std::string Condition(const Document& document, const Style& style);

/// Prints one line for each problem.
void PrintProblems(const Document& document, const Style& style);

/// @return a text filled up with blanks to a number of characters.
std::string Padded(const std::string& strText, std::size_t nWidth);

/// What the last line about an archive says: where the program's knowledge ends.
extern const char kObjectsUnknown[];

#endif  // TNROBOT_INSPECT_REPORT_H_
