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

int TnCreateRobotBoolData(bool value, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryBoolData, value, ppValue);
}

int TnCreateRobotCharData(char value, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryCharData, value, ppValue);
}

// The parameter is wider than the value: that is part of the interface.
int TnCreateRobotByteData(unsigned short nValue, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryByteData, static_cast<unsigned char>(nValue), ppValue);
}

int TnCreateRobotShortData(short value, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryShortData, value, ppValue);
}

int TnCreateRobotUShortData(unsigned short value, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryUShortData, value, ppValue);
}

int TnCreateRobotIntData(int value, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryIntData, value, ppValue);
}

int TnCreateRobotUintData(unsigned int value, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryUintData, value, ppValue);
}

int TnCreateRobotFloatData(float value, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryFloatData, value, ppValue);
}

int TnCreateRobotDoubleData(double value, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryDoubleData, value, ppValue);
}

int TnCreateRobotLonglongData(long long value, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryLonglongData, value, ppValue);
}

int TnCreateRobotULonglongData(unsigned long long value, ITnRobotDataValue** ppValue) {
    return Create(&CTnRobotDataValuePool::QueryULonglongData, value, ppValue);
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
