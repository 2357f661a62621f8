// tnrobot-inspect: shows, compares, checks and converts files of the library.

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"

namespace {

constexpr char kExitCodes[] =
    "Exit codes: 0 good, equal or done; 1 damaged or different; 2 wrong usage, or a file that cannot\n"
    "be read, recognised or written.";

/// The command line.
struct Arguments {
    Common common;
    DumpOptions dump;
    std::vector<std::string> paths;
    std::string strFirst;
    std::string strSecond;
    bool bForce = false;
};

void AddCommon(CLI::App& command, Arguments& arguments, bool bWithKind) {
    if (bWithKind) {
        command.add_option("--kind", arguments.common.reading.strKind, "What the file is; by content when not given")
            ->check(CLI::IsMember({"group", "value", "archive", "bmp", "jpeg"}));
    }
    constexpr int kMostMiB = 1024 * 1024;
    command
        .add_option("--max-memory", arguments.common.reading.nMaxMemoryMiB,
                    "Largest file, and largest picture in memory, in MiB (1024)")
        ->check(CLI::Range(1, kMostMiB));
    command.add_option("--color", arguments.common.strColour, "Colours: auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}));
}

CLI::App* AddInfo(CLI::App& app, Arguments& arguments) {
    CLI::App* pCommand = app.add_subcommand("info", "Say what a file is and whether it is whole");
    pCommand->add_option("FILE", arguments.strFirst)->required();
    AddCommon(*pCommand, arguments, true);
    return pCommand;
}

CLI::App* AddDump(CLI::App& app, Arguments& arguments) {
    CLI::App* pCommand = app.add_subcommand("dump", "Show everything in a file");
    pCommand->add_option("FILE", arguments.strFirst)->required();
    pCommand->add_flag("--json", arguments.dump.bJson, "As JSON");
    pCommand->add_flag("--full", arguments.dump.bFull, "Do not cut long values in the table");
    AddCommon(*pCommand, arguments, true);
    return pCommand;
}

CLI::App* AddDiff(CLI::App& app, Arguments& arguments) {
    CLI::App* pCommand = app.add_subcommand("diff", "Compare two files by what is in them");
    pCommand->add_option("A", arguments.strFirst)->required();
    pCommand->add_option("B", arguments.strSecond)->required();
    AddCommon(*pCommand, arguments, true);
    return pCommand;
}

CLI::App* AddVerify(CLI::App& app, Arguments& arguments) {
    CLI::App* pCommand = app.add_subcommand("verify", "Check files; the worst result counts");
    pCommand->add_option("FILE", arguments.paths)->required();
    AddCommon(*pCommand, arguments, true);
    return pCommand;
}

CLI::App* AddConvert(CLI::App& app, Arguments& arguments) {
    CLI::App* pCommand = app.add_subcommand("convert", "Convert a BMP or JPEG picture; OUT ends in .bmp or .jpg");
    pCommand->add_option("IN", arguments.strFirst)->required();
    pCommand->add_option("OUT", arguments.strSecond)->required();
    pCommand->add_flag("-f,--force", arguments.bForce, "Replace OUT when it is there");
    AddCommon(*pCommand, arguments, false);
    return pCommand;
}

int Run(int nArguments, char** ppszArguments) {
    CLI::App app(
        "Shows what saved files of TnRobotKernel hold: value groups, a value of its own, archives that begin\n"
        "with a map header, BMP and JPEG pictures.");
    Arguments arguments;
    app.name("tnrobot-inspect");
    app.footer(kExitCodes);
    app.set_version_flag("--version", "tnrobot-inspect " TNROBOT_VERSION);
    app.require_subcommand(1);
    const CLI::App* pInfo = AddInfo(app, arguments);
    const CLI::App* pDump = AddDump(app, arguments);
    const CLI::App* pDiff = AddDiff(app, arguments);
    const CLI::App* pVerify = AddVerify(app, arguments);
    AddConvert(app, arguments);
    try {
        ParseCommandLine(app, nArguments, ppszArguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kGood : kTrouble;
    }
    const std::string strFirst = FileName(arguments.strFirst);
    const std::string strSecond = FileName(arguments.strSecond);
    if (pInfo->parsed()) {
        return Info(strFirst, arguments.common);
    }
    if (pDump->parsed()) {
        return Dump(strFirst, arguments.dump, arguments.common);
    }
    if (pDiff->parsed()) {
        return Diff(strFirst, strSecond, arguments.common);
    }
    if (pVerify->parsed()) {
        return Verify(FileNames(arguments.paths), arguments.common);
    }
    return Convert(strFirst, strSecond, arguments.bForce, arguments.common);
}

int Guarded(int nArguments, char** ppszArguments) {
    try {
        return Run(nArguments, ppszArguments);
    } catch (const std::bad_alloc&) {
        Complain("not enough memory");
    } catch (const std::exception& error) {
        Complain(error.what());
    }
    return kTrouble;
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    // A limit of file sizes is met as a full disk is: by writing that fails.
    std::signal(SIGXFSZ, SIG_IGN);
    const int nResult = Guarded(nArguments, ppszArguments);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        Complain("the output cannot be written");
        return kTrouble;
    }
    return nResult;
}
