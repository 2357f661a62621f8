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
#include "Picture.h"

/// Makes a value of the library's from what a file stores.
/// @return null for an entry that is not readable, and for texts and blocks: they can be large, and
///         their text forms lie in the file.
TnRobotPtr<ITnRobotDataValue> MakeScalar(const Entry& entry);

/// Lets the library load the groups, and adds damage where it does not find the same entries. Large
/// groups are loaded part by part, so that the library holds few values at a time.
void CompareWithLibrary(GroupFile& groups);

/// Lets the library load the value, and adds damage where it does not get as far.
void CompareWithLibrary(ByteRange file, ValueFile& value);

/// Lets the library read the tables, and adds damage where it does not get as far.
void CompareWithLibrary(ByteRange file, ObjectTables& tables);

/// What the library made of a picture.
struct Decoded {
    std::optional<Picture> picture;
    std::string strMessage;  ///< what the decoder said; empty when it was content
    int nResult = 0;
};

/// Decodes a JPEG picture.
Decoded DecodeJpeg(ByteRange file);

enum class PictureKind { kBmp, kJpeg };

/// Saves a picture. @param[in] strPath  ends in .jpg or .bmp, in any case.
/// @param[out] strMessage  what the encoder said; empty when it was content.
/// @return whether the encoder took the picture; not whether the file was written.
bool EncodePicture(const Picture& picture, const std::string& strPath, PictureKind eKind, std::string& strMessage);

#endif  // TNROBOT_INSPECT_LIBRARY_H_
