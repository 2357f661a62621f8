// The layout of value groups in a file: one group after another.
//
//   group   version (1 byte, 1), entry count (4 bytes), then for each entry a name and a value
//   name    count (4 bytes, 0 for an empty name), characters and a zero byte
//   value   version (1 byte, 1), type (4 bytes), byte count (4 bytes), bytes

#ifndef TNROBOT_INSPECT_GROUPS_H_
#define TNROBOT_INSPECT_GROUPS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "Bytes.h"
#include "Problems.h"

struct Entry {
    std::size_t nOffset = 0;  ///< of the name's count
    std::string strName;
    std::size_t nValueOffset = 0;  ///< of the value's version
    std::int32_t nType = 0;
    ByteRange bytes;        ///< what the value stores
    bool bReadable = true;  ///< type and bytes fit together
};

struct Group {
    std::size_t nOffset = 0;
    std::size_t nSize = 0;
    std::int32_t nDeclared = 0;  ///< the entry count that the file states
    std::vector<Entry> entries;
};

struct GroupFile {
    bool bBegins = false;  ///< the file begins as a group does
    std::vector<Group> groups;
    Problems problems;
};

/// Takes a file apart. What follows damage that hides where the next field begins is not looked at.
GroupFile ParseGroups(ByteRange file);

/// @return "INT" and the like; "type 77" for a number that is no type.
std::string TypeName(std::int32_t nType);

#endif  // TNROBOT_INSPECT_GROUPS_H_
