// crash_program SAVE PATH CONTENT: does one of the saves, for a test that ends it or lets its system calls fail.

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string_view>

#include "failure/Saves.h"

int main(int nArguments, char** ppszArguments) {
    for (const tntest::Save& save : tntest::AllSaves()) {
        if (nArguments == 4 && save.lpszName == std::string_view(ppszArguments[1])) {
            try {
                return save.run(ppszArguments[2], std::atoi(ppszArguments[3])) ? 0 : 1;
            } catch (const std::bad_alloc&) {
                return 1;
            }
        }
    }
    std::fprintf(stderr, "usage: %s SAVE PATH CONTENT\n", ppszArguments[0]);
    return 2;
}
