/// @file
/// Any number of groups and values in one file: GroupFileWriter and GroupFileReader.
///
/// The file holds the saved bytes of each, one after the other, and nothing else: what is written here can
/// be read with ITnRobotArchive, and the other way round. Groups have no names in there: where they need one,
/// a value in each says it. The file does not say what lies where, so groups and values are read in the order
/// in which they were written; a file of groups alone needs no such order.
///
/// Whoever stores groups in a file in place, by ITnRobotArchive, has no such file when the disk is full, a write
/// fails or the process ends, but its beginning: all groups that had reached the system by a Flush can be read,
/// and the reader tells one that is cut from the end.

#ifndef TNROBOTKERNEL_TN_GROUP_FILES_H_
#define TNROBOTKERNEL_TN_GROUP_FILES_H_

#include "TnRobotKernel/tn/detail/PeekedFile.h"
#include "TnRobotKernel/tn/detail/ReplacedFile.h"
#include "TnRobotKernel/tn/durability.h"
#include "TnRobotKernel/tn/error.h"
#include "TnRobotKernel/tn/saving.h"

namespace tn {

/// @addtogroup saving
/// @{

/// Writes groups and values one after the other, and puts the file in its place when all are there.
///
/// They go to a file beside the one that is replaced, so that any number needs no memory. Until Save, and
/// where it fails, the old file is untouched; a writer that goes without one leaves nothing behind. Once
/// something could not be written the writer has failed for good. A child of fork may destroy its copy of one, which
/// leaves the parent's alone; it does nothing else with it.
///
/// Threads: externally synchronised.
class GroupFileWriter final {
public:
    /// Makes the file beside the one that is to be replaced; Reason says whether that worked.
    /// @param[in] lpszPath  path, as of SaveTo.
    explicit GroupFileWriter(const char* lpszPath) : m_reason(m_file.Open(lpszPath)) {
        if (!m_reason) {
            const TnRobotPtr<ITnRobotArchive> archive = detail::NewArchive();
            archive->Attach(&m_file.File(), true);
            m_archive = MakeObject<detail::SavingArchive>(*archive, &m_file.File());
        }
    }
    GroupFileWriter(const GroupFileWriter&) = delete;
    GroupFileWriter& operator=(const GroupFileWriter&) = delete;
    /// Removes what was not saved.
    ~GroupFileWriter() = default;

    /// Writes a group, a value or any other object behind those that are there.
    /// @param[in] object  borrowed for the call; its Serialize saves it, and its exceptions pass through.
    /// @param[out] ec     why it was not written; cleared on success.
    /// @return whether it was written; false also for everything behind one that was not, and after Save.
    ///         A disk that is full may come out only at a later one, or at Save.
    bool Write(ITnRobotSerialize& object, std::error_code& ec) {
        if (!m_reason) {
            m_reason = errc::object_refused;  // should it throw
            m_reason = detail::Store(*m_archive, m_file.File(), object);
        }
        ec = m_reason;
        return !ec;
    }

    /// Overload without the reason.
    /// @param[in] object  borrowed for the call.
    /// @return whether it was written.
    [[nodiscard]] bool Write(ITnRobotSerialize& object) {
        std::error_code ignored;
        return Write(object, ignored);
    }

    /// Puts the file in its place, as SaveTo does, and ends the writing.
    /// @param[in] eDurability  what the new file has to survive.
    /// @param[out] ec          why it was not saved; cleared on success.
    /// @return whether it was saved; false, with the old file untouched, when something was not written.
    bool Save(Durability eDurability, std::error_code& ec) {
        if (!m_reason) {
            m_reason = m_file.Commit(eDurability);
        }
        ec = m_reason;
        if (!m_reason) {
            m_reason = std::make_error_code(std::errc::bad_file_descriptor);
        }
        return !ec;
    }

    /// Overload that brings the file to the disk.
    /// @param[out] ec  why it was not saved; cleared on success.
    /// @return whether it was saved.
    bool Save(std::error_code& ec) { return Save(Durability::kSynced, ec); }

    /// Overload without the reason.
    /// @param[in] eDurability  what the new file has to survive.
    /// @return whether it was saved.
    [[nodiscard]] bool Save(Durability eDurability = Durability::kSynced) {
        std::error_code ignored;
        return Save(eDurability, ignored);
    }

