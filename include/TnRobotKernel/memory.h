/// @file
/// Memory blocks and the pools that recycle them, the growable data stream, and files on disk
/// and in memory.

#ifndef TNROBOTKERNEL_MEMORY_H_
#define TNROBOTKERNEL_MEMORY_H_

#include "TnRobotKernel/core.h"

/// @addtogroup memory
/// @{

/// A reference-counted piece of raw memory.
///
/// Lifetime: a block of a pool returns to its pool when the last caller's reference goes; a
///           block whose pool is gone, and a custom block, is freed by then.
/// Threads:  AddRef, Release and QueryMemory are thread-safe; the bytes are externally synchronised.
class TN_ROBOT_API ITnRobotMemoryBlock : public ITnUnknown {
public:
    ~ITnRobotMemoryBlock() override;

    /// Start of the data; never fails and changes nothing.
    /// @param[out] nSize  used bytes, never above the block's capacity.
    /// @return borrowed pointer, valid until the caller's last Release.
    virtual unsigned char* QueryMemory(unsigned int& nSize) = 0;
};

/// What a block calls back when the last caller's reference to it goes.
///
/// Lifetime: not counted; the block pools of the library are block parents too.
/// Threads:  thread-safe.
class TN_ROBOT_API ITnRobotMemoryBlockParent {
public:
    ITnRobotMemoryBlockParent() = default;
    ITnRobotMemoryBlockParent(const ITnRobotMemoryBlockParent&) = delete;
    ITnRobotMemoryBlockParent& operator=(const ITnRobotMemoryBlockParent&) = delete;
    virtual ~ITnRobotMemoryBlockParent();

    /// Takes a block back; called on the thread that released it.
    /// @param[in] pBlock  borrowed: only the parent's own reference is left. Null is ignored.
    virtual void RecoveryMemBuff(ITnRobotMemoryBlock* pBlock) = 0;
};

/// Source of memory blocks of any size.
///
/// Lifetime: blocks outlive their pool; those still held when it goes are freed by their last
///           Release.
/// Threads:  thread-safe.
class TN_ROBOT_API ITnRobotMemoryBlockPool : public ITnUnknown {
public:
    ~ITnRobotMemoryBlockPool() override;

    /// Hands out a block with at least nSize bytes, whose used size is nSize. The bytes are not
    /// initialised.
    /// @param[in]  nSize    bytes wanted, 1 to 4294934528.
    /// @param[out] ppBlock  +1, caller releases; untouched on failure.
    /// @return 1 on success, 0 for a null ppBlock, a size out of range, or no room.
    /// Throws std::bad_alloc when the system has no memory left.
    virtual int QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) = 0;

    /// Gives memory that has lain unused for the pool's idle time back to the system. Calls
    /// within one idle time of the last one that did something (or of the creation) do nothing.
    /// Nothing calls it by itself.
    virtual void FreeUnuseMemory() = 0;
};

/// A sequence of bytes that grows in blocks of 1 MiB and never moves what it holds.
///
/// Lifetime: holds one reference to its block pool and one to each of its blocks.
/// Threads: externally synchronised.
class TN_ROBOT_API ITnRobotMemDataStream : public ITnUnknown {
public:
    ~ITnRobotMemDataStream() override;

    /// Appends bytes.
    /// @param[in] pData    nLength bytes, copied.
    /// @param[in] nLength  bytes; 0 appends nothing. GetTotleLength counts up to 4294967295 of them.
    /// @return 0 on success; -1 when the pool refuses a block, or answers 100 times in a row that it
    ///         has one and gives none, or pData is null: the bytes that found room stay in the stream
    ///         and GetTotleLength counts them.
    virtual int WriteData(const unsigned char* pData, unsigned int nLength) = 0;

    /// Starts reading at the first byte. The pass ends once it has returned as many bytes as the
    /// stream holds now. Its pieces are what the blocks hold when they are read, so content written
    /// during the pass can come with them: look at the sizes, not at the length asked for before.
    /// @return always 0.
    virtual int BeginReadData() = 0;

