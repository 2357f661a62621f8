// A data value that the library did not make.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_FAKES_FOREIGNVALUE_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_FAKES_FOREIGNVALUE_H_

#include "TnRobotKernel/values.h"

namespace tntest {

/// A value of somebody else's making.
class ForeignValue : public ITnRobotDataValue {
public:
    void ClearResource() override {}
    ETnRobotDataValueType GetDataValueType() override { return DATA_TYPE_INT; }
    bool BoolData(int*) override { return false; }
    char CharData(int*) override { return 0; }
    unsigned char ByteData(int*) override { return 0; }
    short ShortData(int*) override { return 0; }
    unsigned short UShortData(int*) override { return 0; }
    int IntData(int* pError) override {
        if (pError != nullptr) {
            *pError = 0;
        }
        return 4711;
    }
    unsigned int UintData(int*) override { return 0; }
    float FloatData(int*) override { return 0; }
    double DoubleData(int*) override { return 0; }
    long long LonglongData(int*) override { return 0; }
    unsigned long long ULonglongData(int*) override { return 0; }
    const char* StringData(int&, int*) override { return nullptr; }
    const void* BlockData(unsigned int&, int*) override { return nullptr; }
    const char* Convert2String(unsigned int*) override { return "foreign"; }
    void Copy(ITnRobotDataValue*) override {}
    ITnRobotDataValue* Clone() override { return nullptr; }
    int Serialize(ITnRobotArchive*) override { return 0; }
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_FAKES_FOREIGNVALUE_H_
