// The dictionary's operations: by value, then one setter and one reader for each type, then copying,
// saving and loading.

#include "values/TnRobotDataValueGroup.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>

#include "TnRobotKernel/archive.h"
#include "checked/TnChecked.h"
#include "core/TnExactCast.h"
#include "values/TnRobotDataValue.h"
#include "values/TnRobotDataValuePool.h"

namespace {

// A count in a file is not to be trusted with memory; this many entries cost less than 64 KiB.
constexpr int kMostExpected = 1000;

bool IsEmpty(const char* lpszName) {
    return lpszName == nullptr || lpszName[0] == '\0';
}

[[noreturn, gnu::cold, gnu::noinline]] void RefuseNullName() {
    throw std::logic_error("the name of a value is null");
}

// Typed setters and getters do not expect a null name: it is the caller's mistake.
inline std::string_view Name(const char* lpszName) {
    if (lpszName == nullptr) {
        RefuseNullName();
    }
    return lpszName;
}

// A text's count has 31 bits, its terminating zero included.
bool HasStorableLength(const std::string& strName) {
    return strName.size() < static_cast<std::size_t>(INT_MAX);
}

// Values of the library's own write nothing when they are too long. What an application's own value
// answers is not looked at, neither here nor when it is saved: callers rely on it.
bool IsStorable(const ITnRobotDataValue& value) {
    const auto* pValue = tnrobot::ExactCast<const CTnRobotDataValue>(&value);
    return pValue == nullptr || pValue->CanBeStored();
}

void SetError(int* pError) {
    if (pError != nullptr) {
        *pError = -1;
    }
}

}  // namespace

ITnRobotDataValueGroup::~ITnRobotDataValueGroup() = default;

const unsigned char CTnRobotDataValueGroup::m_byVersion = 1;

// The new reference exists before the old value goes, so that storing a value under the name that
// holds it already keeps it alive.
int CTnRobotDataValueGroup::SetValue(const char* lpszName, ITnRobotDataValue* pValue) {
    if (IsEmpty(lpszName) || pValue == nullptr) {
        return -1;
    }
    m_values.Set(lpszName, tn::Retain(pValue));
    return 0;
}

int CTnRobotDataValueGroup::GetValue(const char* lpszName, ITnRobotDataValue** ppValue) {
    if (IsEmpty(lpszName) || ppValue == nullptr) {
        return -1;
    }
    ITnRobotDataValue* pValue = _Find(lpszName);
    if (pValue == nullptr) {
        return -1;
    }
    *ppValue = tn::Retain(pValue).detach();
    return 0;
}

bool CTnRobotDataValueGroup::HasValue(const char* lpszName) {
    return !IsEmpty(lpszName) && m_values.Find(lpszName) != nullptr;
}

int CTnRobotDataValueGroup::RemoveValue(const char* lpszName) {
    return !IsEmpty(lpszName) && m_values.Remove(lpszName) ? 0 : -1;
}

int CTnRobotDataValueGroup::ClearAllValues() {
    m_values.Clear();
    return 0;
}

int CTnRobotDataValueGroup::GetAllDataName(std::vector<std::pair<std::string, ETnRobotDataValueType>>& names) {
    for (const auto& [strName, value] : m_values.Entries()) {
        names.emplace_back(strName, value ? value->GetDataValueType() : DATA_TYPE_NONE);
    }
    return static_cast<int>(names.size());
}

ETnRobotDataValueType CTnRobotDataValueGroup::GetDataValueType(const char* lpszName) {
    ITnRobotDataValue* pValue = _Find(Name(lpszName));
    return pValue != nullptr ? pValue->GetDataValueType() : DATA_TYPE_NONE;
}

ITnRobotDataValue* CTnRobotDataValueGroup::_Find(std::string_view name) const {
    const auto* pEntry = m_values.Find(name);
    return pEntry != nullptr ? pEntry->m_value.get() : nullptr;
}

// The pool is asked for at each call: it may be gone by now.
template <typename... Args, typename... Given>
int CTnRobotDataValueGroup::_SetNew(const char* lpszName, int (CTnRobotDataValuePool::*pfnQuery)(Args...),
                                    Given... args) {
    const std::string_view name = Name(lpszName);
    CTnRobotDataValuePool* pPool = TnQueryDataValuePool();
    Value value;
    if (pPool == nullptr || (pPool->*pfnQuery)(args..., value.put()) != 0) {
        return -1;
    }
    m_values.Set(name, std::move(value));
    return 0;
}

template <typename Result>
Result CTnRobotDataValueGroup::_Read(const char* lpszName, Result (ITnRobotDataValue::*pfnRead)(int*),
                                     int* pError) const {
    ITnRobotDataValue* pValue = _Find(Name(lpszName));
    if (pValue == nullptr) {
        SetError(pError);
        return Result{};
    }
    return (pValue->*pfnRead)(pError);
}

