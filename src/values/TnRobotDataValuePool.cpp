// All values come from one recycling pool; each query says what bytes of what type, and long contents are
// copied before the pool is locked.

#include "values/TnRobotDataValuePool.h"

#include <atomic>
#include <cstring>
#include <limits>
#include <new>

#include "checked/TnChecked.h"
#include "core/TnExactCast.h"
#include "values/TnRobotDataValue.h"

namespace {

// What is copied while the pool is locked is copied at everybody's cost.
constexpr unsigned int kMostCopiedLocked = 4096;

// Set at load and cleared at unload, while any thread may read it. Release and acquire suffice: all
// that the pointer publishes is the pool as it was made.
std::atomic<CTnRobotDataValuePool*> g_pDataValuePool{nullptr};

void Initialise(CTnRobotDataValue& value, const STnDataValueParam& param) {
    if (param.m_pStream != nullptr) {
        value.ResetData(param.m_eType, param.m_pStream);
    } else {
        value.ResetData(param.m_eType, param.m_pData, param.m_nCount);
    }
}

}  // namespace

bool CTnRobotDataValueEleAlloc::AllocElement(void* pParam, ITnPoolElement** ppElement) {
    auto value = tn::Adopt(tnrobot::Watch(new CTnRobotDataValue));
    if (pParam != nullptr) {
        Initialise(*value, *static_cast<const STnDataValueParam*>(pParam));
    }
    *ppElement = value.detach();
    return true;
}

void CTnRobotDataValueEleAlloc::SetElementParam(ITnPoolElement* pElement, void* pParam) {
    auto* pValue = pParam != nullptr ? tnrobot::ExactCast<CTnRobotDataValue>(pElement) : nullptr;
    if (pValue == nullptr) {
        return;
    }
    if (tnrobot::NoteTaken(pValue)) {
        pValue->CheckIdleInvariants();
    }
    Initialise(*pValue, *static_cast<const STnDataValueParam*>(pParam));
}

CTnRobotDataValuePool* TnQueryDataValuePool() {
    return g_pDataValuePool.load(std::memory_order_acquire);
}

void CTnRobotDataValuePool::MakeProcessWide() {
    if (TnQueryDataValuePool() == nullptr) {
        g_pDataValuePool.store(tnrobot::Watch(new CTnRobotDataValuePool), std::memory_order_release);
    }
}

void CTnRobotDataValuePool::DestroyProcessWide() {
    delete g_pDataValuePool.exchange(nullptr, std::memory_order_acq_rel);
}

CTnRobotDataValuePool::CTnRobotDataValuePool() {
    const auto alloc = tn::Adopt(tnrobot::Watch(new CTnRobotDataValueEleAlloc));
    m_pool = tn::Adopt(tnrobot::Watch(new CTnRobotPool<ITnRobotDataValue>(alloc.get())));
    m_pool->SetMaxCount(std::numeric_limits<unsigned int>::max());
    m_forkSafe.emplace(m_pool->Mutex());
}

int CTnRobotDataValuePool::_Query(STnDataValueParam param, ITnRobotDataValue** ppValue) {
    return m_pool->QueryPoolElement(0, &param, ppValue) ? 0 : -1;
}

template <typename T>
int CTnRobotDataValuePool::_QueryScalar(ETnRobotDataValueType eType, const T& value, ITnRobotDataValue** ppValue) {
    return _Query({&value, sizeof(T), nullptr, eType}, ppValue);
}

int CTnRobotDataValuePool::QueryData(ITnRobotDataValue** ppValue) {
    return _Query({nullptr, 0, nullptr, DATA_TYPE_NONE}, ppValue);
}

int CTnRobotDataValuePool::QueryBoolData(bool bValue, ITnRobotDataValue** ppValue) {
    return _QueryScalar(DATA_TYPE_BOOL, bValue, ppValue);
}

// A character is saved as two bytes: files hold it that way.
int CTnRobotDataValuePool::QueryCharData(char chValue, ITnRobotDataValue** ppValue) {
    const char chPair[2] = {chValue, '\0'};
    return _QueryScalar(DATA_TYPE_CHAR, chPair, ppValue);
}

int CTnRobotDataValuePool::QueryByteData(unsigned char byValue, ITnRobotDataValue** ppValue) {
    return _QueryScalar(DATA_TYPE_BYTE, byValue, ppValue);
}

