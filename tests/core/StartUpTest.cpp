#include <gtest/gtest.h>
#include <unistd.h>

#include "TnRobotKernel/TnRobotKernel.h"

TEST(StartUp, RecordsTheWorkDirectoryAtLoad) {
    char szDirectory[4096] = {};
    ASSERT_NE(getcwd(szDirectory, sizeof(szDirectory)), nullptr);
    EXPECT_STREQ(TnRobotUtils::GetWorkDir(), szDirectory);
}

TEST(StartUp, ASecondInitKeepsTheValuePool) {
    ITnRobotDataValue* pValue = nullptr;
    ASSERT_EQ(TnCreateRobotIntData(5, &pValue), 0);
    TnRobotUtils::Init();
    int nError = -1;
    EXPECT_EQ(pValue->IntData(&nError), 5);
    EXPECT_EQ(nError, 0);
    EXPECT_EQ(pValue->Release(), 1);
}
