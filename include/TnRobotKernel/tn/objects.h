/// @file
/// Graphs of objects in files: SaveGraph and LoadGraph for one root, ObjectWriter and ObjectReader for
/// several, ReadObject within the Serialize of a class.
///
/// A file begins with the tables of all classes and objects; the objects follow, each in full once and by
/// its number afterwards. These are the records of ITnRobotArchive, so what is written here can be read
/// with an archive's ReadMapHeader and ReadObject, and the other way round.
///
/// Objects that are shared must be counted (derived from ITnUnknown). One that is not is written in full
/// each time, belongs to the class that reads it, and a reference to one is refused.

#ifndef TNROBOTKERNEL_TN_OBJECTS_H_
#define TNROBOTKERNEL_TN_OBJECTS_H_

#include <memory>
#include <vector>

#include "TnRobotKernel/tn/detail/GraphReader.h"
#include "TnRobotKernel/tn/detail/GraphWriter.h"
#include "TnRobotKernel/tn/detail/ReplacedFile.h"
#include "TnRobotKernel/tn/durability.h"
#include "TnRobotKernel/tn/error.h"
#include "TnRobotKernel/tn/saving.h"

namespace tn {

namespace detail {

// Takes over what an archive has read. In front of a reader's archive an object that nobody counts is
// always a new one, for references to such objects are refused; elsewhere it may be somebody's already.
inline TnRobotPtr<ITnUnknown> TakeCounted(CTnRobotObject* pObject, bool bOwned) {
    TnRobotPtr<ITnUnknown> counted = Adopt(dynamic_cast<ITnUnknown*>(pObject));
    const std::unique_ptr<CTnRobotObject> uncounted(bOwned && !counted ? pObject : nullptr);
    return counted;
}

// Why an archive that does not tell has read nothing.
inline std::error_code GuessReason(ITnRobotArchive& archive, bool bTouched) {
    char chNothing = 0;
    if (bTouched) {
        return errc::file_damaged;
    }
    return archive.Read(&chNothing, 0) < 0 ? std::error_code(errc::file_incomplete) : std::error_code();
}

// What is left to do when an archive has read an object, or not. Not inlined, since objects read each other
// thousands deep: those that wait must not keep room for it.
[[gnu::noinline]] inline TnRobotPtr<ITnUnknown> EndReading(ITnRobotArchive& archive, bool bRead, bool bTouched,
                                                           CTnRobotObject* pObject, std::error_code& ec) {
    const auto* pReason = dynamic_cast<const ReadingReason*>(&archive);
    TnRobotPtr<ITnUnknown> object = TakeCounted(bTouched ? pObject : nullptr, pReason != nullptr);
    if (bRead) {
        ec = object ? std::error_code() : errc::wrong_type;
        return object;
    }
    ec = pReason != nullptr ? pReason->LastReason() : GuessReason(archive, bTouched);
    return nullptr;  // an object that came with a failure is given back
}

// Reads an object of any counted type. Empty and without a reason for a null.
inline TnRobotPtr<ITnUnknown> ReadCounted(ITnRobotArchive& archive, std::error_code& ec) {
    CTnRobotObject* pObject = nullptr;
    // No object lies there: a pointer that has not changed was not touched.
    auto* const pUntouched = reinterpret_cast<CTnRobotObject*>(&pObject);
    pObject = pUntouched;
    const bool bRead = archive.ReadObject(&pObject) == 1;
    return EndReading(archive, bRead, pObject != pUntouched, pObject, ec);
}

// Sees an object as another type.
template <typename T>
[[gnu::noinline]] TnRobotPtr<T> AsExpected(const TnRobotPtr<ITnUnknown>& object, std::error_code& ec) {
    TnRobotPtr<T> expected = object.try_as<T>();
    if (object && !expected) {
        ec = errc::wrong_type;
    }
    return expected;
}

}  // namespace detail

/// @addtogroup saving
/// @{

/// Reads an object, or one more reference to an object that was read before, mostly within the Serialize
/// of a class that has written it with ITnRobotArchive::WriteObject.
///
/// Nothing that a file says makes this touch an object that is gone. Through an archive of an
/// ObjectReader or LoadGraph every object is held until the reader goes. Other archives hold none: an
/// object that nobody has kept is not there when a later record refers to it.
/// @tparam T  the type that is expected, derived from ITnUnknown.
/// @param[in] archive  borrowed for the call.
/// @param[out] ec      cleared when there is an object and when a null was written; otherwise why there is
///             none: errc::wrong_type for an object that is no T, which is given back, and
///             errc::class_not_registered, errc::file_damaged and others for one that could not be read.
///             Archives that are not of an ObjectReader do not tell much: there every failure is
///             errc::file_damaged, a record that makes no sense may pass for a null, and an object
///             without a count, which is a wrong type too, is left as it is, since it may be somebody's.
/// @return the object; empty for a null and for every failure.
template <typename T>
TnRobotPtr<T> ReadObject(ITnRobotArchive& archive, std::error_code& ec) {
    return detail::AsExpected<T>(detail::ReadCounted(archive, ec), ec);
}

/// Overload without the reason.
/// @tparam T  the type that is expected, derived from ITnUnknown.
/// @param[in] archive  borrowed for the call.
/// @return the object; empty for a null and for every failure.
template <typename T>
[[nodiscard]] TnRobotPtr<T> ReadObject(ITnRobotArchive& archive) {
    std::error_code ignored;
    return ReadObject<T>(archive, ignored);
}

/// Writes any number of objects, and what they refer to, for one file.
///
/// They are kept in memory until Save, because the tables that come first in the file are complete
/// last. Once an object could not be written the writer has failed for good.
///
/// Lifetime: holds a reference to every counted object that it has met until it goes.
/// Threads:  externally synchronised.
class ObjectWriter final {
public:
    /// A writer without objects.
    ObjectWriter() {
        constexpr long long kChunk = 65536;
        TnCreateRobotMemFile(m_memory.put());
        m_memory->OpenWriteFile(kChunk);
        const TnRobotPtr<ITnRobotArchive> archive = detail::NewArchive();
        archive->Attach(m_memory.get(), true);
        m_writer = MakeObject<detail::GraphWriter>(*archive);
    }
    ObjectWriter(const ObjectWriter&) = delete;
    ObjectWriter& operator=(const ObjectWriter&) = delete;
    /// Gives all objects back.
    ~ObjectWriter() = default;

