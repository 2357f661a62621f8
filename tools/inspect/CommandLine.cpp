#include "CommandLine.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "Text.h"

namespace {

constexpr char kMark[] = "./";

bool IsOption(const std::string& strWord) {
    return strWord.size() > 1 && strWord[0] == '-';
}

bool TakesValue(const CLI::App& command, const std::string& strWord) {
    const CLI::Option* pOption = command.get_option_no_throw(strWord);
    return pOption != nullptr && pOption->get_items_expected_min() > 0;
}

// Marks what are neither options nor their values. Behind -- everything is a file name.
std::vector<std::string> WithMarks(const CLI::App& command, const std::vector<std::string>& words) {
    std::vector<std::string> marked;
    bool bOptions = true;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (bOptions && words[i] == "--") {
            bOptions = false;
        } else if (bOptions && IsOption(words[i])) {
            marked.push_back(words[i]);
            if (TakesValue(command, words[i]) && i + 1 < words.size()) {
                marked.push_back(words[++i]);
            }
        } else {
            marked.push_back(kMark + words[i]);
        }
    }
    return marked;
}

std::string Known(const CLI::App& app) {
    std::string strNames;
    for (const CLI::App* pCommand : app.get_subcommands([](const CLI::App*) { return true; })) {
        strNames += (strNames.empty() ? "" : ", ") + pCommand->get_name();
    }
    return strNames;
}

const CLI::App& CommandOf(const CLI::App& app, const std::string& strName) {
    const auto commands =
        app.get_subcommands([&](const CLI::App* pCommand) { return pCommand->get_name() == strName; });
    if (commands.empty()) {
        throw CLI::ParseError("There is no command " + Printable(strName) + "; there are " + Known(app) + ".",
                              CLI::ExitCodes::ExtrasError);
    }
    return *commands[0];
}

}  // namespace

void ParseCommandLine(CLI::App& app, int nArguments, char** ppszArguments) {
    const std::vector<std::string> all(ppszArguments + std::min(nArguments, 1), ppszArguments + nArguments);
    if (all.empty()) {
        throw CLI::ParseError("A command is missing; there are " + Known(app) + ".", CLI::ExitCodes::RequiredError);
    }
    const auto itCommand = std::find_if_not(all.begin(), all.end(), IsOption);
    std::vector<std::string> words(all.begin(), itCommand);
    if (itCommand != all.end()) {
        words.push_back(*itCommand);
        const std::vector<std::string> rest =
            WithMarks(CommandOf(app, *itCommand), std::vector<std::string>(itCommand + 1, all.end()));
        words.insert(words.end(), rest.begin(), rest.end());
    }
    std::reverse(words.begin(), words.end());  // the option library takes them from the back
    app.parse(std::move(words));
}

std::string FileName(const std::string& strParsed) {
    return strParsed.rfind(kMark, 0) == 0 ? strParsed.substr(sizeof(kMark) - 1) : strParsed;
}

std::vector<std::string> FileNames(const std::vector<std::string>& parsed) {
    std::vector<std::string> names;
    std::transform(parsed.begin(), parsed.end(), std::back_inserter(names), FileName);
    return names;
}