int CTnRobotDataValuePool::QueryShortData(short nValue, ITnRobotDataValue** ppValue) {
    return _QueryScalar(DATA_TYPE_SHORT, nValue, ppValue);
}

int CTnRobotDataValuePool::QueryUShortData(unsigned short nValue, ITnRobotDataValue** ppValue) {
    return _QueryScalar(DATA_TYPE_USHORT, nValue, ppValue);
}

int CTnRobotDataValuePool::QueryIntData(int nValue, ITnRobotDataValue** ppValue) {
    return _QueryScalar(DATA_TYPE_INT, nValue, ppValue);
}

int CTnRobotDataValuePool::QueryUintData(unsigned int nValue, ITnRobotDataValue** ppValue) {
    return _QueryScalar(DATA_TYPE_UINT, nValue, ppValue);
}

int CTnRobotDataValuePool::QueryFloatData(float fValue, ITnRobotDataValue** ppValue) {
    return _QueryScalar(DATA_TYPE_FLOAT, fValue, ppValue);
}

int CTnRobotDataValuePool::QueryDoubleData(double dValue, ITnRobotDataValue** ppValue) {
    return _QueryScalar(DATA_TYPE_DOUBLE, dValue, ppValue);
}

int CTnRobotDataValuePool::QueryLonglongData(long long nValue, ITnRobotDataValue** ppValue) {
    return _QueryScalar(DATA_TYPE_LONGLONG, nValue, ppValue);
}

int CTnRobotDataValuePool::QueryULonglongData(unsigned long long nValue, ITnRobotDataValue** ppValue) {
    return _QueryScalar(DATA_TYPE_ULONGLONG, nValue, ppValue);
}

int CTnRobotDataValuePool::_QueryBytes(ETnRobotDataValueType eType, const void* pData, unsigned int nSize,
                                       ITnRobotDataValue** ppValue) {
    return nSize <= kMostCopiedLocked || ppValue == nullptr ? _Query({pData, nSize, nullptr, eType}, ppValue)
                                                            : _QueryLong(eType, pData, nSize, ppValue);
}

// Longer contents are copied before the pool is locked, so that no other thread waits for them.
[[gnu::cold]] int CTnRobotDataValuePool::_QueryLong(ETnRobotDataValueType eType, const void* pData, unsigned int nSize,
                                                    ITnRobotDataValue** ppValue) {
    tnrobot::ByteStorage bytes;
    bytes.Assign(pData, nSize);
    return _QueryTaking(eType, bytes, ppValue);
}

// All that can fail has been done when the value is there.
int CTnRobotDataValuePool::_QueryTaking(ETnRobotDataValueType eType, tnrobot::ByteStorage& bytes,
                                        ITnRobotDataValue** ppValue) {
    const int nResult = _Query({nullptr, 0, nullptr, eType}, ppValue);
    if (nResult == 0) {
        // The pool's allocator makes values of this class only.
        static_cast<CTnRobotDataValue*>(*ppValue)->TakeData(eType, bytes);
    }
    return nResult;
}

int CTnRobotDataValuePool::QueryStringData(const char* lpszValue, ITnRobotDataValue** ppValue) {
    if (lpszValue == nullptr) {
        return -1;
    }
    const std::size_t nSize = std::strlen(lpszValue) + 1;
    if (nSize > std::numeric_limits<unsigned int>::max()) {
        return -1;
    }
    return _QueryBytes(DATA_TYPE_STRING, lpszValue, static_cast<unsigned int>(nSize), ppValue);
}

int CTnRobotDataValuePool::QueryBlockData(const void* pData, unsigned int nSize, ITnRobotDataValue** ppValue) {
    if (pData == nullptr && nSize != 0) {
        return -1;
    }
    return _QueryBytes(DATA_TYPE_BLOCK, pData, nSize, ppValue);
}

// The stream may be the application's own and use values, so it is read before the pool is locked.
int CTnRobotDataValuePool::QueryBlockData(ITnRobotMemDataStream* pStream, ITnRobotDataValue** ppValue) {
    if (pStream == nullptr || ppValue == nullptr) {
        return _Query({nullptr, 0, nullptr, DATA_TYPE_BLOCK}, ppValue);
    }
    tnrobot::ByteStorage bytes;
    CTnRobotDataValue::CollectStream(*pStream, bytes);
    return _QueryTaking(DATA_TYPE_BLOCK, bytes, ppValue);
}
