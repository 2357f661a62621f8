/// @file
/// Images: pixel formats, the plain image record, pooled surfaces, and the operations that load,
/// save, clip and join them.

#ifndef TNROBOTKERNEL_IMAGE_H_
#define TNROBOTKERNEL_IMAGE_H_

#include "TnRobotKernel/core.h"
#include "TnRobotKernel/detail/Point.h"
#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/pool.h"

/// @addtogroup image
/// @{

/// Pixel format. Formats 3 to 7 are treated alike: one byte per pixel, grey where it matters.
enum ETnNLImageType : int {
    TN_IMAGE_NONE = 0,    ///< no format; refused everywhere
    TN_IMAGE_RGB24 = 1,   ///< 3 bytes per pixel: R, G, B
    TN_IMAGE_BGR24 = 2,   ///< 3 bytes per pixel: B, G, R; the format of every loaded image
    TN_IMAGE_8BIT_3 = 3,  ///< 1 byte per pixel
    TN_IMAGE_8BIT_4 = 4,  ///< 1 byte per pixel
    TN_IMAGE_8BIT_5 = 5,  ///< 1 byte per pixel
    TN_IMAGE_8BIT_6 = 6,  ///< 1 byte per pixel
    TN_IMAGE_GRAY8 = 7,   ///< 1 byte per pixel, grey
    TN_IMAGE_420 = 8,     ///< 4:2:0, 12 bits per pixel on average
    TN_IMAGE_BGRX32 = 9,  ///< 4 bytes per pixel: B, G, R, unused
};

/// An image in memory that somebody else owns: a plain record that releases nothing.
///
/// JPEG operations step from row to row by the row length rounded up to a multiple of 4, BMP
/// operations by the plain row length; both read the same image where the two are equal.
struct STnNLImageData {
    unsigned char* pData;           ///< first pixel byte, top row first; borrowed
    unsigned int nDataSize;         ///< bytes at pData
    STnNL2DPoint oriPos;            ///< position within a larger image; copied, never interpreted
    int nWidth;                     ///< pixels
    int nHeight;                    ///< rows
    ETnNLImageType eImageType;      ///< pixel format
    unsigned char nBitsPerChannel;  ///< bits per channel, 8
    unsigned char nChannels;        ///< bytes per pixel
};

/// A region in pixels, half open: columns left to right - 1, rows top to bottom - 1.
struct STnNLROIRect {
    int left;    ///< first column
    int right;   ///< column after the last one
    int top;     ///< first row
    int bottom;  ///< row after the last one
};

/// A pooled image: a description, a time stamp and one memory block with the pixels, top row
/// first.
///
/// Lifetime: comes from a surface pool and returns to it with its last holder's Release. A
///           surface on its way back gives up its memory, but keeps description and time stamp:
///           the next holder sees the old time stamp until somebody sets another.
/// Threads:  AddRef and Release are thread-safe; the rest is externally synchronised.
class TN_ROBOT_API ITnRobotSurface : public ITnPoolElement {
public:
    /// What a surface holds.
    struct STnSurfaceDesc {
        int nWidth;   ///< pixels
        int nHeight;  ///< rows
        /// Bytes from one row to the next. Written by the surface pool, also into the description
        /// that a caller passes as constant.
        mutable int nPitch;
        ETnNLImageType eImageType;  ///< pixel format
        STnNL2DPoint oriPos;        ///< position within a larger image; carried, never interpreted
    };

    /// A surface's pixels. Rows start nPitch bytes apart; nDataSize is at least pitch x height
    /// unless the surface holds no memory: then pData is null and nDataSize 0.
    struct STnLockSurface {
        int nWidth;                 ///< pixels
        int nHeight;                ///< rows
        int nPitch;                 ///< bytes from one row to the next
        ETnNLImageType eImageType;  ///< pixel format
        unsigned char* pData;       ///< first byte of the top row; borrowed from the surface
        unsigned int nDataSize;     ///< bytes at pData
    };

    ~ITnRobotSurface() override;

    /// Gives access to the pixels. Locks do not count and exclude nobody; every lock is paired
    /// with an UnLockSurface all the same.
    /// @param[out] lock  filled; its pointer is borrowed until the caller's last Release.
    /// @return always true.
    virtual bool LockSurface(STnLockSurface& lock) = 0;

