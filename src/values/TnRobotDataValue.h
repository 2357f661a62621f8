// The typed value.

#ifndef TNROBOTKERNEL_SRC_VALUES_TNROBOTDATAVALUE_H_
#define TNROBOTKERNEL_SRC_VALUES_TNROBOTDATAVALUE_H_

#include <memory>
#include <string>

#include "TnRobotKernel/values.h"
#include "values/TnByteStorage.h"

/// One value: its bytes, a view of them, the recorded length and the type.
///
/// The view and the recorded length say what readers see, the storage what is saved. Loading
/// replaces the storage and the type only: the recorded length and the cached text stay those of
/// before, which applications rely on.
///
/// Invariants: a view that is not null is the start of the storage; at least the recorded length
/// and one more byte are readable there, zero from the storage's size on.
///
/// Threads: externally synchronised, but for the reference count.
class CTnRobotDataValue final : public ITnRobotDataValue {
public:
    static const unsigned char m_byVersion;  ///< version byte of the saved form

    /// A value of type NONE over 8 zero bytes.
    CTnRobotDataValue();

    /// Becomes a value of the given type over a copy of the bytes. Null bytes count as zeros.
    void ResetData(ETnRobotDataValueType eType, const void* pBytes, unsigned int nCount);

    /// Becomes a value of the given type over everything in the stream; null changes nothing.
    void ResetData(ETnRobotDataValueType eType, ITnRobotMemDataStream* pStream);

    /// Reads everything in a stream, which may call anything in turn: no lock may be held.
    /// @param[out] bytes  replaced; zeros where the stream gives less than it announces.
    static void CollectStream(ITnRobotMemDataStream& stream, tnrobot::ByteStorage& bytes);

    /// Becomes a value of the given type over the bytes, which it takes without a copy. Never fails.
    void TakeData(ETnRobotDataValueType eType, tnrobot::ByteStorage& bytes);

    void ClearResource() override;

    /// @return whether there is a saved form: false for a value of 2 GiB or more, whose Serialize answers
    ///         0 and writes nothing.
    bool CanBeStored() const;

    /// Tests, in checked builds, what holds while the value waits in its pool.
    void CheckIdleInvariants() const;

    ETnRobotDataValueType GetDataValueType() override;
    bool BoolData(int* pError) override;
    char CharData(int* pError) override;
    unsigned char ByteData(int* pError) override;
    short ShortData(int* pError) override;
    unsigned short UShortData(int* pError) override;
    int IntData(int* pError) override;
    unsigned int UintData(int* pError) override;
    float FloatData(int* pError) override;
    double DoubleData(int* pError) override;
    long long LonglongData(int* pError) override;
    unsigned long long ULonglongData(int* pError) override;
    const char* StringData(int& nLength, int* pError) override;
    const void* BlockData(unsigned int& nLength, int* pError) override;
    const char* Convert2String(unsigned int* pLength) override;
    void Copy(ITnRobotDataValue* pSource) override;
    ITnRobotDataValue* Clone() override;

    int Serialize(ITnRobotArchive* pArchive) override;

private:
    void _CheckInUse() const;
    void _CheckInvariants() const;
    template <typename T>
    T _Scalar(ETnRobotDataValueType eType, int* pError) const;
    template <typename T>
    T _Stored() const;
    void _PointAtStorage();
    std::string _MakeText() const;
    std::string _BlockText() const;
    int _Store(ITnRobotArchive& archive) const;
    int _Load(ITnRobotArchive& archive);
    int _LoadBytes(ITnRobotArchive& archive, std::size_t nCount);
    void _ResizeUnderView(std::size_t nCount);

    std::unique_ptr<std::string> m_text;  // cache of the text form, never empty; few are asked for it
    unsigned char* m_pData;
    unsigned int m_nLength;
    ETnRobotDataValueType m_eType = DATA_TYPE_NONE;
    tnrobot::ByteStorage m_storage;
};

#endif  // TNROBOTKERNEL_SRC_VALUES_TNROBOTDATAVALUE_H_
