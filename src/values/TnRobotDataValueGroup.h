// The named group of values.

#ifndef TNROBOTKERNEL_SRC_VALUES_TNROBOTDATAVALUEGROUP_H_
#define TNROBOTKERNEL_SRC_VALUES_TNROBOTDATAVALUEGROUP_H_

#include <string_view>

#include "TnRobotKernel/values.h"
#include "values/TnNamedValues.h"

class CTnRobotDataValuePool;

/// A dictionary of values. Saving and enumerating follow the dictionary's own order.
///
/// An entry may hold no value (a copy made while there was no value pool): it enumerates and is
/// saved as type NONE, and reads as missing.
///
/// Threads: externally synchronised, but for the reference count.
class CTnRobotDataValueGroup final : public ITnRobotDataValueGroup {
public:
    static const unsigned char m_byVersion;  ///< version byte of the saved form

    int SetValue(const char* lpszName, ITnRobotDataValue* pValue) override;
    int GetValue(const char* lpszName, ITnRobotDataValue** ppValue) override;
    bool HasValue(const char* lpszName) override;
    int RemoveValue(const char* lpszName) override;
    int ClearAllValues() override;
    int GetAllDataName(std::vector<std::pair<std::string, ETnRobotDataValueType>>& names) override;
    ETnRobotDataValueType GetDataValueType(const char* lpszName) override;

    int SetValue(const char* lpszName, bool bValue) override;
    bool BoolData(const char* lpszName, int* pError) override;
    int SetValue(const char* lpszName, char chValue) override;
    char CharData(const char* lpszName, int* pError) override;
    int SetValue(const char* lpszName, unsigned char byValue) override;
    unsigned char ByteData(const char* lpszName, int* pError) override;
    int SetValue(const char* lpszName, short nValue) override;
    short ShortData(const char* lpszName, int* pError) override;
    int SetValue(const char* lpszName, unsigned short nValue) override;
    unsigned short UShortData(const char* lpszName, int* pError) override;
    int SetValue(const char* lpszName, int nValue) override;
    int IntData(const char* lpszName, int* pError) override;
    int SetValue(const char* lpszName, unsigned int nValue) override;
    unsigned int UintData(const char* lpszName, int* pError) override;
    int SetValue(const char* lpszName, float fValue) override;
    float FloatData(const char* lpszName, int* pError) override;
    int SetValue(const char* lpszName, double dValue) override;
    double DoubleData(const char* lpszName, int* pError) override;
    int SetValue(const char* lpszName, long long nValue) override;
    long long LonglongData(const char* lpszName, int* pError) override;
    int SetValue(const char* lpszName, unsigned long long nValue) override;
    unsigned long long ULonglongData(const char* lpszName, int* pError) override;
    int SetValue(const char* lpszName, const char* lpszValue) override;
    const char* StringData(const char* lpszName, int* pError) override;
    int SetValue(const char* lpszName, const void* pData, unsigned int nSize) override;
    const void* BlockData(const char* lpszName, unsigned int& nLength, int* pError) override;

    void Copy(ITnRobotDataValueGroup* pSource) override;
    ITnRobotDataValueGroup* Clone() override;

    int Serialize(ITnRobotArchive* pArchive) override;

private:
    using Value = tnrobot::NamedValues::Value;

    template <typename... Args, typename... Given>
    int _SetNew(const char* lpszName, int (CTnRobotDataValuePool::*pfnQuery)(Args...), Given... args);
    template <typename Result>
    Result _Read(const char* lpszName, Result (ITnRobotDataValue::*pfnRead)(int*), int* pError) const;
    ITnRobotDataValue* _Find(std::string_view name) const;
    bool _CanBeStored() const;
    int _Store(ITnRobotArchive& archive) const;
    int _Load(ITnRobotArchive& archive);
    bool _LoadEntry(ITnRobotArchive& archive);

    tnrobot::NamedValues m_values;
};

#endif  // TNROBOTKERNEL_SRC_VALUES_TNROBOTDATAVALUEGROUP_H_