    /// Ends the access to the pixels.
    virtual void UnLockSurface() = 0;

    /// Tells what the surface holds.
    /// @param[out] desc  copy of the description, origin position included.
    virtual void GetSurfaceDesc(STnSurfaceDesc& desc) = 0;

    /// @return the origin position.
    virtual STnNL2DPoint GetOriPos() = 0;

    /// Replaces the origin position; the pixels stay.
    /// @param[in] oriPos  the new one, copied.
    virtual void ResetOriPos(const STnNL2DPoint& oriPos) = 0;

    /// @return the time stamp, 0 for a new surface.
    virtual unsigned long long QueryTimeStamp() = 0;

    /// Stores the time stamp. Its unit is the caller's: the library never sets it.
    /// @param[in] nTimeStamp  the new one.
    virtual void SetTimeStamp(unsigned long long nTimeStamp) = 0;
};

/// Hands out surfaces of any size and format.
///
/// Lifetime: holds one reference to its block pool. Surfaces outlive their pool; one with a
///           single holder loses its pixels when the pool goes.
/// Threads:  thread-safe; the destruction must not run concurrently with other use of the pool
///           or with the release of its surfaces.
class TN_ROBOT_API ITnRobotSurfacePool : public ITnUnknown {
public:
    ~ITnRobotSurfacePool() override;

    /// Hands out a surface; the pixels are not initialised.
    ///
    /// The pitch is 3 x width rounded up to a multiple of 4 for formats 1 and 2, the width for 3
    /// to 7, 3 x width / 2 rounded down for 8 and 4 x width for 9.
    ///
    /// A free surface is handed out even for a description that cannot be met (no format, no
    /// pixels, a size that does not fit 32 bits, no memory): it then has its previous description
    /// and holds no pixels. Callers send valid descriptions.
    /// @param[in]  desc       what is wanted; its nPitch is overwritten when the format is valid,
    ///                        so a description belongs to one call at a time.
    /// @param[out] ppSurface  +1, caller releases; untouched on failure.
    /// @return 0 on success; -1 for a null ppSurface, and when no surface is free for a description
    ///         that cannot be met. Throws std::bad_alloc when the system has no memory left.
    virtual int QuerySurface(const ITnRobotSurface::STnSurfaceDesc& desc, ITnRobotSurface** ppSurface) = 0;
};

/// Creates an empty surface pool. Thread-safe.
/// @param[in]  pBlockPool  source of the pixel memory; one reference is taken. With null the pool
///                         is created, but never has a surface.
/// @param[out] ppPool      +1, caller releases.
/// @return 1, or 0 for a null ppPool.
TN_ROBOT_API int TnCreateRobotSurfacePool(ITnRobotMemoryBlockPool* pBlockPool, ITnRobotSurfacePool** ppPool);

/// Operations on whole images.
///
/// Results: 0 success; -1 bad argument, refused geometry, unknown kind of file, input that cannot
///          be opened, no surface or no block; -2 the pixels cannot be decoded; -6 the image
///          cannot be encoded. PieceImage alone answers 1 for success and 0 for no surface.
///          Out-pointers receive +1, which the caller releases, and are untouched by a failure
///          unless an operation says otherwise.
/// Bytes of a new surface that no source covers, row padding included, are zero.
///
/// JPEG files are written as JFIF, and read by libjpeg, which prints its own messages about damaged
/// ones to the standard error output. BMP is the Windows bitmap, uncompressed, with a 40-byte info
/// header; rows are bottom-up in files, and unpadded.
///
/// Threads: thread-safe: the operations keep no state. A surface must not be in use elsewhere during
///          a call.
class TN_ROBOT_API TnRobotImageUtils {
public:
    TnRobotImageUtils() = delete;

    /// Copies an image of format 2 to 7 or 9 into a new surface, byte for byte: the rows must lie
    /// at the surface's pitch already.
    /// @param[in]  image      borrowed for the call.
    /// @param[in]  pPool      borrowed for the call.
    /// @param[out] ppSurface  +1, caller releases; untouched on failure.
    /// @return 0; -1 for null arguments, no pixels, more bytes than the surface has, or the pool's
    ///         own result when it has no surface; -2 for another format.
    static int NlImage2Surface(const STnNLImageData& image, ITnRobotSurfacePool* pPool, ITnRobotSurface** ppSurface);

