#include "Values.h"

#include <cmath>

#include "Library.h"
#include "Terminal.h"

namespace {

// JSON has no number for what is not finite.
Json Number(double dValue) {
    return std::isfinite(dValue) ? Json(dValue) : Json(nullptr);
}

Json ReadAs(ITnRobotDataValue& value, const Entry& entry) {
    switch (value.GetDataValueType()) {
        case DATA_TYPE_BOOL:
            return value.BoolData(nullptr);
        case DATA_TYPE_SHORT:
            return value.ShortData(nullptr);
        case DATA_TYPE_USHORT:
            return value.UShortData(nullptr);
        case DATA_TYPE_INT:
            return value.IntData(nullptr);
        case DATA_TYPE_UINT:
            return value.UintData(nullptr);
        case DATA_TYPE_FLOAT:
            return Number(static_cast<double>(value.FloatData(nullptr)));
        case DATA_TYPE_DOUBLE:
            return Number(value.DoubleData(nullptr));
        case DATA_TYPE_LONGLONG:
            return value.LonglongData(nullptr);
        case DATA_TYPE_ULONGLONG:
            return value.ULonglongData(nullptr);
        case DATA_TYPE_BYTE:
            return value.ByteData(nullptr);
        case DATA_TYPE_STRING:
        case DATA_TYPE_BLOCK:
        case DATA_TYPE_CHAR:
            return TextJson(ValueText(entry));
        case DATA_TYPE_NONE:
            break;
    }
    return nullptr;
}

}  // namespace

std::string Hex(ByteRange bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string strText;
    strText.reserve(2 * bytes.nSize);
    for (std::size_t i = 0; i < bytes.nSize; ++i) {
        strText += kDigits[bytes.pData[i] / 16];
        strText += kDigits[bytes.pData[i] % 16];
    }
    return strText;
}

std::string ValueText(const Entry& entry) {
    const TnRobotPtr<ITnRobotDataValue> value = MakeValue(entry);
    return value ? value->Convert2String(nullptr) : Hex(entry.bytes);
}

Json ValueJson(const Entry& entry) {
    const TnRobotPtr<ITnRobotDataValue> value = MakeValue(entry);
    return value ? ReadAs(*value, entry) : Json(nullptr);
}

Json TextJson(const std::string& strText) {
    return IsUtf8(strText) ? strText : Printable(strText);
}
