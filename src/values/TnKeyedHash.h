// A hash that nobody outside the process can foretell.

#ifndef TNROBOTKERNEL_SRC_VALUES_TNKEYEDHASH_H_
#define TNROBOTKERNEL_SRC_VALUES_TNKEYEDHASH_H_

#include <cstdint>
#include <string_view>

namespace tnrobot {

/// The secret of a keyed hash.
struct HashKey {
    std::uint64_t m_nFirst;
    std::uint64_t m_nSecond;
};

/// SipHash-1-3: without the key nobody can choose texts whose hashes collide. Thread-safe.
std::uint64_t KeyedHash(const HashKey& key, std::string_view text);

/// @return the key of this process, random and the same at each call. Thread-safe; never fails.
const HashKey& ProcessHashKey();

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_VALUES_TNKEYEDHASH_H_
