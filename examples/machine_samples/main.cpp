// Samples the running machine into a value group and saves it, or reads it back and compares:
//   machine_samples save DIRECTORY
//   machine_samples check DIRECTORY
// Ends with 0 when everything worked and, for check, everything is what was saved.

#include <cstdio>
#include <cstring>

#include "ObjectGraph.h"
#include "Samples.h"

namespace {

int Save(const char* lpszDirectory) {
    if (!SaveSamples(lpszDirectory) || !SaveGraph(lpszDirectory)) {
        std::fprintf(stderr, "cannot save to %s\n", lpszDirectory);
        return 1;
    }
    std::printf("saved samples.tnr and graph.tnr\n\n");
    return 0;
}

int Check(const char* lpszDirectory) {
    const bool bSamples = CheckSamples(lpszDirectory);
    const bool bGraph = CheckGraph(lpszDirectory);
    if (!bSamples || !bGraph) {
        std::fprintf(stderr, "something differs from what was saved\n");
        return 1;
    }
    return 0;
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    if (nArguments == 3 && std::strcmp(ppszArguments[1], "save") == 0) {
        return Save(ppszArguments[2]);
    }
    if (nArguments == 3 && std::strcmp(ppszArguments[1], "check") == 0) {
        return Check(ppszArguments[2]);
    }
    std::fprintf(stderr, "usage: %s save|check DIRECTORY\n", ppszArguments[0]);
    return 2;
}
