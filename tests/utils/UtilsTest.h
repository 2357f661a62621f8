// What the tests of paths and directories share.

#ifndef TNROBOTKERNEL_TESTS_UTILS_UTILSTEST_H_
#define TNROBOTKERNEL_TESTS_UTILS_UTILSTEST_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "TnRobotKernel/utilities.h"

namespace tntest {

// Larger than a path buffer, to see that nothing is written behind it.
struct PathBuffer {
    static constexpr char kUnwritten = '#';

    PathBuffer() { std::memset(sz, kUnwritten, sizeof(sz)); }
    bool IsUntouched() const { return IsUntouchedFrom(0); }
    bool IsUntouchedFrom(std::size_t nFirst) const {
        return std::all_of(sz + nFirst, sz + sizeof(sz), [](char ch) { return ch == kUnwritten; });
    }

    char sz[600];
};

// The directories are computed once for a process, so each test of that runs in a process of its
// own, started anew.
class FreshProcess : public testing::Test {
protected:
    FreshProcess() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    // Loads, so to say, the library in another directory.
    static void StartIn(const std::string& strDirectory) {
        std::filesystem::current_path(strDirectory);
        TnRobotUtils::Init();
    }
    [[noreturn]] static void Finish() {
        TnRobotUtils::Destroy();
        std::exit(HasFailure() ? 1 : 0);
    }
};

#define EXPECT_TO_PASS_IN_FRESH_PROCESS(body) \
    EXPECT_EXIT(                              \
        {                                     \
            body();                           \
            Finish();                         \
        },                                    \
        testing::ExitedWithCode(0), "")

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_UTILS_UTILSTEST_H_
