// Values of every type for table-driven tests.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_VALUES_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_VALUES_H_

#include <functional>
#include <string>
#include <vector>

#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/values.h"
#include "support/bytes/Bytes.h"

namespace tntest {

using Value = TnRobotPtr<ITnRobotDataValue>;

/// Calls a value creation function. @return the value, or null when its result is not 0.
template <typename Function, typename... Args>
Value Made(Function pfnCreate, Args... args) {
    ITnRobotDataValue* pValue = nullptr;
    return tn::Adopt(pfnCreate(args..., &pValue) == 0 ? pValue : nullptr);
}

inline Value BoolValue(bool bValue) {
    return Made(TnCreateRobotBoolData, bValue);
}
inline Value IntValue(int nValue) {
    return Made(TnCreateRobotIntData, nValue);
}
inline Value DoubleValue(double dValue) {
    return Made(TnCreateRobotDoubleData, dValue);
}
inline Value TextValue(const char* lpszValue) {
    return Made(TnCreateRobotStringData, lpszValue);
}
inline Value BlockValue(const Bytes& bytes) {
    ITnRobotDataValue* pValue = nullptr;
    const int nResult = TnCreateRobotBlockData(bytes.data(), static_cast<unsigned int>(bytes.size()), &pValue);
    return tn::Adopt(nResult == 0 ? pValue : nullptr);
}

/// One value of each type, with everything known about it.
struct ValueSample {
    const char* lpszName;
    ETnRobotDataValueType eType;
    std::function<Value()> create;
    Bytes bytes;          ///< what it stores
    std::string strText;  ///< its text form
};

inline std::vector<ValueSample> ValueSamples() {
    return {
        {"bool", DATA_TYPE_BOOL, [] { return BoolValue(true); }, FromHex("01"), "1"},
        {"short", DATA_TYPE_SHORT, [] { return Made(TnCreateRobotShortData, short{-2}); }, FromHex("FEFF"), "-2"},
        {"ushort", DATA_TYPE_USHORT, [] { return Made(TnCreateRobotUShortData, static_cast<unsigned short>(65534)); },
         FromHex("FEFF"), "65534"},
        {"int", DATA_TYPE_INT, [] { return IntValue(-305419896); }, FromHex("88A9CBED"), "-305419896"},
        {"uint", DATA_TYPE_UINT, [] { return Made(TnCreateRobotUintData, 0xFEDCBA98U); }, FromHex("98BADCFE"),
         "4275878552"},
        {"float", DATA_TYPE_FLOAT, [] { return Made(TnCreateRobotFloatData, -1.5F); }, FromHex("0000C0BF"),
         "-1.500000"},
        {"double", DATA_TYPE_DOUBLE, [] { return DoubleValue(0.1); }, FromHex("9A9999999999B93F"), "0.100000"},
        {"longlong", DATA_TYPE_LONGLONG, [] { return Made(TnCreateRobotLonglongData, -2LL); },
         FromHex("FEFFFFFFFFFFFFFF"), "-2"},
        {"ulonglong", DATA_TYPE_ULONGLONG, [] { return Made(TnCreateRobotULonglongData, 0x0102030405060708ULL); },
         FromHex("0807060504030201"), "72623859790382856"},
        {"string", DATA_TYPE_STRING, [] { return TextValue("ab"); }, FromHex("616200"), "ab"},
        {"block", DATA_TYPE_BLOCK, [] { return BlockValue(FromHex("0AFF")); }, FromHex("0AFF"), "0aff"},
        {"char", DATA_TYPE_CHAR, [] { return Made(TnCreateRobotCharData, 'x'); }, FromHex("7800"), "x"},
        {"byte", DATA_TYPE_BYTE, [] { return Made(TnCreateRobotByteData, static_cast<unsigned short>(200)); },
         FromHex("C8"), "200"},
    };
}

/// The outcome of reading a value with one of its readers.
struct Reading {
    int nError;
    bool bZero;   ///< the result is 0 or null
    Bytes bytes;  ///< the result's bytes, up to the reported length for pointers
};

/// Reads with the reader of the given type.
inline Reading ReadAs(ITnRobotDataValue& value, ETnRobotDataValueType eType) {
    int nError = 77;
    const auto scalar = [&](auto result) { return Reading{nError, result == 0, BytesOf(result)}; };
    const auto run = [&](const void* pData, long long nLength) {
        if (pData == nullptr) {
            return Reading{nError, true, {}};
        }
        const unsigned char* pFirst = static_cast<const unsigned char*>(pData);
        return Reading{nError, false, Bytes(pFirst, pFirst + nLength)};
    };
    switch (eType) {
        case DATA_TYPE_BOOL: {
            const bool bResult = value.BoolData(&nError);
            return {nError, !bResult, U8(bResult ? 1 : 0)};
        }
        case DATA_TYPE_CHAR:
            return scalar(value.CharData(&nError));
        case DATA_TYPE_BYTE:
            return scalar(value.ByteData(&nError));
        case DATA_TYPE_SHORT:
            return scalar(value.ShortData(&nError));
        case DATA_TYPE_USHORT:
            return scalar(value.UShortData(&nError));
        case DATA_TYPE_INT:
            return scalar(value.IntData(&nError));
        case DATA_TYPE_UINT:
            return scalar(value.UintData(&nError));
        case DATA_TYPE_FLOAT:
            return scalar(value.FloatData(&nError));
        case DATA_TYPE_DOUBLE:
            return scalar(value.DoubleData(&nError));
        case DATA_TYPE_LONGLONG:
            return scalar(value.LonglongData(&nError));
        case DATA_TYPE_ULONGLONG:
            return scalar(value.ULonglongData(&nError));
        case DATA_TYPE_STRING: {
            int nLength = 0;
            const char* lpszResult = value.StringData(nLength, &nError);
            return run(lpszResult, nLength);
        }
        case DATA_TYPE_BLOCK: {
            unsigned int nLength = 0;
            const void* pResult = value.BlockData(nLength, &nError);
            return run(pResult, nLength);
        }
        case DATA_TYPE_NONE:
            break;
    }
    return {nError, true, {}};
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_VALUES_H_
