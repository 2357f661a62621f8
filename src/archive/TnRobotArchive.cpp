// Reading and writing through one file: numbers, texts, then objects with the two tables that make a file
// able to refer to a class or an object that came before. A file is hostile: its counts are compared with
// what arrives before memory or time is spent on them.

#include "archive/TnRobotArchive.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <utility>

#include "checked/TnChecked.h"
#include "core/TnReadStep.h"

namespace {

// Indexes and counts have 16 bits, and 65535 stands for "no index".
constexpr std::size_t kMaxEntries = 65535;

// Deeper nesting would end in an exhausted stack.
constexpr int kMaxDepth = 4096;

}  // namespace

ITnRobotArchive::~ITnRobotArchive() = default;

CTnRobotArchive::~CTnRobotArchive() {
    StopWatching();
}

// Counts the objects being written or read within each other. Only contents nest: a null or a
// reference is the same at every depth. What was too deep sticks until the outermost call is done,
// since not every class looks at the results of its inner objects.
class CTnRobotArchive::Nesting {
public:
    explicit Nesting(CTnRobotArchive& archive) : m_archive(archive) { ++m_archive.m_nDepth; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;
    ~Nesting() {
        if (--m_archive.m_nDepth == 0) {
            m_archive.m_bTooDeep = false;
        }
    }
    bool AllowsContents() {
        m_archive.m_bTooDeep = m_archive.m_bTooDeep || m_archive.m_nDepth > kMaxDepth;
        return !m_archive.m_bTooDeep;
    }

private:
    CTnRobotArchive& m_archive;
};

bool CTnRobotArchive::Attach(ITnRobotFile* pFile, bool bStoring) {
    if (pFile == nullptr || m_file) {
        return false;
    }
    m_file = tnrobot::Ref<ITnRobotFile>::Share(pFile);
    m_bStoring = bStoring;
    return true;
}

void CTnRobotArchive::Detach() {
    m_file.Reset();
}

bool CTnRobotArchive::IsStoring() const {
    return m_file && m_bStoring;
}

bool CTnRobotArchive::IsLoading() const {
    return m_file && !m_bStoring;
}

long long CTnRobotArchive::Write(const void* pData, long long nCount) {
    return m_file ? m_file->Write(pData, nCount) : 0;
}

long long CTnRobotArchive::Read(void* pData, long long nCount) {
    return m_file ? m_file->Read(pData, nCount) : -1;
}

void CTnRobotArchive::Flush() {
    if (m_file) {
        m_file->Flush();
    }
}

template <typename T>
bool CTnRobotArchive::_WriteNumber(T value) {
    return Write(&value, sizeof(value)) != 0;
}

// A short read is a success whose missing bytes are zero; a file that answers nothing or -1 has
// failed, and what it may have left in the number is not taken as read.
template <typename T>
bool CTnRobotArchive::_ReadNumber(T& value) {
    T read = 0;
    const bool bOk = Read(&read, sizeof(read)) > 0;
    value = bOk ? read : T{0};
    return bOk;
}

// Reads up to nCount bytes. Like every read it fails only when nothing arrives. What stays short of
// nCount is filled up with zeros while that costs no more than the first step, and ends where the
// bytes do otherwise.
bool CTnRobotArchive::_ReadBytes(tnrobot::ByteStorage& bytes, std::size_t nCount, std::size_t& nArrived) {
    bytes.Resize(0);
    nArrived = 0;
    bool bMore = true;
    while (bMore && nArrived < nCount) {
        const std::size_t nStep = tnrobot::NextReadStep(nCount, nArrived);
        bytes.Resize(nArrived + nStep);
        const long long nRead = Read(bytes.Data() + nArrived, static_cast<long long>(nStep));
        bMore = nRead >= static_cast<long long>(nStep);
        nArrived += bMore ? nStep : static_cast<std::size_t>(std::max(nRead, 0LL));
    }
    // Whatever a file has left behind the bytes that it counts is not read.
    bytes.Resize(nArrived);
    if (nCount <= tnrobot::kReadStep) {
        bytes.Resize(nCount);
    }
    return nArrived != 0 || nCount == 0;
}

int CTnRobotArchive::WriteString(const char* lpszText) {
    if (!m_file || lpszText == nullptr) {
        return 0;
    }
    const std::size_t nLength = std::strlen(lpszText);
    if (nLength >= static_cast<std::size_t>(INT_MAX)) {
        return 0;  // the count has 31 bits: such a text could not be read
    }
    const int nCount = nLength != 0 ? static_cast<int>(nLength + 1) : 0;
    if (!_WriteNumber(nCount)) {
        return 0;
    }
    return nCount == 0 || Write(lpszText, nCount) != 0 ? 1 : 0;
}

const char* CTnRobotArchive::ReadString(int& nLength, int* pError) {
    bool bOk = !m_file || _ReadNumber(nLength);
    bOk = bOk && nLength >= 0;
    const auto nCount = static_cast<std::size_t>(std::max(nLength, 0));
    if (bOk && nCount != 0 && m_file) {
        std::size_t nArrived = 0;
        bOk = _ReadBytes(m_text, nCount, nArrived);
        if (bOk) {
            nLength = static_cast<int>(m_text.Size());
        }
    } else if (bOk && nCount != 0) {
        // Detached: callers get the buffer at the length they came with.
        m_text.Resize(nCount);
    }
    if (pError != nullptr) {
        *pError = bOk ? 0 : -1;
    }
    return bOk && nCount != 0 ? reinterpret_cast<const char*>(m_text.Data()) : nullptr;
}

int CTnRobotArchive::WriteObject(CTnRobotObject* pObject) {
    Nesting nesting(*this);
    if (!m_file || m_bTooDeep) {
        return 0;
    }
    if (pObject == nullptr) {
        _WriteNumber(std::uint8_t{0});
        return 0;  // a null object is written, and reported as 0
    }
    std::uint16_t nIndex = 0;
    if (!_FindObject(pObject, nIndex)) {
        return nesting.AllowsContents() ? _WriteNewObject(pObject) : 0;
    }
    return _WriteNumber(std::uint8_t{1}) && _WriteNumber(std::uint8_t{0}) && _WriteNumber(nIndex) ? 1 : 0;
}

// Objects are told apart by address alone: it may be that of one that is gone.
bool CTnRobotArchive::_FindObject(const CTnRobotObject* pObject, std::uint16_t& nIndex) const {
    const auto [first, last] = m_objectIndexes.equal_range(pObject);
    if (first == last) {
        return false;
    }
    nIndex = std::min_element(first, last, [](const auto& a, const auto& b) { return a.second < b.second; })->second;
    return true;
}

// The object enters the tables before its contents are written, so that a ring of objects meets
// itself again, but not before the record has begun: a failed first write leaves the tables alone.
int CTnRobotArchive::_WriteNewObject(CTnRobotObject* pObject) {
    const STnRuntimeClass* pClass = pObject->GetRuntimeClass();
    if (pClass == nullptr || pClass->m_lpszClassGuid == nullptr || !_HasRoomFor(pClass->m_lpszClassGuid)) {
        return 0;
    }
    if (!_WriteNumber(std::uint8_t{1}) || !_WriteNumber(std::uint8_t{1})) {
        return 0;
    }
    if (!_WriteNumber(_AddObject(pObject, _ClassIndex(pClass->m_lpszClassGuid)))) {
        return 0;
    }
    auto* pSerialize = dynamic_cast<ITnRobotSerialize*>(pObject);
    const int nResult = pSerialize != nullptr ? pSerialize->Serialize(this) : 0;
    return m_bTooDeep ? 0 : nResult;
}

bool CTnRobotArchive::_HasRoomFor(const char* lpszGuid) const {
    return m_objectTable.size() < kMaxEntries &&
           (m_classTable.size() < kMaxEntries || m_classIndexes.count(lpszGuid) != 0);
}

// The position of the identifier in the class table, where it is appended when it is new. The table
// grows first: when memory ends in between, an identifier that no index leads to does no harm, an
// index without its identifier would be given to the next class too.
std::uint16_t CTnRobotArchive::_ClassIndex(const std::string& strGuid) {
    const auto it = m_classIndexes.find(strGuid);
    if (it != m_classIndexes.end()) {
        return it->second;
    }
    const auto nIndex = static_cast<std::uint16_t>(m_classTable.size());
    m_classTable.push_back(strGuid);
    m_classIndexes.emplace(strGuid, nIndex);
    return nIndex;
}

std::uint16_t CTnRobotArchive::_AddObject(CTnRobotObject* pObject, std::uint16_t nClass) {
    const auto lock = LockObjects();
    Watch();
    const auto nIndex = static_cast<std::uint16_t>(m_objectTable.size());
    m_objectTable.push_back({0, pObject, nClass});
    m_objectIndexes.emplace(pObject, nIndex);
    return nIndex;
}

int CTnRobotArchive::ReadObject(CTnRobotObject** ppObject) {
    Nesting nesting(*this);
    if (!m_file || ppObject == nullptr || m_bTooDeep) {
        return 0;
    }
    std::uint8_t byPresent = 0;
    std::uint8_t byNew = 0;
    std::uint16_t nIndex = 0;
    if (!_ReadNumber(byPresent) || byPresent == 0 || !_ReadNumber(byNew) || !_ReadNumber(nIndex)) {
        return 0;
    }
    if (nIndex >= m_objectTable.size()) {
        return 0;
    }
    if (byNew == 0) {
        return _ReadSharedObject(nIndex, ppObject);
    }
    *ppObject = nullptr;
    return nesting.AllowsContents() ? _ReadNewObject(nIndex, ppObject) : 0;
}

// What was read within an object that fails to load may be gone with it, so it counts as unread
// again, also when the failure is an exception.
class CTnRobotArchive::UnreadOnFailure {
public:
    explicit UnreadOnFailure(CTnRobotArchive& archive) : m_archive(archive), m_nMark(archive.m_readOrder.size()) {}
    UnreadOnFailure(const UnreadOnFailure&) = delete;
    UnreadOnFailure& operator=(const UnreadOnFailure&) = delete;
    ~UnreadOnFailure() {
        if (!m_bLoaded) {
            m_archive._ForgetObjectsSince(m_nMark);
        }
    }
    void SetLoaded() { m_bLoaded = true; }

private:
    CTnRobotArchive& m_archive;
    const std::size_t m_nMark;
    bool m_bLoaded = false;
};

int CTnRobotArchive::_ReadNewObject(std::uint16_t nIndex, CTnRobotObject** ppObject) {
    const std::size_t nClass = m_objectTable[nIndex].m_nClass;
    const char* lpszGuid = nClass < m_classTable.size() ? m_classTable[nClass].c_str() : "";
    std::unique_ptr<CTnRobotObject> object(CTnRobotObject::CreateObjectFromGUID(lpszGuid));
    if (!object) {
        return 0;
    }
    UnreadOnFailure guard(*this);
    auto* pSerialize = dynamic_cast<ITnRobotSerialize*>(object.get());
    if (pSerialize == nullptr || pSerialize->Serialize(this) == 0 || m_bTooDeep) {
        return 0;
    }
    _RecordObject(nIndex, object.get());
    guard.SetLoaded();
    *ppObject = object.release();
    return 1;
}

// Every reader of a shared object owns a reference, where the object counts references.
int CTnRobotArchive::_ReadSharedObject(std::uint16_t nIndex, CTnRobotObject** ppObject) {
    auto lock = LockObjects();
    const ObjectEntry& entry = m_objectTable[nIndex];
    CTnRobotObject* pObject = entry.m_bGone ? nullptr : entry.m_pObject;
    lock.unlock();
    *ppObject = pObject;
    if (pObject == nullptr) {
        return 0;  // not read before, which only a damaged file asks for, or dropped by its holders
    }
    if (auto* pUnknown = dynamic_cast<ITnUnknown*>(pObject)) {
        pUnknown->AddRef();
    }
    return 1;
}

void CTnRobotArchive::_RecordObject(std::uint16_t nIndex, CTnRobotObject* pObject) {
    const auto lock = LockObjects();
    Watch();
    m_readOrder.push_back(nIndex);
    _ForgetObject(nIndex);
    _KeepLowestGone(pObject);
    m_objectIndexes.emplace(pObject, nIndex);
    m_objectTable[nIndex].m_pObject = pObject;
}

// Under the lock of objects. Whoever drops each object before the next one is read gets all of them at
// one address. What is gone tells nothing more than that address, for which the lowest entry stands: the
// others would make every end of an object at that place a walk over all that were there before.
void CTnRobotArchive::_KeepLowestGone(const CTnRobotObject* pObject) {
    const auto [first, last] = m_objectIndexes.equal_range(pObject);
    auto lowest = last;
    for (auto it = first; it != last;) {
        auto higher = it++;
        if (m_objectTable[higher->second].m_bGone) {
            if (lowest == last || higher->second < lowest->second) {
                std::swap(lowest, higher);
            }
            if (higher != last) {
                m_objectIndexes.erase(higher);
            }
        }
    }
}

// Under the lock of objects.
void CTnRobotArchive::_ForgetObject(std::uint16_t nIndex) {
    ObjectEntry& entry = m_objectTable[nIndex];
    const auto [first, last] = m_objectIndexes.equal_range(std::exchange(entry.m_pObject, nullptr));
    const auto it = std::find_if(first, last, [nIndex](const auto& known) { return known.second == nIndex; });
    if (it != last) {
        m_objectIndexes.erase(it);
    }
    entry.m_bGone = false;
}

void CTnRobotArchive::_ForgetObjectsSince(std::size_t nMark) {
    const auto lock = LockObjects();
    while (m_readOrder.size() > nMark) {
        _ForgetObject(m_readOrder.back());
        m_readOrder.pop_back();
    }
}

void CTnRobotArchive::_ObjectGone(const CTnRobotObject* pObject) noexcept {
    const auto [first, last] = m_objectIndexes.equal_range(pObject);
    std::for_each(first, last, [this](const auto& known) { m_objectTable[known.second].m_bGone = true; });
}

int CTnRobotArchive::WriteMapHeader() {
    if (!m_file || m_classTable.size() > kMaxEntries || m_objectTable.size() > kMaxEntries) {
        return 0;
    }
    return _WriteClassTable() && _WriteObjectTable() ? 1 : 0;
}

// Identifiers carry no terminating zero, other than texts.
bool CTnRobotArchive::_WriteClassTable() {
    if (!_WriteNumber(static_cast<std::uint16_t>(m_classTable.size()))) {
        return false;
    }
    return std::all_of(m_classTable.begin(), m_classTable.end(), [this](const std::string& strGuid) {
        const auto nLength = static_cast<std::uint32_t>(strGuid.size());
        return _WriteNumber(nLength) && (nLength == 0 || Write(strGuid.data(), nLength) != 0);
    });
}

bool CTnRobotArchive::_WriteObjectTable() {
    if (!_WriteNumber(static_cast<std::uint16_t>(m_objectTable.size()))) {
        return false;
    }
    return std::all_of(m_objectTable.begin(), m_objectTable.end(), [this](const ObjectEntry& entry) {
        const auto nObject = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(entry.m_pObject));
        return _WriteNumber(nObject != 0 ? nObject : entry.m_nIdentity) && _WriteNumber(entry.m_nClass);
    });
}

