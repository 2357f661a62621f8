// A file as a JSON document.

#ifndef TNROBOT_INSPECT_JSON_H_
#define TNROBOT_INSPECT_JSON_H_

#include <string>

#include "Document.h"
#include "Values.h"

/// @return everything that is known about a file. All texts in it are UTF-8.
Json DocumentJson(const Document& document);

/// @return an object's identity as hexadecimal number.
std::string IdentityText(const ObjectRow& row);

#endif  // TNROBOT_INSPECT_JSON_H_