    /// The next piece of the content.
    /// @param[out] nSize  bytes of the piece, 0 at the end and outside a read pass.
    /// @return borrowed pointer, valid until the next ReadData, BeginReadData or EndReadData or
    ///         the stream's destruction; null at the end and outside a read pass.
    virtual unsigned char* ReadData(unsigned int& nSize) = 0;

    /// Ends the read pass.
    virtual void EndReadData() = 0;

    /// @return bytes written since the creation or the last Clear, modulo 2^32.
    virtual unsigned int GetTotleLength() = 0;

    /// Drops all content and gives its blocks back to the pool. A piece returned by ReadData stays
    /// valid until the read pass ends.
    virtual void Clear() = 0;
};

/// A file on disk or in memory.
///
/// Lifetime: the last Release closes it.
/// Threads: externally synchronised.
class TN_ROBOT_API ITnRobotFile : public ITnUnknown {
public:
    /// Origin of a Seek. A disk file counts from the beginning whatever it is told.
    enum ETnSeekDirect : int {
        SEEK_DIRECT_BEGIN = 0,    ///< from the beginning
        SEEK_DIRECT_CURRENT = 1,  ///< from the current position
        SEEK_DIRECT_END = 2,      ///< from the end
    };

    ~ITnRobotFile() override;

    /// Opens a file in binary mode.
    /// @param[in] lpszName  path, borrowed for the call.
    /// @param[in] bWrite    true creates or truncates for writing, false opens for reading. What a disk file
    ///                      held is gone from then on: when the disk is full, a write fails, or the process
    ///                      ends, the file is what had been handed to the system until then, from its start.
    ///                      tn::SaveTo replaces a file whole.
    /// @return whether the call has opened the file; false for a null path, when one was open
    ///         already (which stays open), and always for a memory file, which has no name.
    virtual bool Open(const char* lpszName, bool bWrite) = 0;

    /// Reads at the position and advances it.
    /// @param[out] pBuffer  room for nCount bytes; those beyond the result are untouched.
    /// @param[in]  nCount   bytes wanted; 0 or less reads nothing.
    /// @return bytes read, 0 to nCount. A disk file answers -1 when it is closed or has failed, which
    ///         includes an earlier read that met the end of the file, and for a null pBuffer; a
    ///         memory file answers 0 when it is closed or open for writing, and for a null pBuffer.
    virtual long long Read(void* pBuffer, long long nCount) = 0;

    /// Writes at the position and advances it. A disk file buffers: see Flush.
    /// @param[in] pBuffer  nCount bytes, copied; null only with a count of 0.
    /// @param[in] nCount   bytes.
    /// @return 1 on success; 0 on failure: closed, failed, open for reading, or a negative count.
    ///         A memory file over caller memory writes all or nothing; one that grows answers 1 for
    ///         a negative count, too.
    virtual long long Write(const void* pBuffer, long long nCount) = 0;

    /// Moves the position.
    /// @param[in] nOffset  bytes from the origin. A memory file takes a position before its start
    ///                     and transfers nothing there.
    /// @param[in] eDirect  the origin; a disk file ignores it.
    /// @return 0 on success; -1 when closed or failed, and for a disk file below 0; -2, with the
    ///         position as it was, past the end of caller memory or 2^31 chunks. A memory file that
    ///         grows keeps some positions although it answers 0: see docs/compatibility.md.
    virtual long long Seek(long long nOffset, ETnSeekDirect eDirect) = 0;

    /// @return the position in bytes, -1 when closed or failed. A memory file that is being
    ///         written answers its length.
    virtual long long GetPos() = 0;

    /// Hands buffered bytes to the system; does nothing for a memory file and for one that has
    /// failed. GetPos tells afterwards whether it worked.
    virtual void Flush() = 0;

    /// Closes the file; what a disk file has buffered is written. A memory file that grows drops its
    /// content.
    /// @return whether a file was open; a memory file always answers true.
    virtual bool Close() = 0;

    /// @return length in bytes of a memory file, which is the highest position reached by reading or
    ///         writing; always 0 for a disk file.
    virtual long long GetTotleLen() = 0;
};

/// A file over caller memory (flat) or over memory that grows in equal chunks.
///
/// Lifetime: borrows caller memory, owns its chunks.
/// Threads: externally synchronised.
class TN_ROBOT_API ITnRobotMemFile : public ITnRobotFile {
public:
    ~ITnRobotMemFile() override;

