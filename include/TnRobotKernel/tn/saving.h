/// @file
/// Keeps an object, such as a value or a group, in a file of its own: SaveTo and LoadFrom.
///
/// A file is replaced as a whole or not at all, and one that was not read as a whole counts as not loaded.
/// Objects that write other objects are for tn/objects.h, several in one file for tn/group_files.h.
///
/// Threads: different files are independent. Several savers of one file leave that of the last one;
///          loaders beside them have one or the other, whole.

#ifndef TNROBOTKERNEL_TN_SAVING_H_
#define TNROBOTKERNEL_TN_SAVING_H_

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <typeinfo>

#include "TnRobotKernel/tn/detail/ForwardingArchive.h"
#include "TnRobotKernel/tn/detail/ReplacedFile.h"
#include "TnRobotKernel/tn/durability.h"
#include "TnRobotKernel/tn/error.h"
#include "TnRobotKernel/values.h"

namespace tn {

namespace detail {

// Sees whether an object writes other objects, whose tables no file of SaveTo has, and why a write
// fails, which only the system knows and only for a moment.
class SavingArchive final : public ForwardingArchive {
public:
    using ForwardingArchive::ForwardingArchive;

    long long Write(const void* pData, long long nCount) override {
        const long long nResult = ForwardingArchive::Write(pData, nCount);
        if (nResult == 0 && !m_writeError) {
            m_writeError = ReplacedFile::WriteError();
        }
        return nResult;
    }

    int WriteObject(CTnRobotObject* /*pObject*/) override {
        m_bMetObject = true;
        return 0;
    }
    bool HasMetObject() const { return m_bMetObject; }

    // Why the file failed, where it did.
    std::error_code FileError(ITnRobotFile& file) const {
        if (file.GetPos() != -1) {
            return {};
        }
        return m_writeError ? m_writeError : std::make_error_code(std::errc::io_error);
    }

private:
    bool m_bMetObject = false;
    std::error_code m_writeError;
};

// Whether an object is of the class of one that the library has made, or one could not be made without
// its pool. Another class of the same interface has a saved form of its own.
template <typename T>
bool IsOfLibrary(const ITnRobotSerialize& object, const TnRobotPtr<T>& own) {
    if (!own) {
        return true;
    }
    const T& made = *own;
    return typeid(object) == typeid(made);
}

inline bool IsGroupOfLibrary(const ITnRobotSerialize& object) {
    TnRobotPtr<ITnRobotDataValueGroup> group;
    if (dynamic_cast<const ITnRobotDataValueGroup*>(&object) == nullptr) {
        return false;
    }
    TnCreateRobotValueDataGroup(group.put());
    return IsOfLibrary(object, group);
}

inline bool IsValueOfLibrary(const ITnRobotSerialize& object) {
    TnRobotPtr<ITnRobotDataValue> value;
    if (dynamic_cast<const ITnRobotDataValue*>(&object) == nullptr) {
        return false;
    }
    TnCreateRobotBoolData(false, value.put());
    return IsOfLibrary(object, value);
}

// How many bytes a saved value of a type has; -1 where any number of them will do.
inline std::int64_t SavedSize(std::int32_t nType) noexcept {
    constexpr std::array<std::int8_t, DATA_TYPE_BYTE + 1> kSizes = {-1, 1, 2, 2, 4, 4, 4, 8, 8, 8, -1, -1, 2, 1};
    return kSizes[static_cast<std::size_t>(nType)];
}

// Sees whether the values of a group are whole, and have the bytes that their types have: a group does not look
// at what their loading answers, and a value takes as many as it is told there are. It knows the saved forms of
// a group and of a value, which is behind each name.
class LoadingArchive final : public ForwardingArchive {
public:
    // What is loaded tells where values are.
    LoadingArchive(ITnRobotArchive& archive, ITnRobotFile* pFile, ITnRobotSerialize& object)
        : ForwardingArchive(archive, pFile),
          m_bGroup(IsGroupOfLibrary(object)),
          m_bInValue(!m_bGroup && IsValueOfLibrary(object)) {}

    long long Read(void* pData, long long nCount) override {
        const long long nRead = ForwardingArchive::Read(pData, nCount);
        if ((m_bInValue || m_bGroup) && nRead > 0) {
            Follow(static_cast<const unsigned char*>(pData), static_cast<std::size_t>(nRead));
        }
        return nRead;
    }

    const char* ReadString(int& nLength, int* pError) override {
        EndPart();
        m_bInValue = m_bGroup;
        const char* lpszText = ForwardingArchive::ReadString(nLength, pError);
        if (m_bGroup && lpszText != nullptr) {
            CheckName(lpszText, static_cast<std::size_t>(nLength));
        }
        return lpszText;
    }

    // Whether the group and all values were whole; nothing is read any more.
    bool AreValuesWhole() {
        EndPart();
        return m_bWhole;
    }

private:
    static constexpr std::size_t kType = 1;  // behind the version
    static constexpr std::size_t kCount = kType + sizeof(std::int32_t);
    static constexpr std::size_t kHead = kCount + sizeof(std::int32_t);

