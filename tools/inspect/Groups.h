// The layout of value groups in a file, one group after another, and of a value that has a file of its own.
//
//   group   version (1 byte, 1), entry count (4 bytes), then for each entry a name and a value
//   name    count (4 bytes, 0 for an empty name), characters and a zero byte
//   value   version (1 byte, 1), type (4 bytes), byte count (4 bytes), bytes
//
// An entry can be as short as 13 bytes, so none is kept: whoever wants to see entries goes through
// the file's bytes again.

#ifndef TNROBOT_INSPECT_GROUPS_H_
#define TNROBOT_INSPECT_GROUPS_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Bytes.h"
#include "Problems.h"

/// One entry. Name and bytes are those of the file.
struct Entry {
    std::size_t nOffset = 0;  ///< of the name's count
    std::string_view name;
    std::size_t nValueOffset = 0;  ///< of the value's version
    std::int32_t nType = 0;
    ByteRange bytes;        ///< what the value stores
    bool bReadable = true;  ///< type and bytes fit together
    std::size_t nEnd = 0;   ///< where the next entry begins
};

/// Where a group lies, and how many entries of it can be read.
struct Group {
    std::size_t nOffset = 0;
    std::size_t nSize = 0;       ///< up to where reading ends
    std::int32_t nDeclared = 0;  ///< the entry count that the file states
    std::size_t nEntries = 0;
    bool bWhole = false;  ///< another group may follow
};

/// What is known about a file as a whole.
struct GroupFile {
    ByteRange file;
    bool bBegins = false;  ///< the file begins as a group does
    std::size_t nGroups = 0;
    std::size_t nEntries = 0;
    Problems problems;
};

/// A file with one value of its own: the only entry, at offset 0 and without a name.
struct ValueFile {
    Entry value;
    Problems problems;
};

/// @return whether a file begins as a value does, and ends with it or is cut within its bytes. A number
///         can have the same bytes as a group that was cut behind its first name; a value that is whole wins.
bool LooksLikeValue(ByteRange file);

/// Takes a file with one value apart.
ValueFile ParseValue(ByteRange file);

/// Takes a file of groups apart. What follows damage that hides where the next field begins is not looked at.
GroupFile ParseGroups(ByteRange file);

/// @return the group that begins at an offset of a file; nothing when none does.
std::optional<Group> GroupAt(ByteRange file, std::size_t nOffset);

/// @return the group behind another one.
std::optional<Group> GroupBehind(ByteRange file, const Group& group);

void ForEachGroup(ByteRange file, const std::function<void(const Group&)>& function);
void ForEachEntry(ByteRange file, const Group& group, const std::function<void(const Entry&)>& function);

/// @return the entry that begins at an offset, which must be one of a group's entries.
Entry EntryAt(ByteRange file, std::size_t nOffset);

/// @return the offsets of a group's entries, sorted by name; those of one name as they are in the file.
std::vector<std::size_t> EntriesByName(ByteRange file, const Group& group);

constexpr std::int32_t kStringType = 10;
constexpr std::int32_t kBlockType = 11;
constexpr std::int32_t kCharType = 12;

/// @return "INT" and the like; "type 77" for a number that is no type.
std::string TypeName(std::int32_t nType);

#endif  // TNROBOT_INSPECT_GROUPS_H_
