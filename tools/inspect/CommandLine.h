// Keeps file names from what the option library makes of some of them.

#ifndef TNROBOT_INSPECT_COMMANDLINE_H_
#define TNROBOT_INSPECT_COMMANDLINE_H_

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

/// Parses a command line whose commands take file names. The option library takes [a,b] for a list
/// of two, ++ for the end of a command, and a command's name for that command even where a file
/// name is expected. So each file name comes to it as a path, with ./ before it.
/// Throws CLI::ParseError.
void ParseCommandLine(CLI::App& app, int nArguments, char** ppszArguments);

/// @return a file name as it was given.
std::string FileName(const std::string& strParsed);
std::vector<std::string> FileNames(const std::vector<std::string>& parsed);

#endif  // TNROBOT_INSPECT_COMMANDLINE_H_