    // The version and the numbers come one by one, and a copy of as many bytes as there are would be a
    // call for each.
    void Follow(const unsigned char* pBytes, std::size_t nBytes) {
        constexpr std::size_t kNumber = sizeof(std::int32_t);
        const std::size_t nBefore = m_nRead;
        m_nRead += nBytes;
        if (nBytes == 1 && nBefore < kHead) {
            m_head[nBefore] = *pBytes;
        } else if (nBytes == kNumber && nBefore <= kHead - kNumber) {
            std::memcpy(m_head.data() + nBefore, pBytes, kNumber);
        } else if (nBefore < kHead) {
            std::copy_n(pBytes, std::min(nBytes, kHead - nBefore), m_head.data() + nBefore);
        }
        if (m_nRead > kHead && m_bInValue && Number(kType) == DATA_TYPE_STRING) {
            const std::size_t nContent = std::min(nBytes, m_nRead - kHead);
            FollowText(pBytes + (nBytes - nContent), nContent);
        }
    }

    // Mostly the zero is the last byte.
    void FollowText(const unsigned char* pBytes, std::size_t nBytes) {
        m_bTextEnds = m_bTextEnds || pBytes[nBytes - 1] == 0 || std::memchr(pBytes, 0, nBytes) != nullptr;
    }

    std::int32_t Number(std::size_t nPosition) const {
        std::int32_t nNumber = 0;
        std::memcpy(&nNumber, m_head.data() + nPosition, sizeof(nNumber));
        return nNumber;
    }

    // A name has one zero, at its end. A group takes any, and drops what is behind the first one.
    void CheckName(const char* lpszName, std::size_t nLength) {
        m_bWhole = m_bWhole && nLength != 0 && std::memchr(lpszName, 0, nLength) == lpszName + nLength - 1;
    }

    // A value that is refused for its version is not read on, so its bytes are missing here. A group has
    // its count where a value has its type, and takes one below 0 for nothing.
    void EndPart() {
        if (!m_bInValue && m_bGroup && m_nRead >= kCount) {
            m_bWhole = m_bWhole && Number(kType) >= 0;
        } else if (m_bInValue) {
            m_bWhole = m_bWhole && IsValueWhole();
        }
        m_bInValue = false;
        m_bTextEnds = false;
        m_nRead = 0;
    }

    bool IsValueWhole() const {
        if (m_nRead < kHead || Number(kType) < DATA_TYPE_NONE || Number(kType) > DATA_TYPE_BYTE) {
            return false;
        }
        const std::int64_t nSize = SavedSize(Number(kType));
        const bool bFits = nSize < 0 || Number(kCount) == nSize;
        const bool bText = Number(kType) != DATA_TYPE_STRING || m_bTextEnds;
        return bFits && bText && Number(kCount) >= 0 && m_nRead - kHead == static_cast<std::size_t>(Number(kCount));
    }

