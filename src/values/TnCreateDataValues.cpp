// The creation functions of values: each asks the process-wide pool.

#include "values/TnRobotDataValuePool.h"

namespace {

// @return what the query answers, -1 without a pool.
template <typename... Args, typename... Given>
int Create(int (CTnRobotDataValuePool::*pfnQuery)(Args...), Given... args) {
    CTnRobotDataValuePool* pPool = TnQueryDataValuePool();
    return pPool != nullptr ? (pPool->*pfnQuery)(args...) : -1;
}

}  // namespace

int TnCreateRobotBoolData(bool bValue, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryBoolData, bValue, ppValue);
}

int TnCreateRobotCharData(char chValue, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryCharData, chValue, ppValue);
}

// The parameter is wider than the value: that is part of the interface.
int TnCreateRobotByteData(unsigned short nValue, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryByteData, static_cast<unsigned char>(nValue), ppValue);
}

int TnCreateRobotShortData(short nValue, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryShortData, nValue, ppValue);
}

int TnCreateRobotUShortData(unsigned short nValue, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryUShortData, nValue, ppValue);
}

int TnCreateRobotIntData(int nValue, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryIntData, nValue, ppValue);
}

int TnCreateRobotUintData(unsigned int nValue, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryUintData, nValue, ppValue);
}

int TnCreateRobotFloatData(float fValue, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryFloatData, fValue, ppValue);
}

int TnCreateRobotDoubleData(double dValue, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryDoubleData, dValue, ppValue);
}

int TnCreateRobotLonglongData(long long nValue, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryLonglongData, nValue, ppValue);
}

int TnCreateRobotULonglongData(unsigned long long nValue, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryULonglongData, nValue, ppValue);
}

int TnCreateRobotStringData(const char* lpszValue, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryStringData, lpszValue, ppValue);
}

int TnCreateRobotBlockData(const void* pData, unsigned int nSize, ITnRobotDataValue** ppValue) {
    CTnRobotDataValuePool* pPool = TnQueryDataValuePool();
    return pPool != nullptr ? pPool->QueryBlockData(pData, nSize, ppValue) : -1;
}

int TnCreateRobotBlockData(ITnRobotMemDataStream* pStream, ITnRobotDataValue** ppValue) {
    CTnRobotDataValuePool* pPool = TnQueryDataValuePool();
    return pPool != nullptr ? pPool->QueryBlockData(pStream, ppValue) : -1;
}
