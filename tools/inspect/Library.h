// What the library itself makes of the bytes of a file.

#ifndef TNROBOT_INSPECT_LIBRARY_H_
#define TNROBOT_INSPECT_LIBRARY_H_

#include <TnRobotKernel/TnRobotKernel.h>
#include <TnRobotKernel/ptr.h>

#include <optional>
#include <string>

#include "Bytes.h"
#include "Groups.h"
#include "ObjectTables.h"

/// Makes a value of the library's from what a file stores.
/// @return null for an entry that is not readable.
TnRobotPtr<ITnRobotDataValue> MakeValue(const Entry& entry);

/// Lets the library load the groups, and adds damage where it does not find the same entries.
void CompareWithLibrary(ByteRange file, GroupFile& groups);

/// Lets the library read the tables, and adds damage where it does not get as far.
void CompareWithLibrary(ByteRange file, ObjectTables& tables);

/// A picture's pixels: B, G, R, packed rows, top row first.
struct Picture {
    int nWidth = 0;
    int nHeight = 0;
    Bytes pixels;
};

enum class PictureKind { kBmp, kJpeg };

/// Decodes a picture.
/// @param[in]  strPath   where the bytes come from; BMP files are read from there.
/// @param[out] strError  why there is no picture, or what the decoder complained about.
std::optional<Picture> DecodePicture(PictureKind eKind, const std::string& strPath, ByteRange file,
                                     std::string& strError);

/// Saves a picture. @param[in] strPath  ends in .jpg or .bmp, in any case.
/// @return whether the encoder took the picture; not whether the file was written.
bool EncodePicture(const Picture& picture, const std::string& strPath, PictureKind eKind);

#endif  // TNROBOT_INSPECT_LIBRARY_H_