    const bool m_bGroup;
    bool m_bInValue;
    bool m_bWhole = true;
    bool m_bTextEnds = false;  // the value's bytes have a zero
    std::size_t m_nRead = 0;   // bytes of the value, or of the group's beginning
    std::array<unsigned char, kHead> m_head{};
};

// Opens a file to read from its beginning, if it has bytes at all.
inline std::error_code OpenToRead(const char* lpszPath, TnRobotPtr<ITnRobotFile>& file) {
    if (lpszPath == nullptr) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    const std::error_code reason = CheckReadable(lpszPath);
    if (reason) {
        return reason;
    }
    TnCreateRobotFile(file.put());
    errno = 0;
    return file->Open(lpszPath, false) ? std::error_code() : ReplacedFile::WriteError();
}

// A file that was asked for more than it has has no position any more: groups and texts take short reads.
inline std::error_code CheckReadToItsEnd(ITnRobotFile& file) {
    if (file.GetPos() == -1) {
        return errc::file_incomplete;
    }
    char chMore = 0;
    return file.Read(&chMore, 1) > 0 ? std::error_code(errc::file_has_more) : std::error_code();
}

// Writes an object behind what the file has. The archive is attached to it.
inline std::error_code Store(SavingArchive& saving, ITnRobotFile& file, ITnRobotSerialize& object) {
    errno = 0;
    const bool bSaved = object.Serialize(&saving) == 1;
    if (saving.HasMetObject()) {
        return errc::needs_a_graph;
    }
    const std::error_code failed = saving.FileError(file);
    return failed || bSaved ? failed : errc::object_refused;
}

inline std::error_code Save(const char* lpszPath, ITnRobotSerialize& object, Durability eDurability) {
    ReplacedFile file;
    const std::error_code opened = file.Open(lpszPath);
    if (opened) {
        return opened;
    }
    const TnRobotPtr<ITnRobotArchive> archive = NewArchive();
    archive->Attach(&file.File(), true);
    const auto saving = MakeObject<SavingArchive>(*archive, &file.File());
    const std::error_code failed = Store(*saving, file.File(), object);
    return failed ? failed : file.Commit(eDurability);
}

// Reads an object from where the file stands, and leaves what follows. The archive is attached to it.
inline std::error_code Fetch(LoadingArchive& loading, ITnRobotFile& file, ITnRobotSerialize& object) {
    const bool bLoaded = object.Serialize(&loading) == 1;
    if (file.GetPos() == -1) {
        return errc::file_incomplete;
    }
    if (!bLoaded) {
        return errc::object_refused;
    }
    return loading.AreValuesWhole() ? std::error_code() : errc::file_damaged;
}

inline std::error_code Load(const char* lpszPath, ITnRobotSerialize& object) {
    TnRobotPtr<ITnRobotFile> file;
    const std::error_code opened = OpenToRead(lpszPath, file);
    if (opened) {
        return opened;
    }
    const TnRobotPtr<ITnRobotArchive> archive = NewArchive();
    archive->Attach(file.get(), false);
    const auto loading = MakeObject<LoadingArchive>(*archive, file.get(), object);
    const std::error_code failed = Fetch(*loading, *file, object);
    if (failed && failed != errc::file_damaged) {
        return failed;
    }
    const std::error_code reason = CheckReadToItsEnd(*file);
    return reason ? reason : failed;
}

}  // namespace detail

/// @addtogroup saving
/// @{

/// Saves an object, such as a value or a group, to a file of its own, so that nothing is ever lost: the
/// file is the old one or the new one as a whole.
///
/// The new file is written beside the old one and takes its place, with its mode, its access list and,
/// where the system permits it, its owner. So the directory must be writable too, and hard links to the old file keep
/// it. A symbolic link stays one: what it leads to is replaced, or made where it is missing.
/// @param[in] lpszPath     path; the current directory counts during the call.
/// @param[in] object       borrowed for the call; its Serialize saves it, and its exceptions pass through.
/// @param[in] eDurability  what the new file has to survive.
/// @param[out] ec          why it was not saved; cleared on success.
/// @return whether it was saved. Otherwise the old file is untouched and nothing else is left behind:
///         for a null path; where file or directory may not be written; at once for what is not a regular
///         file (directories, FIFOs, devices); for a result other than 1 of Serialize; when a write
///         fails, as on a full disk; and with errc::needs_a_graph for an object that uses
///         ITnRobotArchive::WriteObject, which SaveGraph saves. Only when the directory alone cannot be
///         synchronised the new file is there already.
inline bool SaveTo(const char* lpszPath, ITnRobotSerialize& object, Durability eDurability, std::error_code& ec) {
    ec = detail::Save(lpszPath, object, eDurability);
    return !ec;
}

/// Overload that brings the file to the disk.
/// @param[in] lpszPath  path.
/// @param[in] object    borrowed for the call.
/// @param[out] ec       why it was not saved; cleared on success.
/// @return whether it was saved.
inline bool SaveTo(const char* lpszPath, ITnRobotSerialize& object, std::error_code& ec) {
    return SaveTo(lpszPath, object, Durability::kSynced, ec);
}

/// Overload without the reason.
/// @param[in] lpszPath     path.
/// @param[in] object       borrowed for the call.
/// @param[in] eDurability  what the new file has to survive.
/// @return whether it was saved.
[[nodiscard]] inline bool SaveTo(const char* lpszPath, ITnRobotSerialize& object,
                                 Durability eDurability = Durability::kSynced) {
    std::error_code ignored;
    return SaveTo(lpszPath, object, eDurability, ignored);
}

/// Loads an object, such as a value or a group, from a file of its own, and says whether all of the file
/// was read and understood.
/// @param[in] lpszPath  path of a regular file.
/// @param[in] object    borrowed for the call; its Serialize loads it. A group keeps what it has.
/// @param[out] ec       why it was not loaded; cleared on success.
/// @return whether the file holds this object, whole, and nothing else. False for a null path; when the
///         file cannot be opened or is not a regular one; for a result other than 1 of Serialize; for a
///         file that ends early or goes on behind the object; and, with errc::file_damaged, for a group or value
///         in which a value cannot be read, has another number of bytes than its type, or is a text without a
///         zero, though the group or value itself loads. The object then holds what was read until then, the
///         last of it perhaps in part.
inline bool LoadFrom(const char* lpszPath, ITnRobotSerialize& object, std::error_code& ec) {
    ec = detail::Load(lpszPath, object);
    return !ec;
}

/// Overload without the reason.
/// @param[in] lpszPath  path of a regular file.
/// @param[in] object    borrowed for the call.
/// @return whether the file holds this object, whole, and nothing else.
[[nodiscard]] inline bool LoadFrom(const char* lpszPath, ITnRobotSerialize& object) {
    std::error_code ignored;
    return LoadFrom(lpszPath, object, ignored);
}

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_TN_SAVING_H_