    /// @return why nothing more can be written, std::errc::bad_file_descriptor after Save; no reason while all
    ///         is well.
    std::error_code Reason() const { return m_reason; }

private:
    detail::ReplacedFile m_file;
    TnRobotPtr<detail::SavingArchive> m_archive;
    std::error_code m_reason;
};

/// Reads groups and values one after the other, and tells the end of the file from damage.
///
/// Once something could not be read, nothing more is: what follows has no meaning then. A file that was cut
/// exactly between two groups cannot be told from a shorter one: there is no mark at the end, which would be
/// one more group, or damage, to every reader that does not know it. A GroupFileWriter leaves no such file;
/// whoever has to know of others writes the number of groups into the first.
///
/// Threads: externally synchronised.
class GroupFileReader final {
public:
    /// Opens a file; Reason says whether that worked.
    /// @param[in] lpszPath  path of a regular file; one without bytes is at its end.
    explicit GroupFileReader(const char* lpszPath) {
        TnRobotPtr<ITnRobotFile> file;
        m_reason = detail::OpenToRead(lpszPath, file);
        if (!m_reason) {
            m_file = MakeObject<detail::PeekedFile>(*file);
            m_archive = detail::NewArchive();
            m_archive->Attach(m_file.get(), false);
        }
    }
    GroupFileReader(const GroupFileReader&) = delete;
    GroupFileReader& operator=(const GroupFileReader&) = delete;
    /// Closes the file.
    ~GroupFileReader() = default;

    /// Reads the next group.
    /// @param[out] ec  cleared when there is one; errc::end_of_file where the file ends behind the last one;
    ///             otherwise why it could not be read, as of LoadFrom.
    /// @return the group; empty at the end and for every failure.
    TnRobotPtr<ITnRobotDataValueGroup> ReadGroup(std::error_code& ec) {
        TnRobotPtr<ITnRobotDataValueGroup> group;
        TnCreateRobotValueDataGroup(group.put());
        return ReadInto(std::move(group), ec);
    }

    /// Overload without the reason, which Reason has.
    /// @return the group; empty at the end and for every failure.
    [[nodiscard]] TnRobotPtr<ITnRobotDataValueGroup> ReadGroup() {
        std::error_code ignored;
        return ReadGroup(ignored);
    }

    /// Reads the next value, of whatever type it is.
    /// @param[out] ec  as of ReadGroup.
    /// @return the value; empty at the end and for every failure.
    TnRobotPtr<ITnRobotDataValue> ReadValue(std::error_code& ec) {
        TnRobotPtr<ITnRobotDataValue> value;
        TnCreateRobotBoolData(false, value.put());
        return ReadInto(std::move(value), ec);
    }

    /// Overload without the reason, which Reason has.
    /// @return the value; empty at the end and for every failure.
    [[nodiscard]] TnRobotPtr<ITnRobotDataValue> ReadValue() {
        std::error_code ignored;
        return ReadValue(ignored);
    }

    /// Reads the next one into an object.
    /// @param[in] object  borrowed for the call; its Serialize loads it, and its exceptions pass through. A group
    ///            keeps what it has. At the end, and behind damage, it is left alone.
    /// @param[out] ec     as of ReadGroup.
    /// @return whether it was read.
    bool Read(ITnRobotSerialize& object, std::error_code& ec) {
        if (!m_reason && !m_file->GoesOn()) {
            m_reason = m_file->ReadError() ? m_file->ReadError() : make_error_code(errc::end_of_file);
        }
        if (!m_reason) {
            m_reason = errc::object_refused;  // should it throw
            m_reason = Load(object);
        }
        ec = m_reason;
        return !ec;
    }

    /// Overload without the reason, which Reason has.
    /// @param[in] object  borrowed for the call.
    /// @return whether it was read.
    [[nodiscard]] bool Read(ITnRobotSerialize& object) {
        std::error_code ignored;
        return Read(object, ignored);
    }

    /// @return why nothing more can be read, errc::end_of_file included; no reason while all is well.
    std::error_code Reason() const { return m_reason; }

private:
    template <typename T>
    TnRobotPtr<T> ReadInto(TnRobotPtr<T> object, std::error_code& ec) {
        if (!object) {
            ec = std::make_error_code(std::errc::not_enough_memory);
        } else if (!Read(*object, ec)) {
            object.reset();
        }
        return object;
    }

    std::error_code Load(ITnRobotSerialize& object) {
        const auto loading = MakeObject<detail::LoadingArchive>(*m_archive, m_file.get(), object);
        const std::error_code reason = detail::Fetch(*loading, *m_file, object);
        return reason && m_file->ReadError() ? m_file->ReadError() : reason;
    }

    TnRobotPtr<detail::PeekedFile> m_file;
    TnRobotPtr<ITnRobotArchive> m_archive;
    std::error_code m_reason;
};

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_TN_GROUP_FILES_H_
