// What a user would otherwise hold a typed value in.

#ifndef TNROBOTKERNEL_BENCH_VALUES_VARIANT_H_
#define TNROBOTKERNEL_BENCH_VALUES_VARIANT_H_

#include <string>
#include <variant>
#include <vector>

namespace bench {

/// The thirteen types of a data value.
using Variant = std::variant<bool, char, unsigned char, short, unsigned short, int, unsigned int, float, double,
                             long long, unsigned long long, std::string, std::vector<unsigned char>>;

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_VALUES_VARIANT_H_