    /// Writes an object in full, or by its number when it was met before.
    /// @param[in] pObject  borrowed; null is written as such, and that is a success.
    /// @param[out] ec      why it was not written; cleared on success.
    /// @return whether it and all that it refers to were written.
    bool Write(CTnRobotObject* pObject, std::error_code& ec) {
        m_writer->WriteObject(pObject);
        ec = m_writer->Reason();
        return !ec;
    }

    /// Overload without the reason.
    /// @param[in] pObject  borrowed; null is written as such.
    /// @return whether it and all that it refers to were written.
    [[nodiscard]] bool Write(CTnRobotObject* pObject) {
        std::error_code ignored;
        return Write(pObject, ignored);
    }

    /// Writes a group, a value or anything else that has no class, behind what is there. It can be read without
    /// the classes of the objects behind it.
    /// @param[in] object  borrowed for the call; its Serialize saves it, and its exceptions pass through.
    /// @param[out] ec     why it was not written; cleared on success. errc::object_refused for a result other than 1
    ///                    of Serialize.
    /// @return whether it was written.
    bool WriteValues(ITnRobotSerialize& object, std::error_code& ec) {
        m_writer->WriteContents(object);
        ec = m_writer->Reason();
        return !ec;
    }

    /// Overload without the reason.
    /// @param[in] object  borrowed for the call.
    /// @return whether it was written.
    [[nodiscard]] bool WriteValues(ITnRobotSerialize& object) {
        std::error_code ignored;
        return WriteValues(object, ignored);
    }

    /// For what else is written between objects: texts, bytes. What Serialize answers of a group or a value that
    /// writes here says nothing of the writer's own state, so WriteValues is better.
    /// @return the archive, borrowed until the writer goes.
    ITnRobotArchive& Archive() { return *m_writer; }

    /// Replaces a file by everything written so far, as SaveTo does.
    /// @param[in] lpszPath     path.
    /// @param[in] eDurability  what the new file has to survive.
    /// @param[out] ec          why it was not saved; cleared on success.
    /// @return whether it was saved; false, with the old file untouched, when an object was not written.
    bool Save(const char* lpszPath, Durability eDurability, std::error_code& ec) const {
        ec = m_writer->Reason();
        detail::ReplacedFile file;
        if (!ec) {
            ec = file.Open(lpszPath);
        }
        if (!ec) {
            errno = 0;
            ec = WriteTo(file.File()) ? file.Commit(eDurability) : detail::ReplacedFile::WriteError();
        }
        return !ec;
    }

    /// Overload that brings the file to the disk.
    /// @param[in] lpszPath  path.
    /// @param[out] ec       why it was not saved; cleared on success.
    /// @return whether it was saved.
    bool Save(const char* lpszPath, std::error_code& ec) const { return Save(lpszPath, Durability::kSynced, ec); }

