/// @file
/// Calls of the system that a signal does not end. Used by what saves files.

#ifndef TNROBOTKERNEL_TN_DETAIL_UNINTERRUPTED_H_
#define TNROBOTKERNEL_TN_DETAIL_UNINTERRUPTED_H_

#include <cerrno>

namespace tn::detail {

// Repeats a call that a signal has interrupted, which is no failure. Not for close, which has done its work then.
template <typename Call>
auto Uninterrupted(const Call& call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_UNINTERRUPTED_H_
