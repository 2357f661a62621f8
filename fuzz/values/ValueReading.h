// Reads a value in every way that there is.

#ifndef TNROBOTKERNEL_FUZZ_VALUES_VALUEREADING_H_
#define TNROBOTKERNEL_FUZZ_VALUES_VALUEREADING_H_

#include <TnRobotKernel/TnRobotKernel.h>

#include "FuzzInput.h"

namespace tnfuzz {

inline void ReadNumbers(ITnRobotDataValue& value) {
    int nErrors[11] = {};
    int* pError = nErrors;
    double dSum = value.BoolData(pError++) ? 1 : 0;
    dSum += value.CharData(pError++);
    dSum += value.ByteData(pError++);
    dSum += value.ShortData(pError++);
    dSum += value.UShortData(pError++);
    dSum += value.IntData(pError++);
    dSum += value.UintData(pError++);
    dSum += static_cast<double>(value.FloatData(pError++));
    dSum += value.DoubleData(pError++);
    dSum += static_cast<double>(value.LonglongData(pError++));
    dSum += static_cast<double>(value.ULonglongData(pError));
    const auto nReaders = std::count(std::begin(nErrors), std::end(nErrors), 0);
    Require(nReaders <= 1, "a value has one type");
    Require(nReaders == 1 || dSum == 0, "readers of other types give nothing");
}

/// Touches every byte that a reader hands out.
inline void ReadEverything(ITnRobotDataValue& value) {
    int nTextLength = 0;
    unsigned int nLength = 0;
    int nError = 1;
    const char* lpszText = value.StringData(nTextLength, &nError);
    Require((nError == 0) == (lpszText != nullptr), "a text, or an error");
    if (nError == 0) {
        Touch(lpszText, static_cast<std::size_t>(nTextLength));
        Touch(lpszText, std::strlen(lpszText));
    }
    const void* pBlock = value.BlockData(nLength, &nError);
    if (nError == 0) {
        Touch(pBlock, nLength);
    }
    ReadNumbers(value);
    lpszText = value.Convert2String(&nLength);
    Require(nLength == 0 || std::strlen(lpszText) <= nLength - 1, "a text ends where it says");
    Touch(lpszText, nLength);
}

}  // namespace tnfuzz

#endif  // TNROBOTKERNEL_FUZZ_VALUES_VALUEREADING_H_
