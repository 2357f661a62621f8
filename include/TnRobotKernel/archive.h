/// @file
/// The binary archive: values, groups and object graphs to and from a file.

#ifndef TNROBOTKERNEL_ARCHIVE_H_
#define TNROBOTKERNEL_ARCHIVE_H_

#include "TnRobotKernel/core.h"
#include "TnRobotKernel/memory.h"

/// @addtogroup archive
/// @{

/// Serialisation channel over one file in one direction.
///
/// Numbers are written as their in-memory bytes (little-endian), without padding. An object is
/// written in full once and by a 16-bit index afterwards; the tables that give indexes their
/// meaning are the map header, written after the objects and read before them. They only grow, so that
/// those of a second file would stand behind those of the first, where its indexes do not lead: take one
/// archive for each file that is loaded.
///
/// Lifetime: holds a reference to the attached file, none to the objects it has seen. An object
///           that later records refer to must stay alive until they have been read; one that is gone
///           counts as unread.
/// Threads:  externally synchronised.
class TN_ROBOT_API ITnRobotArchive : public ITnUnknown {
public:
    ~ITnRobotArchive() override;

    /// Binds a file, which the caller has opened; the tables are kept.
    /// @param[in] pFile     one reference is taken, until Detach.
    /// @param[in] bStoring  true for storing, false for loading.
    /// @return whether it is attached; false for a null file or when one is attached already, which
    ///         stays.
    virtual bool Attach(ITnRobotFile* pFile, bool bStoring) = 0;

    /// @return whether a file is attached for storing.
    virtual bool IsStoring() const = 0;

    /// @return whether a file is attached for loading.
    virtual bool IsLoading() const = 0;

    /// Writes raw bytes, whatever the direction.
    /// @param[in] pData   nCount bytes, copied.
    /// @param[in] nCount  bytes.
    /// @return the file's own result (1 success, 0 failure); 0 when detached.
    virtual long long Write(const void* pData, long long nCount) = 0;

    /// Reads raw bytes, whatever the direction.
    /// @param[out] pData   room for nCount bytes; those beyond the result are untouched.
    /// @param[in]  nCount  bytes wanted.
    /// @return bytes read, or the file's own failure; -1 when detached.
    virtual long long Read(void* pData, long long nCount) = 0;

    /// Writes a text with a 32-bit count that includes its terminating zero (0 when empty).
    /// @param[in] lpszText  borrowed for the call.
    /// @return 1 on success, 0 on failure, which includes a null text, one of 2 GiB or more (its zero
    ///         counted), and a detached archive.
    virtual int WriteString(const char* lpszText) = 0;

    /// Reads a text.
    /// @param[in,out] nLength  out: the stored count, terminating zero included; 0 when empty.
    ///                         When detached its incoming value is taken as the count.
    /// @param[out] pError  0 on success, -1 on failure; may be null.
    /// @return borrowed until the next ReadString or the archive's end, always followed by a
    ///         zero byte; null for an empty text and on failure. A text cut short by the end of
    ///         the file reads as zeros beyond it; where its count is above 1 MiB, nLength then
    ///         tells how many bytes have arrived.
    virtual const char* ReadString(int& nLength, int* pError) = 0;

    /// Writes an object, or a reference to it when this archive has met it before.
    /// @param[in] pObject  borrowed, and must stay alive until the last object is written: objects are
    ///                     told apart by address. Null is written as such.
    /// @return 1 on success; 0 on failure, when detached, for a null object, for one without a class
    ///         identifier or that is not ITnRobotSerialize, beyond 65,535 objects or classes (nothing is written then),
    ///         and for contents nested deeper than 4,096: then nothing more is written, and the outermost
    ///         call answers 0 whatever the objects in between make of it.
    virtual int WriteObject(CTnRobotObject* pObject) = 0;

    /// Reads an object or a reference to one that was read before.
    /// @param[out] ppObject  a new object is owned by the caller; a shared one has one more
    ///             reference when it is ITnUnknown. Untouched when the record cannot be read or
    ///             stands for null; null when the object fails to load, was not read yet or is gone.
    /// @return 1 on success; 0 on failure, when detached, for a null ppObject and for an object that
    ///         was written as null. Contents nested deeper than 4,096 fail the outermost call, with nothing
    ///         more read, whatever the objects in between make of it.
    virtual int ReadObject(CTnRobotObject** ppObject) = 0;

    /// Writes the class and object tables, which are complete when the last object is written.
    /// @return 1 on success, 0 on failure or when detached.
    virtual int WriteMapHeader() = 0;

    /// Reads class and object tables and appends them to those present, which is why a second file wants an
    /// archive of its own.
    /// @return 1 on success and when detached, 0 on failure, which keeps what was read so far.
    virtual int ReadMapHeader() = 0;

    /// Flushes the file; does nothing when detached.
    virtual void Flush() = 0;

    /// Releases the file without flushing or closing it; the tables are kept.
    virtual void Detach() = 0;
};

/// Creates a detached archive. Thread-safe.
/// @param[out] ppArchive  +1, caller releases; must not be null.
/// @return always 1.
TN_ROBOT_API int TnCreateRobotArchive(ITnRobotArchive** ppArchive);

/// @}

#endif  // TNROBOTKERNEL_ARCHIVE_H_
