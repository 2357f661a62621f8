// Runs a fuzz target over every file of the directories that it is given, for builds without a
// fuzzer. Ends with 1 when there was nothing to run.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize);

int main(int nArguments, char** ppszArguments) {
    int nFiles = 0;
    for (int i = 1; i < nArguments; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(ppszArguments[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
            ++nFiles;
        }
    }
    std::printf("%d inputs replayed\n", nFiles);
    return nFiles != 0 ? 0 : 1;
}