    /// Opens caller memory, for reading or for writing but not both.
    /// @param[in] pData    nLength bytes, borrowed until Close or the last Release.
    /// @param[in] nLength  bytes; the file never grows beyond them.
    /// @param[in] bWrite   true for writing (the length starts at 0), false for reading.
    /// @return whether the call has opened the file; false for null, a length below 1, or an open
    ///         file.
    virtual bool OpenMemFile(unsigned char* pData, long long nLength, bool bWrite) = 0;

    /// Opens an empty file for writing that grows in chunks.
    /// @param[in] nChunkSize  bytes of a chunk; chunks are zeroed.
    /// @return whether the call has opened the file; false for a size below 1 or an open file.
    virtual bool OpenWriteFile(long long nChunkSize) = 0;

    /// Copies the content out.
    /// @param[out]    pBuffer  room for nLength bytes; null only asks for the length.
    /// @param[in,out] nLength  in: bytes of pBuffer; out: the file's length (not the number
    ///                         copied, which is the smaller of the two). A closed file copies
    ///                         nothing.
    /// @return always true.
    virtual bool GetMemData(char* pBuffer, long long& nLength) = 0;
};

/// Creates a closed disk file. Thread-safe.
/// @param[out] ppFile  +1, caller releases; must not be null.
/// @return always 1.
TN_ROBOT_API int TnCreateRobotFile(ITnRobotFile** ppFile);

/// Creates a closed memory file. Thread-safe.
/// @param[out] ppFile  +1, caller releases; must not be null.
/// @return always 1.
TN_ROBOT_API int TnCreateRobotMemFile(ITnRobotMemFile** ppFile);

/// Creates the general block pool: size classes of whole 32 KiB units, freed after 60 seconds
/// of idleness by a FreeUnuseMemory. Thread-safe.
/// @param[out] ppPool  +1, caller releases.
/// @return 1, or 0 for a null ppPool.
TN_ROBOT_API int TnCreateRobotMemoryBlockPool(ITnRobotMemoryBlockPool** ppPool);

/// Creates the circular block pool, for streams of short-lived blocks: it cuts blocks one after
/// another, unaligned, out of four buffers of 24 MiB (more when all are in use), and starts a
/// buffer over when all its blocks are back. FreeUnuseMemory does nothing: memory is given back
/// when the pool goes, also that of blocks which are still held then.
/// QueryMemBuff serves 0 to 25165824 bytes. When other threads use up the buffer that it has
/// found, it answers 1 without a block: set the pointer to null before and test it afterwards, and
/// ask again, as streams, surface pools and TnRobotImageUtils::SaveImage do up to 100 times.
/// Thread-safe.
/// @param[out] ppPool  +1, caller releases; must not be null.
/// @return always 1.
TN_ROBOT_API int TnCreateRobotCircleMemoryBlockPool(ITnRobotMemoryBlockPool** ppPool);

/// Wraps caller memory as a block. Nothing is checked: pData need not lie inside pParent.
/// Thread-safe.
/// @param[in]  pParent  block kept alive by the new one (one reference is taken), or null.
/// @param[in]  pData    nSize bytes, borrowed for the block's life.
/// @param[in]  nSize    used bytes that the block reports.
/// @param[out] ppBlock  +1, caller releases; must not be null.
/// @return always 1.
TN_ROBOT_API int TnCreateRobotCustomMemBlock(ITnRobotMemoryBlock* pParent, unsigned char* pData, unsigned int nSize,
                                             ITnRobotMemoryBlock** ppBlock);

/// Creates an empty data stream. Thread-safe.
/// @param[in]  pPool     source of its blocks; one reference is held for the stream's life.
/// @param[out] ppStream  +1, caller releases; null on failure; must not be null itself.
/// @return 1, or 0 for a null pPool.
TN_ROBOT_API int TnCreateRobotMemDataStream(ITnRobotMemoryBlockPool* pPool, ITnRobotMemDataStream** ppStream);

/// @}

#endif  // TNROBOTKERNEL_MEMORY_H_