int CTnRobotDataValueGroup::SetValue(const char* lpszName, bool bValue) {
    return _SetNew(lpszName, &CTnRobotDataValuePool::QueryBoolData, bValue);
}

bool CTnRobotDataValueGroup::BoolData(const char* lpszName, int* pError) {
    return _Read(lpszName, &ITnRobotDataValue::BoolData, pError);
}

int CTnRobotDataValueGroup::SetValue(const char* lpszName, char chValue) {
    return _SetNew(lpszName, &CTnRobotDataValuePool::QueryCharData, chValue);
}

char CTnRobotDataValueGroup::CharData(const char* lpszName, int* pError) {
    return _Read(lpszName, &ITnRobotDataValue::CharData, pError);
}

int CTnRobotDataValueGroup::SetValue(const char* lpszName, unsigned char byValue) {
    return _SetNew(lpszName, &CTnRobotDataValuePool::QueryByteData, byValue);
}

unsigned char CTnRobotDataValueGroup::ByteData(const char* lpszName, int* pError) {
    return _Read(lpszName, &ITnRobotDataValue::ByteData, pError);
}

int CTnRobotDataValueGroup::SetValue(const char* lpszName, short nValue) {
    return _SetNew(lpszName, &CTnRobotDataValuePool::QueryShortData, nValue);
}

short CTnRobotDataValueGroup::ShortData(const char* lpszName, int* pError) {
    return _Read(lpszName, &ITnRobotDataValue::ShortData, pError);
}

int CTnRobotDataValueGroup::SetValue(const char* lpszName, unsigned short nValue) {
    return _SetNew(lpszName, &CTnRobotDataValuePool::QueryUShortData, nValue);
}

unsigned short CTnRobotDataValueGroup::UShortData(const char* lpszName, int* pError) {
    return _Read(lpszName, &ITnRobotDataValue::UShortData, pError);
}

int CTnRobotDataValueGroup::SetValue(const char* lpszName, int nValue) {
    return _SetNew(lpszName, &CTnRobotDataValuePool::QueryIntData, nValue);
}

int CTnRobotDataValueGroup::IntData(const char* lpszName, int* pError) {
    return _Read(lpszName, &ITnRobotDataValue::IntData, pError);
}

int CTnRobotDataValueGroup::SetValue(const char* lpszName, unsigned int nValue) {
    return _SetNew(lpszName, &CTnRobotDataValuePool::QueryUintData, nValue);
}

unsigned int CTnRobotDataValueGroup::UintData(const char* lpszName, int* pError) {
    return _Read(lpszName, &ITnRobotDataValue::UintData, pError);
}

int CTnRobotDataValueGroup::SetValue(const char* lpszName, float fValue) {
    return _SetNew(lpszName, &CTnRobotDataValuePool::QueryFloatData, fValue);
}

float CTnRobotDataValueGroup::FloatData(const char* lpszName, int* pError) {
    return _Read(lpszName, &ITnRobotDataValue::FloatData, pError);
}

int CTnRobotDataValueGroup::SetValue(const char* lpszName, double dValue) {
    return _SetNew(lpszName, &CTnRobotDataValuePool::QueryDoubleData, dValue);
}

double CTnRobotDataValueGroup::DoubleData(const char* lpszName, int* pError) {
    return _Read(lpszName, &ITnRobotDataValue::DoubleData, pError);
}

int CTnRobotDataValueGroup::SetValue(const char* lpszName, long long nValue) {
    return _SetNew(lpszName, &CTnRobotDataValuePool::QueryLonglongData, nValue);
}

long long CTnRobotDataValueGroup::LonglongData(const char* lpszName, int* pError) {
    return _Read(lpszName, &ITnRobotDataValue::LonglongData, pError);
}

int CTnRobotDataValueGroup::SetValue(const char* lpszName, unsigned long long nValue) {
    return _SetNew(lpszName, &CTnRobotDataValuePool::QueryULonglongData, nValue);
}

unsigned long long CTnRobotDataValueGroup::ULonglongData(const char* lpszName, int* pError) {
    return _Read(lpszName, &ITnRobotDataValue::ULonglongData, pError);
}

int CTnRobotDataValueGroup::SetValue(const char* lpszName, const char* lpszValue) {
    return _SetNew(lpszName, &CTnRobotDataValuePool::QueryStringData, lpszValue);
}

const char* CTnRobotDataValueGroup::StringData(const char* lpszName, int* pError) {
    ITnRobotDataValue* pValue = _Find(Name(lpszName));
    if (pValue == nullptr) {
        SetError(pError);
        return nullptr;
    }
    int nLength = 0;
    return pValue->StringData(nLength, pError);
}

