#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "TnRobotKernel/utilities.h"

namespace {

using Opera = TnRobotSQLUtils::ETnRobotSQLOpera;

}  // namespace

TEST(SQLUtils, APatternIsQuotedAsItIs) {
    const struct {
        const char* lpszField;
        const char* lpszValue;
        const char* lpszFilter;
    } cases[] = {
        {"name", "Tom", "name LIKE 'Tom'"},
        {"name", "50%", "name LIKE '50%'"},
        {"name", "O'Neill", "name LIKE 'O'Neill'"},
        {"name", "", "name LIKE ''"},
        {"", "", " LIKE ''"},
        {"a b", "%s_\\", "a b LIKE '%s_\\'"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(TnRobotSQLUtils::CreateFilter(test.lpszField, test.lpszValue), test.lpszFilter);
    }
}

TEST(SQLUtils, AComparedValueIsNotQuoted) {
    EXPECT_EQ(TnRobotSQLUtils::CreateFilter("id", TnRobotSQLUtils::SQL_OPERA_GREATER, "10"), "id > 10");
    EXPECT_EQ(TnRobotSQLUtils::CreateFilter("id", TnRobotSQLUtils::SQL_OPERA_LESS, "10"), "id < 10");
    EXPECT_EQ(TnRobotSQLUtils::CreateFilter("id", static_cast<Opera>(1), "'x'"), "id > 'x'");
    EXPECT_EQ(TnRobotSQLUtils::CreateFilter("id", static_cast<Opera>(2), ""), "id < ");
}

TEST(SQLUtils, AnyOtherComparisonGivesNoFilterAndReadsNoText) {
    for (const int nOpera : {0, 3, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(TnRobotSQLUtils::CreateFilter("id", static_cast<Opera>(nOpera), "10"), "") << nOpera;
        EXPECT_EQ(TnRobotSQLUtils::CreateFilter(nullptr, static_cast<Opera>(nOpera), nullptr), "") << nOpera;
    }
}

TEST(SQLUtils, ANullTextThrows) {
    const char* const lpszNull = nullptr;
    EXPECT_THROW(TnRobotSQLUtils::CreateFilter(lpszNull, "Tom"), std::logic_error);
    EXPECT_THROW(TnRobotSQLUtils::CreateFilter("name", lpszNull), std::logic_error);
    EXPECT_THROW(TnRobotSQLUtils::CreateFilter(lpszNull, TnRobotSQLUtils::SQL_OPERA_LESS, "1"), std::logic_error);
    EXPECT_THROW(TnRobotSQLUtils::CreateFilter("name", TnRobotSQLUtils::SQL_OPERA_LESS, lpszNull), std::logic_error);
}

TEST(SQLUtils, LongTextsAreCopiedWhole) {
    const std::string strLong(100000, 'v');
    EXPECT_EQ(TnRobotSQLUtils::CreateFilter("f", strLong.c_str()), "f LIKE '" + strLong + "'");
}