    /// Overload without the reason.
    /// @param[in] lpszPath     path.
    /// @param[in] eDurability  what the new file has to survive.
    /// @return whether it was saved.
    [[nodiscard]] bool Save(const char* lpszPath, Durability eDurability = Durability::kSynced) const {
        std::error_code ignored;
        return Save(lpszPath, eDurability, ignored);
    }

    /// Writes tables and objects to a file that the caller has opened, and that flushes later.
    /// @param[in] file  borrowed for the call.
    /// @return whether all was taken; false when an object was not written.
    [[nodiscard]] bool WriteTo(ITnRobotFile& file) const {
        if (m_writer->Reason() || !m_writer->WriteTables(file)) {
            return false;
        }
        long long nLength = m_memory->GetTotleLen();
        std::vector<char> objects(static_cast<std::size_t>(nLength));
        m_memory->GetMemData(objects.data(), nLength);
        return objects.empty() || file.Write(objects.data(), static_cast<long long>(objects.size())) != 0;
    }

private:
    TnRobotPtr<ITnRobotMemFile> m_memory;
    TnRobotPtr<detail::GraphWriter> m_writer;
};

/// Reads the objects of a file, whoever wrote it: nothing that the file says ends in an object that is
/// gone, in more memory than it has bytes for, or in endless nesting.
///
/// Once something could not be read, nothing more is: what follows has no meaning then. A null and an
/// object of another type than the one expected are no such failure.
///
/// Lifetime: holds a reference to every counted object that it has met until it goes, whatever the caller
///           and the objects themselves drop.
/// Threads:  externally synchronised.
class ObjectReader final {
public:
    /// Opens a file and reads its tables; Reason says whether that worked.
    /// @param[in] lpszPath  path of a regular file.
    explicit ObjectReader(const char* lpszPath) : ObjectReader() {
        const std::error_code reason = detail::OpenToRead(lpszPath, m_file);
        if (reason) {
            m_reader->Damage(reason);
        } else {
            Begin();
        }
    }

    /// Reads the tables from a file that the caller has opened, where it stands.
    /// @param[in] file  has positions; one reference is taken.
    explicit ObjectReader(ITnRobotFile& file) : ObjectReader() {
        m_file.copy_from(&file);
        Begin();
    }
    ObjectReader(const ObjectReader&) = delete;
    ObjectReader& operator=(const ObjectReader&) = delete;
    /// Gives all objects back.
    ~ObjectReader() = default;

    /// Reads the next object.
    /// @tparam T  the type that is expected, derived from ITnUnknown.
    /// @param[out] ec  cleared when there is an object and when a null was written; errc::wrong_type for an
    ///             object of another type; errc::end_of_file where the file ends; otherwise why it could
    ///             not be read.
    /// @return the object; empty for a null and for every failure.
    template <typename T>
    TnRobotPtr<T> Read(std::error_code& ec) {
        TnRobotPtr<T> object = ReadObject<T>(*m_reader, ec);
        if (m_reader->DamageReason()) {
            ec = m_reader->DamageReason();
            object.reset();
        }
        return object;
    }

    /// Overload without the reason.
    /// @tparam T  the type that is expected, derived from ITnUnknown.
    /// @return the object; empty for a null and for every failure.
    template <typename T>
    [[nodiscard]] TnRobotPtr<T> Read() {
        std::error_code ignored;
        return Read<T>(ignored);
    }

    /// Reads a group, a value or anything else that WriteValues, or its own Serialize, has written there.
    /// @param[in] object  borrowed for the call; its Serialize loads it, and its exceptions pass through. A group
    ///            keeps what it has. Behind damage it is left alone.
    /// @param[out] ec     cleared when it was read; otherwise why not, as of LoadFrom and Reason.
    /// @return whether it was read.
    bool ReadValues(ITnRobotSerialize& object, std::error_code& ec) {
        if (!Reason()) {
            LoadContents(object);
        }
        ec = Reason();
        return !ec;
    }

    /// Overload without the reason, which Reason has.
    /// @param[in] object  borrowed for the call.
    /// @return whether it was read.
    [[nodiscard]] bool ReadValues(ITnRobotSerialize& object) {
        std::error_code ignored;
        return ReadValues(object, ignored);
    }

    /// For what else is read between objects: texts, bytes. A group that reads here answers 1 whether or not its
    /// values were there, even where there is no file: ReadValues says it, or Reason.
    /// @return the archive, borrowed until the reader goes.
    ITnRobotArchive& Archive() { return *m_reader; }

