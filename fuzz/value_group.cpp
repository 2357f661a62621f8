// Loads a value group from untrusted bytes and reads everything that it then holds.

#include <cstring>

#include "FuzzArchive.h"

namespace {

// Touches every byte that a reader hands out, so that a pointer outside memory is noticed.
unsigned int Touch(const void* pData, std::size_t nSize) {
    unsigned int nSum = 0;
    const auto* pBytes = static_cast<const volatile unsigned char*>(pData);
    for (std::size_t i = 0; pBytes != nullptr && i < nSize; ++i) {
        nSum += pBytes[i];
    }
    return nSum;
}

void ReadValue(ITnRobotDataValue& value) {
    int nTextLength = 0;
    unsigned int nLength = 0;
    int nError = 0;
    const char* lpszText = value.StringData(nTextLength, &nError);
    if (nError == 0) {
        Touch(lpszText, static_cast<std::size_t>(nTextLength));
        Touch(lpszText, std::strlen(lpszText));
    }
    const void* pBlock = value.BlockData(nLength, &nError);
    if (nError == 0) {
        Touch(pBlock, nLength);
    }
    value.ULonglongData(&nError);
    value.DoubleData(&nError);
    value.CharData(&nError);
    Touch(value.Convert2String(&nLength), nLength);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    ITnRobotDataValueGroup* pGroup = nullptr;
    TnCreateRobotValueDataGroup(&pGroup);
    const FuzzArchive archive(pData, nSize);
    pGroup->Serialize(archive.Get());

    std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
    pGroup->GetAllDataName(names);
    for (const auto& name : names) {
        ITnRobotDataValue* pValue = nullptr;
        if (pGroup->GetValue(name.first.c_str(), &pValue) == 0) {
            ReadValue(*pValue);
            ITnRobotDataValue* pClone = pValue->Clone();
            ReadValue(*pClone);
            pClone->Release();
            pValue->Release();
        }
    }
    pGroup->Release();
    return 0;
}
