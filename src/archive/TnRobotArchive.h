// The serialisation channel.

#ifndef TNROBOTKERNEL_SRC_ARCHIVE_TNROBOTARCHIVE_H_
#define TNROBOTKERNEL_SRC_ARCHIVE_TNROBOTARCHIVE_H_

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "TnRobotKernel/archive.h"
#include "core/TnObjectWatcher.h"
#include "core/TnRef.h"
#include "values/TnByteStorage.h"

/// An archive over one file.
///
/// The class and object tables live as long as the archive; their positions are the indexes in
/// the file. An object-table entry that came from a file holds the writer's pointer value as an
/// opaque number, which is never used as a pointer; the object itself is known once it has been
/// read.
///
/// An object that is destroyed, by whatever thread, counts as unread from then on: a file may refer
/// to it once more. Its address stays in the table, for that is what writing compares.
///
/// Invariants: neither table outgrows 65,535 entries while objects are written; m_objectIndexes
/// holds, for every known object, all entries that stand for it, but of those whose objects are gone
/// only a few for one address.
///
/// Threads: externally synchronised.
class CTnRobotArchive final : public ITnRobotArchive, private tnrobot::ObjectWatcher {
public:
    CTnRobotArchive() = default;
    ~CTnRobotArchive() override;

    bool Attach(ITnRobotFile* pFile, bool bStoring) override;
    bool IsStoring() const override;
    bool IsLoading() const override;
    long long Write(const void* pData, long long nCount) override;
    long long Read(void* pData, long long nCount) override;
    int WriteString(const char* lpszText) override;
    const char* ReadString(int& nLength, int* pError) override;
    int WriteObject(CTnRobotObject* pObject) override;
    int ReadObject(CTnRobotObject** ppObject) override;
    int WriteMapHeader() override;
    int ReadMapHeader() override;
    void Flush() override;
    void Detach() override;

private:
    struct ObjectEntry {
        std::uint64_t m_nIdentity;  // of an entry that was read: the writer's pointer value
        CTnRobotObject* m_pObject;  // null until the object has been written or read
        std::uint16_t m_nClass;
        bool m_bGone = false;  // the object was destroyed since
    };

    class Nesting;
    class UnreadOnFailure;

    template <typename T>
    bool _WriteNumber(T value);
    template <typename T>
    bool _ReadNumber(T& value);
    bool _ReadBytes(tnrobot::ByteStorage& bytes, std::size_t nCount, std::size_t& nArrived);

    int _WriteNewObject(CTnRobotObject* pObject);
    bool _FindObject(const CTnRobotObject* pObject, std::uint16_t& nIndex) const;
    bool _HasRoomFor(const char* lpszGuid) const;
    std::uint16_t _ClassIndex(const std::string& strGuid);
    std::uint16_t _AddObject(CTnRobotObject* pObject, std::uint16_t nClass);
    bool _WriteClassTable();
    bool _WriteObjectTable();

    int _ReadNewObject(std::uint16_t nIndex, CTnRobotObject** ppObject);
    int _ReadSharedObject(std::uint16_t nIndex, CTnRobotObject** ppObject);
    void _RecordObject(std::uint16_t nIndex, CTnRobotObject* pObject);
    void _KeepLowestGone(const CTnRobotObject* pObject);
    void _ForgetObject(std::uint16_t nIndex);
    void _ForgetObjectsSince(std::size_t nMark);
    bool _ReadClassTable();
    bool _ReadObjectTable();
    void _ObjectGone(const CTnRobotObject* pObject) noexcept override;

    tnrobot::Ref<ITnRobotFile> m_file;
    bool m_bStoring = false;
    tnrobot::ByteStorage m_text;  // that ReadString returned last
    std::vector<std::string> m_classTable;
    std::unordered_map<std::string, std::uint16_t> m_classIndexes;
    std::vector<ObjectEntry> m_objectTable;  // guarded by the lock of objects once it has one, like the next
    std::unordered_multimap<const CTnRobotObject*, std::uint16_t> m_objectIndexes;
    std::vector<std::uint16_t> m_readOrder;  // entries whose objects were read, in that order
    int m_nDepth = 0;                        // objects being written or read within each other
    bool m_bTooDeep = false;                 // one of them was refused for its depth
};

#endif  // TNROBOTKERNEL_SRC_ARCHIVE_TNROBOTARCHIVE_H_
