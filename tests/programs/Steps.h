// Programs that do what their arguments say, one after the other.

#ifndef TNROBOTKERNEL_TESTS_PROGRAMS_STEPS_H_
#define TNROBOTKERNEL_TESTS_PROGRAMS_STEPS_H_

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace tntest {

/// An argument: "verb", "verb:number" or "verb:number:text".
struct Step {
    explicit Step(const std::string& argument) : verb(argument.substr(0, argument.find(':'))) {
        const std::string rest = argument.substr(std::min(argument.size(), verb.size() + 1));
        number = std::atoi(rest.c_str());
        const std::size_t nColon = rest.find(':');
        text = nColon == std::string::npos ? "" : rest.substr(nColon + 1);
    }

    std::string verb;
    int number = 0;
    std::string text;
};

using Verbs = std::map<std::string, void (*)(const Step&)>;

/// For main. @return the exit code: 2 when there is no such verb.
inline int RunSteps(const Verbs& verbs, int nArguments, char** arguments) {
    for (int n = 1; n < nArguments; ++n) {
        const Step step(arguments[n]);
        const auto it = verbs.find(step.verb);
        if (it == verbs.end()) {
            return 2;
        }
        it->second(step);
        std::fflush(stdout);
    }
    return 0;
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_PROGRAMS_STEPS_H_