    /// Describes a surface as a plain record.
    /// @param[in]  pSurface  borrowed; its memory stays its own.
    /// @param[out] image     valid while the caller holds the surface; nChannels is left as it was
    ///                       for formats 0 and 8. Untouched on failure.
    /// @return 0, or -1 for a null surface.
    static int Surface2NlImage(ITnRobotSurface* pSurface, STnNLImageData& image);

    /// Copies a region into a new surface of the same format (1 to 7) and the same origin position.
    /// @param[in]  pPool      borrowed for the call.
    /// @param[in]  pSource    borrowed for the call.
    /// @param[in]  region     pixels of the source, half open.
    /// @param[out] ppSurface  +1, caller releases; untouched on failure. Null, with a result of 0,
    ///                        when the pool has no surface: callers test the pointer.
    /// @return 0; -1 for null arguments, an empty region, one that is not inside the source,
    ///         another format, or a source that holds no pixels.
    static int ClipImage(ITnRobotSurfacePool* pPool, ITnRobotSurface* pSource, const STnNLROIRect& region,
                         ITnRobotSurface** ppSurface);

    /// Joins two images of equal size and format side by side. The new surface has both widths,
    /// the first one's height, the second one's format and the origin (0, 0).
    ///
    /// The second image contributes as many bytes of each row, and as many rows, as the first has;
    /// a row of the first has 3 bytes per pixel for formats 1 and 2 and one for all others.
    /// @param[in]  pPool      borrowed for the call.
    /// @param[in]  pFirst     left image, borrowed for the call.
    /// @param[in]  pSecond    right image, borrowed for the call.
    /// @param[out] ppSurface  +1, caller releases; null when the result is 0, untouched at -1.
    /// @return 1; 0 when the pool has no surface or is null, or the images do not fit together in it; -1 for a
    ///         null surface or a null ppSurface.
    static int PieceImage(ITnRobotSurfacePool* pPool, ITnRobotSurface* pFirst, ITnRobotSurface* pSecond,
                          ITnRobotSurface** ppSurface);

    /// Loads a file as a B,G,R surface. The last four characters of the path choose the format,
    /// ".jpg" or ".bmp" in any case; the content is not looked at. Of BMP files only those with 24
    /// bits per pixel and unpadded rows are read.
    ///
    /// - Other programs pad the rows of a BMP whose width is no multiple of 4: such files are refused
    ///   with -1, also when the header leaves their size open. A surface beyond 48 MiB needs all its
    ///   rows in the file; what is missing from a smaller one is zero.
    /// - A JPEG that was cut loads with 0; what is missing is grey, or with arithmetic coding
    ///   anything. libjpeg prints a warning to the standard error output, as for any damage.
    /// - EXIF orientation is not applied: a camera held upright gives a picture that lies.
    /// - A JPEG of more than 64 Mi pixels, ten passes over so many, or 100 scans needs coded bytes in
    ///   proportion (a bit for each block, a byte for 4,096 pixels of a pass), else the result is -2.
    ///   With arithmetic coding and restarts the bounds are narrower: ten passes over 16 Mi pixels, and
    ///   where restarts are more than two rows of blocks apart 4 Mi pixels of all passes together, with
    ///   a byte for each 64 beyond.
    /// - Throws std::bad_alloc, its own and the pool's.
    /// @param[in]  lpszPath   path, borrowed for the call.
    /// @param[in]  pPool      borrowed for the call.
    /// @param[out] ppSurface  +1, caller releases; untouched on failure.
    /// @return 0; -1 for null arguments, another kind of file, one that cannot be opened or has padded
    ///         rows, or no surface; -2 when its pixels cannot be read.
    static int LoadImage(const char* lpszPath, ITnRobotSurfacePool* pPool, ITnRobotSurface** ppSurface);

