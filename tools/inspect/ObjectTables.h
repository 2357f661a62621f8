// The layout of an archive that begins with its map header, as far as it is known without the
// classes of its objects.
//
//   header  class count (2 bytes), identifiers: length (4 bytes) and characters; object count
//           (2 bytes), objects: identity (8 bytes) and class index (2 bytes)
//   record  present (1 byte), new (1 byte), object index (2 bytes), then the object's own bytes

#ifndef TNROBOT_INSPECT_OBJECTTABLES_H_
#define TNROBOT_INSPECT_OBJECTTABLES_H_

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "Bytes.h"
#include "Problems.h"

struct ClassRow {
    std::size_t nOffset;
    std::string_view identifier;  ///< in the file
};

struct ObjectRow {
    std::size_t nOffset;
    std::uint64_t nIdentity;  ///< an address in the program that wrote the file: only a number here
    std::uint16_t nClass;
};

struct FirstRecord {
    bool bPresent;
    bool bNew;
    std::uint16_t nIndex;
};

struct ObjectTables {
    bool bLooksRight = false;  ///< classes were read, and all have readable identifiers
    std::vector<ClassRow> classes;
    std::vector<ObjectRow> objects;
    std::size_t nDataOffset = 0;  ///< where the header ends and the objects' own bytes begin
    ByteRange data;
    std::optional<FirstRecord> firstRecord;
    Problems problems;
};

/// Takes a file apart up to where the objects' own bytes begin.
ObjectTables ParseObjectTables(ByteRange file);

#endif  // TNROBOT_INSPECT_OBJECTTABLES_H_
