// One value: setting it, reading it by type, its text form, copying, saving and loading. The storage is
// what is saved, the view and the recorded length are what readers see.

#include "values/TnRobotDataValue.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include "TnRobotKernel/archive.h"
#include "checked/TnChecked.h"
#include "core/TnExactCast.h"
#include "core/TnFormat.h"
#include "core/TnReadStep.h"
#include "core/TnRef.h"
#include "values/TnRobotDataValuePool.h"

namespace {

constexpr unsigned int kFreshLength = 8;

// The longest text is that of the largest double: a sign, 309 digits, a point and six more.
constexpr unsigned int kTextSize = 512;

void SetError(int* pError, bool bOk) {
    if (pError != nullptr) {
        *pError = bOk ? 0 : -1;
    }
}

template <typename T>
std::string Formatted(const char* lpszFormat, T value) {
    char szText[kTextSize] = {};
    _tnsprintf(szText, kTextSize, lpszFormat, value);
    return szText;
}

}  // namespace

ITnRobotDataValue::~ITnRobotDataValue() = default;

const unsigned char CTnRobotDataValue::m_byVersion = 1;

CTnRobotDataValue::CTnRobotDataValue() : m_nLength(kFreshLength) {
    m_storage.Resize(kFreshLength);
    m_pData = m_storage.Data();
}

void CTnRobotDataValue::ResetData(ETnRobotDataValueType eType, const void* pBytes, unsigned int nCount) {
    m_storage.Assign(pBytes, nCount);
    m_pData = nCount != 0 ? m_storage.Data() : nullptr;
    m_eType = eType;
    m_nLength = nCount;
    m_text.reset();
    _CheckInvariants();
}

void CTnRobotDataValue::ResetData(ETnRobotDataValueType eType, ITnRobotMemDataStream* pStream) {
    if (pStream == nullptr) {
        return;
    }
    tnrobot::ByteStorage bytes;
    CollectStream(*pStream, bytes);
    TakeData(eType, bytes);
}

// A stream may be the application's own: one that ends early, answers with nothing or with more
// than it announced leaves the rest of the value zero.
void CTnRobotDataValue::CollectStream(ITnRobotMemDataStream& stream, tnrobot::ByteStorage& bytes) {
    const unsigned int nTotal = stream.GetTotleLength();
    bytes.Assign(nullptr, nTotal);
    if (nTotal == 0) {
        return;
    }
    stream.BeginReadData();
    for (unsigned int nDone = 0; nDone < nTotal;) {
        unsigned int nPiece = 0;
        const unsigned char* pPiece = stream.ReadData(nPiece);
        if (pPiece == nullptr || nPiece == 0 || nPiece > nTotal - nDone) {
            break;
        }
        std::memcpy(bytes.Data() + nDone, pPiece, nPiece);
        nDone += nPiece;
    }
    stream.EndReadData();
}

void CTnRobotDataValue::TakeData(ETnRobotDataValueType eType, tnrobot::ByteStorage& bytes) {
    m_storage.TakeFrom(bytes);
    m_eType = eType;
    m_nLength = static_cast<unsigned int>(m_storage.Size());
    m_pData = m_nLength != 0 ? m_storage.Data() : nullptr;
    m_text.reset();
    _CheckInvariants();
}

// A value on the free list holds no heap memory.
void CTnRobotDataValue::ClearResource() {
    m_storage.Clear();
    m_eType = DATA_TYPE_NONE;
    m_pData = nullptr;
    m_nLength = 0;
    m_text.reset();
}

void CTnRobotDataValue::_CheckInUse() const {
    tnrobot::CheckUsed(this, m_nRefCount);
}

void CTnRobotDataValue::_CheckInvariants() const {
    tnrobot::CheckInvariant(*this, m_pData == nullptr || m_pData == m_storage.Data(), "views memory not its own");
    tnrobot::CheckInvariant(*this, m_pData == nullptr || m_storage.Reaches(m_nLength), "views more than it has");
}

void CTnRobotDataValue::CheckIdleInvariants() const {
    const bool bCleared = m_eType == DATA_TYPE_NONE && m_pData == nullptr && m_nLength == 0 && !m_text;
    tnrobot::CheckInvariant(*this, bCleared, "has got a value after its return to its pool");
    tnrobot::CheckInvariant(*this, m_storage.IsCleared(), "written to after its return to its pool");
}

ETnRobotDataValueType CTnRobotDataValue::GetDataValueType() {
    _CheckInUse();
    return m_eType;
}

template <typename T>
T CTnRobotDataValue::_Stored() const {
    T value;
    std::memcpy(&value, m_pData, sizeof(T));
    return value;
}

// A value that had no view when it was loaded has none now; it reads as an error.
template <typename T>
T CTnRobotDataValue::_Scalar(ETnRobotDataValueType eType, int* pError) const {
    _CheckInUse();
    const bool bOk = m_eType == eType && m_pData != nullptr;
    SetError(pError, bOk);
    return bOk ? _Stored<T>() : T{};
}

