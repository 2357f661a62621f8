// A file as a JSON document.

#ifndef TNROBOT_INSPECT_JSON_H_
#define TNROBOT_INSPECT_JSON_H_

#include <string>

#include "Document.h"

/// Prints everything that is known about a file. What is wrong with it comes first; of a damaged
/// file follows what could be read, so that the document is whole in any case.
void PrintJson(const Document& document);

/// @return an object's identity as hexadecimal number.
std::string IdentityText(const ObjectRow& row);

#endif  // TNROBOT_INSPECT_JSON_H_
