// The tables of an archive, taken apart and put together again, for mutators.

#ifndef TNROBOTKERNEL_FUZZ_ARCHIVE_ARCHIVETABLES_H_
#define TNROBOTKERNEL_FUZZ_ARCHIVE_ARCHIVETABLES_H_

#include <string>
#include <vector>

#include "FuzzInput.h"

namespace tnfuzz {

/// Class identifiers, and objects with their classes, as tntest::SavedMapHeader writes them.
struct ArchiveTables {
    std::vector<std::string> classes;
    std::vector<tntest::SavedObject> objects;

    Bytes Saved() const { return tntest::SavedMapHeader(classes, objects); }
};

/// @return whether the input begins with whole tables, which it is behind then.
inline bool ReadTables(FuzzInput& input, ArchiveTables& tables) {
    constexpr std::size_t kObject = 10;
    for (unsigned int nClasses = input.Number<std::uint16_t>(); nClasses != 0; --nClasses) {
        const auto nLength = input.Number<std::uint32_t>();
        if (nLength > input.Left()) {
            return false;
        }
        const Bytes name = input.Take(nLength);
        tables.classes.emplace_back(name.begin(), name.end());
    }
    const std::size_t nObjects = input.Number<std::uint16_t>();
    if (nObjects * kObject > input.Left()) {
        return false;
    }
    for (std::size_t i = 0; i < nObjects; ++i) {
        const auto nIdentity = input.Number<std::uint64_t>();
        tables.objects.push_back({nIdentity, input.Number<std::uint16_t>()});
    }
    return true;
}

}  // namespace tnfuzz

#endif  // TNROBOTKERNEL_FUZZ_ARCHIVE_ARCHIVETABLES_H_
