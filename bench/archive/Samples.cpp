#include "archive/Samples.h"

#include <algorithm>
#include <utility>

namespace bench {

namespace {

Variant ToVariant(ITnRobotDataValue& value) {
    int nError = 0;
    int nLength = 0;
    unsigned int nBytes = 0;
    switch (value.GetDataValueType()) {
        case DATA_TYPE_BOOL:
            return value.BoolData(&nError);
        case DATA_TYPE_CHAR:
            return value.CharData(&nError);
        case DATA_TYPE_BYTE:
            return value.ByteData(&nError);
        case DATA_TYPE_SHORT:
            return value.ShortData(&nError);
        case DATA_TYPE_USHORT:
            return value.UShortData(&nError);
        case DATA_TYPE_INT:
            return value.IntData(&nError);
        case DATA_TYPE_UINT:
            return value.UintData(&nError);
        case DATA_TYPE_FLOAT:
            return value.FloatData(&nError);
        case DATA_TYPE_DOUBLE:
            return value.DoubleData(&nError);
        case DATA_TYPE_LONGLONG:
            return value.LonglongData(&nError);
        case DATA_TYPE_ULONGLONG:
            return value.ULonglongData(&nError);
        case DATA_TYPE_STRING:
            return std::string(value.StringData(nLength, &nError));
        default:
            break;
    }
    const auto* pBytes = static_cast<const unsigned char*>(value.BlockData(nBytes, &nError));
    return std::vector<unsigned char>(pBytes, pBytes + nBytes);
}

std::vector<unsigned char> SavedBytes(ITnRobotDataValueGroup& group, const char* lpszName) {
    ITnRobotDataValue* pValue = nullptr;
    if (group.GetValue(lpszName, &pValue) != 0) {
        return {};
    }
    const TnRobotPtr<ITnRobotDataValue> value(pValue, tn::kAdopt);
    static std::vector<unsigned char> s_room(std::size_t{128} << 10);
    const auto file = Make<ITnRobotMemFile>(TnCreateRobotMemFile);
    const auto archive = Make<ITnRobotArchive>(TnCreateRobotArchive);
    file->OpenMemFile(s_room.data(), static_cast<long long>(s_room.size()), true);
    archive->Attach(file.get(), true);
    value->Serialize(archive.get());
    archive->Detach();
    return std::vector<unsigned char>(s_room.begin(), s_room.begin() + file->GetTotleLen());
}

}  // namespace

bool SavedAlike(ITnRobotDataValueGroup& first, ITnRobotDataValueGroup& second) {
    std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
    std::vector<std::pair<std::string, ETnRobotDataValueType>> others;
    first.GetAllDataName(names);
    second.GetAllDataName(others);
    return names.size() == others.size() && std::all_of(names.begin(), names.end(), [&](const auto& name) {
               return SavedBytes(first, name.first.c_str()) == SavedBytes(second, name.first.c_str());
           });
}

VariantMap ToMap(ITnRobotDataValueGroup& group) {
    std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
    group.GetAllDataName(names);
    VariantMap map;
    for (const auto& [strName, eType] : names) {
        ITnRobotDataValue* pValue = nullptr;
        Require(group.GetValue(strName.c_str(), &pValue) == 0, "a value is missing");
        const TnRobotPtr<ITnRobotDataValue> value(pValue, tn::kAdopt);
        map.emplace(strName, ToVariant(*value));
    }
    return map;
}

void AddBlock(ITnRobotDataValueGroup& group, std::size_t nBytes) {
    std::vector<unsigned char> block(nBytes);
    for (std::size_t i = 0; i < nBytes; ++i) {
        block[i] = static_cast<unsigned char>(i * 31 + i / 256);
    }
    group.SetValue("block", block.data(), static_cast<unsigned int>(nBytes));
}

TnRobotPtr<ITnRobotDataValueGroup> GroupOfBlocks(std::size_t nBytes) {
    constexpr std::size_t kBlock = std::size_t{64} << 10;
    auto group = Make<ITnRobotDataValueGroup>(TnCreateRobotValueDataGroup);
    const std::vector<unsigned char> block(std::min(nBytes, kBlock), 7);
    const auto names = Names(static_cast<int>(nBytes / block.size()));
    for (const std::string& strName : names) {
        group->SetValue(strName.c_str(), block.data(), static_cast<unsigned int>(block.size()));
    }
    return group;
}

}  // namespace bench