bool CTnRobotDataValue::BoolData(int* pError) {
    return _Scalar<unsigned char>(DATA_TYPE_BOOL, pError) != 0;
}

char CTnRobotDataValue::CharData(int* pError) {
    return _Scalar<char>(DATA_TYPE_CHAR, pError);
}

unsigned char CTnRobotDataValue::ByteData(int* pError) {
    return _Scalar<unsigned char>(DATA_TYPE_BYTE, pError);
}

short CTnRobotDataValue::ShortData(int* pError) {
    return _Scalar<short>(DATA_TYPE_SHORT, pError);
}

unsigned short CTnRobotDataValue::UShortData(int* pError) {
    return _Scalar<unsigned short>(DATA_TYPE_USHORT, pError);
}

int CTnRobotDataValue::IntData(int* pError) {
    return _Scalar<int>(DATA_TYPE_INT, pError);
}

unsigned int CTnRobotDataValue::UintData(int* pError) {
    return _Scalar<unsigned int>(DATA_TYPE_UINT, pError);
}

float CTnRobotDataValue::FloatData(int* pError) {
    return _Scalar<float>(DATA_TYPE_FLOAT, pError);
}

double CTnRobotDataValue::DoubleData(int* pError) {
    return _Scalar<double>(DATA_TYPE_DOUBLE, pError);
}

long long CTnRobotDataValue::LonglongData(int* pError) {
    return _Scalar<long long>(DATA_TYPE_LONGLONG, pError);
}

unsigned long long CTnRobotDataValue::ULonglongData(int* pError) {
    return _Scalar<unsigned long long>(DATA_TYPE_ULONGLONG, pError);
}

const char* CTnRobotDataValue::StringData(int& nLength, int* pError) {
    _CheckInUse();
    const bool bOk = m_eType == DATA_TYPE_STRING && m_pData != nullptr;
    SetError(pError, bOk);
    if (!bOk) {
        return nullptr;
    }
    nLength = static_cast<int>(m_nLength);
    return reinterpret_cast<const char*>(m_pData);
}

// An empty block is a block too: no bytes, and no error.
const void* CTnRobotDataValue::BlockData(unsigned int& nLength, int* pError) {
    _CheckInUse();
    const bool bOk = m_eType == DATA_TYPE_BLOCK && (m_pData != nullptr || m_storage.Size() == 0);
    SetError(pError, bOk);
    if (!bOk) {
        return nullptr;
    }
    nLength = m_nLength;
    return m_pData;
}

// An empty text is never kept: it is made again at each call, which costs nothing, and all of them
// are one and the same for ever, so that no call takes away what an earlier one has handed out.
const char* CTnRobotDataValue::Convert2String(unsigned int* pLength) {
    _CheckInUse();
    unsigned int nLength = 0;
    if (m_pData != nullptr) {
        if (!m_text) {
            std::string strText = _MakeText();
            m_text = strText.empty() ? nullptr : std::make_unique<std::string>(std::move(strText));
        }
        nLength = m_text ? static_cast<unsigned int>(m_text->size()) + 1 : 1;
    }
    if (pLength != nullptr) {
        *pLength = nLength;
    }
    return m_text ? m_text->c_str() : "";
}

std::string CTnRobotDataValue::_MakeText() const {
    switch (m_eType) {
        case DATA_TYPE_BOOL:
        case DATA_TYPE_BYTE:
            return Formatted("%d", static_cast<int>(_Stored<unsigned char>()));
        case DATA_TYPE_SHORT:
            return Formatted("%d", static_cast<int>(_Stored<short>()));
        case DATA_TYPE_USHORT:
            return Formatted("%u", static_cast<unsigned int>(_Stored<unsigned short>()));
        case DATA_TYPE_INT:
            return Formatted("%d", _Stored<int>());
        case DATA_TYPE_UINT:
            return Formatted("%u", _Stored<unsigned int>());
        case DATA_TYPE_FLOAT:
            return Formatted("%f", static_cast<double>(_Stored<float>()));
        case DATA_TYPE_DOUBLE:
            return Formatted("%lf", _Stored<double>());
        case DATA_TYPE_LONGLONG:
        case DATA_TYPE_ULONGLONG:
            // Unsigned numbers print as signed ones too: readers of these texts expect it.
            return Formatted("%lld", _Stored<long long>());
        case DATA_TYPE_STRING:
            return reinterpret_cast<const char*>(m_pData);  // the storage always ends in a zero
        case DATA_TYPE_BLOCK:
            return _BlockText();
        case DATA_TYPE_CHAR:
            return Formatted("%c", static_cast<int>(_Stored<char>()));
        default:
            return {};
    }
}