    /// Loads a JPEG held in memory as a B,G,R surface. All that is said above of JPEG files holds here:
    /// cut ones load with 0, orientation is not applied, libjpeg prints warnings, and std::bad_alloc
    /// may come out.
    /// @param[in]  pData      nLength bytes, borrowed for the call.
    /// @param[in]  nLength    bytes.
    /// @param[in]  pPool      borrowed for the call.
    /// @param[out] ppSurface  +1, caller releases; untouched on failure.
    /// @return 0; -1 for null or empty arguments, bytes that are no JPEG, or no surface; -2 when
    ///         the pixels cannot be decoded.
    static int LoadImage(const unsigned char* pData, unsigned int nLength, ITnRobotSurfacePool* pPool,
                         ITnRobotSurface** ppSurface);

    /// Loads the JPEG that a memory block holds, as above.
    /// @param[in]  pBlock     borrowed for the call.
    /// @param[in]  pPool      borrowed for the call.
    /// @param[out] ppSurface  +1, caller releases; untouched on failure.
    /// @return as above; -1 for a null block too.
    static int LoadImage(ITnRobotMemoryBlock* pBlock, ITnRobotSurfacePool* pPool, ITnRobotSurface** ppSurface);

    /// Saves an image as a file, replacing an old one. The last four characters of the path choose
    /// the format, ".jpg" (quality 95) or ".bmp" in any case; for any other ending nothing is
    /// written.
    ///
    /// - A BMP has unpadded rows. A colour surface whose width is no multiple of 4 has padded ones:
    ///   its BMP is a file that neither this library nor another program can read. A record with
    ///   packed rows comes back with this library only.
    /// - A BMP stores B,G,R. Format 1 is written as it lies: red and blue are exchanged.
    /// - A BMP of format 1 or 2 carries a colour table of 64 MiB.
    /// - A BMP holds all bytes of the record, counted from their end: a surface in a block larger than
    ///   its rows makes a shifted one. JPEG goes by the surface's pitch.
    /// - libjpeg prints its messages to the standard error output; std::bad_alloc may come out.
    /// - An image that cannot be encoded leaves the old file alone; otherwise its content is gone from the
    ///   start. When the disk is full, a write fails, or the process ends meanwhile, the file is empty or the
    ///   beginning of the new one, and nothing tells. tn::SaveImage replaces a file whole.
    /// @param[in] lpszPath  path, borrowed for the call.
    /// @param[in] pImage    borrowed for the call.
    /// @return 0, also for another ending and when the file cannot be opened or written; -1 for
    ///         null arguments or a path of less than four characters; -6 when the image cannot be
    ///         encoded.
    static int SaveImage(const char* lpszPath, const STnNLImageData* pImage);

    /// Saves a surface as a file, as above.
    /// @param[in] lpszPath  path, borrowed for the call.
    /// @param[in] pSurface  borrowed for the call.
    /// @return as above; -1 for a null surface.
    static int SaveImage(const char* lpszPath, ITnRobotSurface* pSurface);

    /// Saves an image as a JPEG of quality 95 in a new memory block. libjpeg prints its messages to the
    /// standard error output; std::bad_alloc may come out, its own and the pool's.
    /// @param[in]  image       borrowed for the call.
    /// @param[in]  pBlockPool  source of the block; borrowed for the call.
    /// @param[out] ppBlock     +1, caller releases; null when the pool has no block, untouched for
    ///                         other failures.
    /// @return 0; -1 for null arguments or no block; -6 when the image cannot be encoded.
    static int SaveImage(const STnNLImageData& image, ITnRobotMemoryBlockPool* pBlockPool,
                         ITnRobotMemoryBlock** ppBlock);

    /// Saves a surface as a JPEG of quality 95 in a new memory block, as above.
    /// @param[in]  pSurface    borrowed for the call.
    /// @param[in]  pBlockPool  source of the block; borrowed for the call.
    /// @param[out] ppBlock     +1, caller releases; null when the pool has no block, untouched for
    ///                         other failures.
    /// @return as above; -1 for a null surface too.
    static int SaveImage(ITnRobotSurface* pSurface, ITnRobotMemoryBlockPool* pBlockPool, ITnRobotMemoryBlock** ppBlock);
};

/// @}

#endif  // TNROBOTKERNEL_IMAGE_H_
