// Named groups of values beside other maps, saving and loading beside other serialisers.

#include "groups/GroupCases.h"

int main(int nArguments, char** ppszArguments) {
    bench::Program program(nArguments, ppszArguments, "groups", "Groups and archive");
    bench::RegisterContainerCases(program);
    bench::RegisterArchiveCases(program);
    return program.Run();
}