std::string CTnRobotDataValue::_BlockText() const {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string strText(std::size_t{2} * m_nLength, '\0');
    for (std::size_t i = 0; i < m_nLength; ++i) {
        strText[2 * i] = kDigits[m_pData[i] >> 4U];
        strText[2 * i + 1] = kDigits[m_pData[i] & 0x0FU];
    }
    return strText;
}

void CTnRobotDataValue::_PointAtStorage() {
    m_pData = m_storage.Size() != 0 || m_nLength != 0 ? m_storage.Data() : nullptr;
}

// The storage must reach as far as the length that is taken over, which a loaded source may have
// from before its load.
void CTnRobotDataValue::Copy(ITnRobotDataValue* pSource) {
    _CheckInUse();
    auto* pValue = tnrobot::ExactCast<CTnRobotDataValue>(pSource);
    if (pValue == nullptr) {
        return;
    }
    pValue->_CheckInUse();
    if (pValue != this) {
        // What needs memory comes first, and changes nothing that can be seen.
        auto text = pValue->m_text ? std::make_unique<std::string>(*pValue->m_text) : nullptr;
        m_storage.Reserve(std::max<std::size_t>(pValue->m_nLength, pValue->m_storage.Size()));
        m_text = std::move(text);
        m_storage.Assign(pValue->m_storage.Data(), pValue->m_storage.Size());
        m_nLength = pValue->m_nLength;
        m_eType = pValue->m_eType;
    }
    _PointAtStorage();
    _CheckInvariants();
}

ITnRobotDataValue* CTnRobotDataValue::Clone() {
    _CheckInUse();
    CTnRobotDataValuePool* pPool = TnQueryDataValuePool();
    tnrobot::Ref<ITnRobotDataValue> clone;
    if (pPool == nullptr || pPool->QueryData(clone.Receive()) != 0) {
        return nullptr;
    }
    clone->Copy(this);
    return clone.Detach();
}

// An archive without a file counts as storing: nothing arrives anywhere, and that is a success.
int CTnRobotDataValue::Serialize(ITnRobotArchive* pArchive) {
    _CheckInUse();
    if (pArchive == nullptr) {
        return 0;
    }
    return pArchive->IsLoading() ? _Load(*pArchive) : _Store(*pArchive);
}

// The count has 31 bits: a file with a longer value could not be read.
bool CTnRobotDataValue::CanBeStored() const {
    return m_storage.Size() <= static_cast<std::size_t>(INT_MAX);
}

// Single writes are not checked: a storing pass always runs to its end.
int CTnRobotDataValue::_Store(ITnRobotArchive& archive) const {
    if (!CanBeStored()) {
        return 0;
    }
    const int nType = m_eType;
    const int nCount = static_cast<int>(m_storage.Size());
    archive.Write(&m_byVersion, sizeof(m_byVersion));
    archive.Write(&nType, sizeof(nType));
    archive.Write(&nCount, sizeof(nCount));
    if (nCount > 0) {
        archive.Write(m_storage.Data(), nCount);
    }
    return 1;
}

int CTnRobotDataValue::_Load(ITnRobotArchive& archive) {
    unsigned char byVersion = 0;
    if (archive.Read(&byVersion, sizeof(byVersion)) < 1 || byVersion == 0 || byVersion > m_byVersion) {
        return 0;
    }
    int nType = 0;
    if (archive.Read(&nType, sizeof(nType)) < static_cast<long long>(sizeof(nType))) {
        return 0;
    }
    m_eType = static_cast<ETnRobotDataValueType>(nType);
    // The count alone may arrive short, or not at all: what is missing reads as zero.
    int nCount = 0;
    const bool bCounted = archive.Read(&nCount, sizeof(nCount)) > 0 && nCount > 0;
    const int nResult = _LoadBytes(archive, bCounted ? static_cast<std::size_t>(nCount) : 0);
    _CheckInvariants();
    return nResult;
}

// Where the file ends early, or memory does, the value keeps the bytes that arrived.
int CTnRobotDataValue::_LoadBytes(ITnRobotArchive& archive, std::size_t nCount) {
    _ResizeUnderView(0);
    std::size_t nDone = 0;
    while (nDone < nCount) {
        const std::size_t nStep = tnrobot::NextReadStep(nCount, nDone);
        _ResizeUnderView(nDone + nStep);
        const long long nRead = archive.Read(m_storage.Data() + nDone, static_cast<long long>(nStep));
        if (nRead < static_cast<long long>(nStep)) {
            _ResizeUnderView(nDone + static_cast<std::size_t>(std::max(nRead, 0LL)));
            return 0;
        }
        nDone += nStep;
    }
    return 1;
}

// The view goes with the bytes at once: the next step may not come.
void CTnRobotDataValue::_ResizeUnderView(std::size_t nCount) {
    m_storage.Resize(nCount);
    if (m_pData != nullptr) {
        m_pData = m_storage.Data();
    }
}
