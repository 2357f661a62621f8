#include "Values.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "Library.h"

namespace {

using Json = nlohmann::json;

// JSON has no number for what is not finite.
Json Number(double dValue) {
    return std::isfinite(dValue) ? Json(dValue) : Json(nullptr);
}

Json ReadScalar(ITnRobotDataValue& value) {
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
        default:
            return nullptr;
    }
}

}  // namespace

std::string HexDigits(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string strText;
    strText.reserve(2 * bytes.size());
    for (const char ch : bytes) {
        strText += kDigits[static_cast<unsigned char>(ch) / 16];
        strText += kDigits[static_cast<unsigned char>(ch) % 16];
    }
    return strText;
}

ValueText::ValueText(const Entry& entry) : m_stored(entry.bytes.View()) {
    if (entry.bReadable && entry.nType == kStringType) {
        m_stored = m_stored.substr(0, m_stored.find('\0'));
        return;
    }
    const TnRobotPtr<ITnRobotDataValue> value = MakeScalar(entry);
    m_bHex = !value;
    m_bMade = static_cast<bool>(value);
    if (value) {
        m_strMade = value->Convert2String(nullptr);
    }
}

nlohmann::json ScalarJson(const Entry& entry) {
    const TnRobotPtr<ITnRobotDataValue> value = MakeScalar(entry);
    return value ? ReadScalar(*value) : Json(nullptr);
}

bool IsTextInJson(const Entry& entry) {
    return entry.bReadable && (entry.nType == kStringType || entry.nType == kBlockType || entry.nType == kCharType);
}
