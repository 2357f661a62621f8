// The same named values in the forms that the parties hold them in.

#ifndef TNROBOTKERNEL_BENCH_ARCHIVE_SAMPLES_H_
#define TNROBOTKERNEL_BENCH_ARCHIVE_SAMPLES_H_

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "values/MixedGroup.h"
#include "values/Variant.h"

namespace bench {

using VariantMap = std::unordered_map<std::string, Variant>;

/// @return what the group holds.
VariantMap ToMap(ITnRobotDataValueGroup& group);

/// @return whether both hold the same names and, saved, the same bytes. A loaded block answers with
///         the length that it had before it was loaded, so the bytes themselves say what arrived.
bool SavedAlike(ITnRobotDataValueGroup& first, ITnRobotDataValueGroup& second);

/// Adds one block of that many bytes under the name "block".
void AddBlock(ITnRobotDataValueGroup& group, std::size_t nBytes);

/// @return a group of blocks of at most 64 KiB that are nBytes together.
TnRobotPtr<ITnRobotDataValueGroup> GroupOfBlocks(std::size_t nBytes);

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_ARCHIVE_SAMPLES_H_