    /// @return why nothing more can be read, errc::end_of_file included; no reason while all is well.
    std::error_code Reason() const { return m_reader->DamageReason(); }

    /// Ends the reading: looks whether the file has been read to its end.
    /// @param[out] ec  why not; cleared when it has.
    /// @return whether everything was read, and nothing follows.
    bool Finish(std::error_code& ec) {
        ec = m_reader->DamageReason();
        if (!ec) {
            const std::error_code reason = detail::CheckReadToItsEnd(*m_file);
            m_reader->Damage(reason ? reason : errc::end_of_file);
            ec = m_reader->DamageReason();
        }
        if (ec == errc::end_of_file) {
            ec.clear();
        }
        return !ec;
    }

    /// Overload without the reason.
    /// @return whether everything was read, and nothing follows.
    [[nodiscard]] bool Finish() {
        std::error_code ignored;
        return Finish(ignored);
    }

private:
    void LoadContents(ITnRobotSerialize& object) {
        const auto loading = MakeObject<detail::LoadingArchive>(*m_reader, nullptr, object);
        try {
            if (object.Serialize(loading.get()) != 1) {
                m_reader->Damage(errc::object_refused);
            } else if (!loading->AreValuesWhole()) {
                m_reader->Damage(errc::file_damaged);
            }
        } catch (...) {
            m_reader->Damage(errc::object_refused);  // half of it is read
            throw;
        }
    }

    ObjectReader() : m_archive(detail::NewArchive()), m_reader(MakeObject<detail::GraphReader>(*m_archive)) {}

    void Begin() {
        m_archive->Attach(m_file.get(), false);
        m_reader->ReadTables();
    }

    TnRobotPtr<ITnRobotFile> m_file;
    TnRobotPtr<ITnRobotArchive> m_archive;
    TnRobotPtr<detail::GraphReader> m_reader;
};

/// Saves an object and all that it refers to, so that nothing is ever lost, as SaveTo does.
/// @param[in] lpszPath     path.
/// @param[in] root         borrowed for the call; its class must be ITnRobotSerialize and have a record.
/// @param[in] eDurability  what the new file has to survive.
/// @param[out] ec          why it was not saved; cleared on success.
/// @return whether it was saved; otherwise the old file is untouched.
inline bool SaveGraph(const char* lpszPath, CTnRobotObject& root, Durability eDurability, std::error_code& ec) {
    ObjectWriter writer;
    return writer.Write(&root, ec) && writer.Save(lpszPath, eDurability, ec);
}

/// Overload that brings the file to the disk.
/// @param[in] lpszPath  path.
/// @param[in] root      borrowed for the call.
/// @param[out] ec       why it was not saved; cleared on success.
/// @return whether it was saved.
inline bool SaveGraph(const char* lpszPath, CTnRobotObject& root, std::error_code& ec) {
    return SaveGraph(lpszPath, root, Durability::kSynced, ec);
}

/// Overload without the reason.
/// @param[in] lpszPath     path.
/// @param[in] root         borrowed for the call.
/// @param[in] eDurability  what the new file has to survive.
/// @return whether it was saved.
[[nodiscard]] inline bool SaveGraph(const char* lpszPath, CTnRobotObject& root,
                                    Durability eDurability = Durability::kSynced) {
    std::error_code ignored;
    return SaveGraph(lpszPath, root, eDurability, ignored);
}

/// Loads an object and all that it refers to. The file must hold that and nothing else.
/// @tparam T  the type of the root, derived from ITnUnknown.
/// @param[in] lpszPath  path of a regular file.
/// @param[out] ec       why it was not loaded; cleared on success.
/// @return the root; empty on failure.
template <typename T>
TnRobotPtr<T> LoadGraph(const char* lpszPath, std::error_code& ec) {
    ObjectReader reader(lpszPath);
    TnRobotPtr<T> root = reader.Read<T>(ec);
    if (!root && !ec) {
        ec = errc::wrong_type;  // a null
    }
    if (root && !reader.Finish(ec)) {
        root.reset();
    }
    return root;
}

/// Overload without the reason.
/// @tparam T  the type of the root, derived from ITnUnknown.
/// @param[in] lpszPath  path of a regular file.
/// @return the root; empty on failure.
template <typename T>
[[nodiscard]] TnRobotPtr<T> LoadGraph(const char* lpszPath) {
    std::error_code ignored;
    return LoadGraph<T>(lpszPath, ignored);
}

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_TN_OBJECTS_H_
