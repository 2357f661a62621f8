// The process-wide pool of data values.

#ifndef TNROBOTKERNEL_SRC_VALUES_TNROBOTDATAVALUEPOOL_H_
#define TNROBOTKERNEL_SRC_VALUES_TNROBOTDATAVALUEPOOL_H_

#include <optional>

#include "TnRobotKernel/values.h"
#include "core/TnFork.h"
#include "core/TnRef.h"
#include "values/TnByteStorage.h"

/// What a value is made from; passed through the recycling pool to the allocator.
struct STnDataValueParam {
    const void* m_pData;               ///< bytes to copy, or null
    unsigned int m_nCount;             ///< number of bytes at m_pData
    ITnRobotMemDataStream* m_pStream;  ///< when not null the bytes come from here; borrowed
    ETnRobotDataValueType m_eType;     ///< type of the value
};

/// Makes and re-initialises the values of the pool.
class CTnRobotDataValueEleAlloc final : public ITnElementAlloc {
public:
    bool AllocElement(void* pParam, ITnPoolElement** ppElement) override;
    void SetElementParam(ITnPoolElement* pElement, void* pParam) override;
};

/// Source of every data value. The queries return 0 with a value (+1, caller releases), or -1
/// with *ppValue untouched. Threads: thread-safe.
class CTnRobotDataValuePool final : public ITnUnknown {
public:
    CTnRobotDataValuePool();

    /// Makes the pool of the process unless there is one. Not concurrently with the next.
    static void MakeProcessWide();

    /// Destroys it, if there is one: not by a release, since whoever holds values holds no reference to
    /// the pool.
    static void DestroyProcessWide();

    /// A value of type NONE without data.
    int QueryData(ITnRobotDataValue** ppValue);
    int QueryBoolData(bool bValue, ITnRobotDataValue** ppValue);
    int QueryCharData(char chValue, ITnRobotDataValue** ppValue);
    int QueryByteData(unsigned char byValue, ITnRobotDataValue** ppValue);
    int QueryShortData(short nValue, ITnRobotDataValue** ppValue);
    int QueryUShortData(unsigned short nValue, ITnRobotDataValue** ppValue);
    int QueryIntData(int nValue, ITnRobotDataValue** ppValue);
    int QueryUintData(unsigned int nValue, ITnRobotDataValue** ppValue);
    int QueryFloatData(float fValue, ITnRobotDataValue** ppValue);
    int QueryDoubleData(double dValue, ITnRobotDataValue** ppValue);
    int QueryLonglongData(long long nValue, ITnRobotDataValue** ppValue);
    int QueryULonglongData(unsigned long long nValue, ITnRobotDataValue** ppValue);
    /// -1 for a null text too.
    int QueryStringData(const char* lpszValue, ITnRobotDataValue** ppValue);
    /// -1 for null data with a size above 0 too.
    int QueryBlockData(const void* pData, unsigned int nSize, ITnRobotDataValue** ppValue);
    /// A null stream gives an empty block.
    int QueryBlockData(ITnRobotMemDataStream* pStream, ITnRobotDataValue** ppValue);

private:
    int _Query(STnDataValueParam param, ITnRobotDataValue** ppValue);
    int _QueryBytes(ETnRobotDataValueType eType, const void* pData, unsigned int nSize, ITnRobotDataValue** ppValue);
    int _QueryLong(ETnRobotDataValueType eType, const void* pData, unsigned int nSize, ITnRobotDataValue** ppValue);
    int _QueryTaking(ETnRobotDataValueType eType, tnrobot::ByteStorage& bytes, ITnRobotDataValue** ppValue);
    template <typename T>
    int _QueryScalar(ETnRobotDataValueType eType, const T& value, ITnRobotDataValue** ppValue);

    tnrobot::Ref<CTnRobotPool<ITnRobotDataValue>> m_pool;
    std::optional<tnrobot::ForkSafe> m_forkSafe;  // of the pool's lock
};

/// @return the process-wide pool, null before start-up and after shut-down; borrowed. Thread-safe.
CTnRobotDataValuePool* TnQueryDataValuePool();

#endif  // TNROBOTKERNEL_SRC_VALUES_TNROBOTDATAVALUEPOOL_H_
