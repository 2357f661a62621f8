// Runs a fuzz target over the files that it is given, and over every file of the directories, for
// builds without a fuzzer. Ends with 1 when one of them does not exist or holds nothing.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize);

namespace {

using Paths = std::vector<std::filesystem::path>;

Paths FilesOf(const std::filesystem::path& path) {
    if (!std::filesystem::is_directory(path)) {
        return std::filesystem::exists(path) ? Paths{path} : Paths{};
    }
    Paths files;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// Exactly as much memory as there are bytes, so that a sanitizer sees the first one beyond them.
void Replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[content.size()]);
    std::copy(content.begin(), content.end(), bytes.get());
    std::printf("%s\n", path.filename().c_str());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(bytes.get(), content.size());
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    int nFailures = nArguments > 1 ? 0 : 1;
    for (int i = 1; i < nArguments; ++i) {
        const Paths files = FilesOf(ppszArguments[i]);
        std::for_each(files.begin(), files.end(), Replay);
        std::printf("%s: %zu inputs replayed\n", ppszArguments[i], files.size());
        nFailures += files.empty() ? 1 : 0;
    }
    return nFailures == 0 ? 0 : 1;
}