int CTnRobotDataValueGroup::SetValue(const char* lpszName, const void* pData, unsigned int nSize) {
    using BytesQuery = int (CTnRobotDataValuePool::*)(const void*, unsigned int, ITnRobotDataValue**);
    return _SetNew(lpszName, static_cast<BytesQuery>(&CTnRobotDataValuePool::QueryBlockData), pData, nSize);
}

const void* CTnRobotDataValueGroup::BlockData(const char* lpszName, unsigned int& nLength, int* pError) {
    ITnRobotDataValue* pValue = _Find(Name(lpszName));
    if (pValue == nullptr) {
        SetError(pError);
        return nullptr;
    }
    return pValue->BlockData(nLength, pError);
}

// The group is emptied before the source is read, so a group copied onto itself ends empty:
// applications use that. Do not "fix".
void CTnRobotDataValueGroup::Copy(ITnRobotDataValueGroup* pSource) {
    auto* pGroup = tnrobot::ExactCast<CTnRobotDataValueGroup>(pSource);
    if (pGroup == nullptr) {
        return;
    }
    m_values.Clear();
    m_values.InsertClones(pGroup->m_values,
                          [](const Value& value) { return tn::Adopt(value ? value->Clone() : nullptr); });
}

ITnRobotDataValueGroup* CTnRobotDataValueGroup::Clone() {
    auto clone = tn::Adopt(tnrobot::Watch(new CTnRobotDataValueGroup));
    clone->Copy(this);
    return clone.detach();
}

int CTnRobotDataValueGroup::Serialize(ITnRobotArchive* pArchive) {
    if (pArchive == nullptr) {
        return 0;
    }
    return pArchive->IsLoading() ? _Load(*pArchive) : _Store(*pArchive);
}

// An entry without its value would take every later one with it when the file is read, so all of them
// are looked at before the first byte.
bool CTnRobotDataValueGroup::_CanBeStored() const {
    const auto& entries = m_values.Entries();
    return std::all_of(entries.begin(), entries.end(), [](const tnrobot::NamedValues::Entry& entry) {
        return HasStorableLength(entry.m_strName) && (!entry.m_value || IsStorable(*entry.m_value.get()));
    });
}

// Single writes are not checked: a storing pass always runs to its end.
int CTnRobotDataValueGroup::_Store(ITnRobotArchive& archive) const {
    if (!_CanBeStored()) {
        return 0;
    }
    const int nCount = static_cast<int>(m_values.Entries().size());
    archive.Write(&m_byVersion, sizeof(m_byVersion));
    archive.Write(&nCount, sizeof(nCount));
    for (const auto& [strName, value] : m_values.Entries()) {
        archive.WriteString(strName.c_str());
        if (value) {
            value->Serialize(&archive);
        } else {
            CTnRobotDataValue empty;
            empty.ClearResource();
            empty.Serialize(&archive);
        }
    }
    return 1;
}

int CTnRobotDataValueGroup::_Load(ITnRobotArchive& archive) {
    unsigned char byVersion = 0;
    if (archive.Read(&byVersion, sizeof(byVersion)) < 1 || byVersion == 0 || byVersion > m_byVersion) {
        return 0;
    }
    int nCount = 0;
    if (archive.Read(&nCount, sizeof(nCount)) < static_cast<long long>(sizeof(nCount))) {
        return 0;
    }
    m_values.Reserve(m_values.Entries().size() + static_cast<std::size_t>(std::clamp(nCount, 0, kMostExpected)));
    for (int i = 0; i < nCount; ++i) {
        if (!_LoadEntry(archive)) {
            return 0;
        }
    }
    return 1;
}

// Loaded values do not come from the pool. Entries that are there already win over loaded ones of
// the same name: loading merges. Whether the value itself loads well is not checked.
bool CTnRobotDataValueGroup::_LoadEntry(ITnRobotArchive& archive) {
    int nLength = 0;
    int nError = 0;
    const char* lpszName = archive.ReadString(nLength, &nError);
    if (nError != 0) {
        return false;
    }
    // A stored name is bounded by its length; nothing says that it holds a terminating zero.
    std::string strName(lpszName != nullptr ? lpszName : "",
                        lpszName != nullptr ? strnlen(lpszName, static_cast<std::size_t>(nLength)) : 0);
    Value value = tn::Adopt(tnrobot::Watch(new CTnRobotDataValue));
    value->Serialize(&archive);
    m_values.Insert(std::move(strName), std::move(value));
    return true;
}

int TnCreateRobotValueDataGroup(ITnRobotDataValueGroup** ppGroup) {
    if (TnQueryDataValuePool() == nullptr) {
        return 0;
    }
    *ppGroup = tnrobot::Watch(new CTnRobotDataValueGroup);
    return 1;
}