int CTnRobotArchive::ReadMapHeader() {
    if (!m_file) {
        return 1;
    }
    return _ReadClassTable() && _ReadObjectTable() ? 1 : 0;
}

bool CTnRobotArchive::_ReadClassTable() {
    std::uint16_t nClasses = 0;
    if (!_ReadNumber(nClasses)) {
        return false;
    }
    tnrobot::ByteStorage bytes;
    for (unsigned int i = 0; i < nClasses; ++i) {
        std::uint32_t nLength = 0;
        std::size_t nArrived = 0;
        if (!_ReadNumber(nLength) || !_ReadBytes(bytes, nLength, nArrived)) {
            return false;
        }
        m_classTable.emplace_back(reinterpret_cast<const char*>(bytes.Data()), nArrived);
        if (m_classTable.size() <= kMaxEntries) {
            m_classIndexes.emplace(m_classTable.back(), static_cast<std::uint16_t>(m_classTable.size() - 1));
        }
    }
    return true;
}

bool CTnRobotArchive::_ReadObjectTable() {
    std::uint16_t nObjects = 0;
    if (!_ReadNumber(nObjects)) {
        return false;
    }
    for (unsigned int i = 0; i < nObjects; ++i) {
        std::uint64_t nIdentity = 0;
        std::uint16_t nClass = 0;
        if (!_ReadNumber(nIdentity) || !_ReadNumber(nClass)) {
            return false;
        }
        const auto lock = LockObjects();
        m_objectTable.push_back({nIdentity, nullptr, nClass});
    }
    return true;
}

int TnCreateRobotArchive(ITnRobotArchive** ppArchive) {
    *ppArchive = tnrobot::Watch(new CTnRobotArchive);
    return 1;
}
