// Counts what inputs reach, for fuzzers under ThreadSanitizer: libFuzzer's own counters are plain bytes within
// the code, and all threads write to them. These are written where the sanitizer does not look; a count
// that is lost now and then does no harm.

#include <cstddef>
#include <cstdint>

namespace {

constexpr std::size_t kCounters = std::size_t{1} << 16U;

// libFuzzer takes what lies in this section for counters, and clears them before each input.
__attribute__((section("__libfuzzer_extra_counters"))) std::uint8_t g_counters[kCounters];

}  // namespace

// Called at every edge: the linker puts it where the compiler calls __sanitizer_cov_trace_pc.
extern "C" __attribute__((no_sanitize("thread", "coverage"))) void __wrap___sanitizer_cov_trace_pc() {
    const auto nEdge = reinterpret_cast<std::uintptr_t>(__builtin_return_address(0));
    ++g_counters[(nEdge ^ nEdge >> 16U) % kCounters];
}
