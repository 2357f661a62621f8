// Values as people and programs read them.

#ifndef TNROBOT_INSPECT_VALUES_H_
#define TNROBOT_INSPECT_VALUES_H_

#include <nlohmann/json.hpp>
#include <string>

#include "Groups.h"

using Json = nlohmann::ordered_json;

/// @return bytes as lower-case hexadecimal digits.
std::string Hex(ByteRange bytes);

/// @return the library's text form of a value; the bytes in hexadecimal when it has none.
std::string ValueText(const Entry& entry);

/// @return the value as a JSON value of its kind; null when it is not readable or has no such form.
Json ValueJson(const Entry& entry);

/// @return a text as JSON; bytes that are no UTF-8 are escaped, JSON has no others.
Json TextJson(const std::string& strText);

#endif  // TNROBOT_INSPECT_VALUES_H_
