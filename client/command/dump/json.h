// Messages as JSON, and back into frames.
//
//   {"type": "ReadRecordRequest", "version": 0,
//    "fields": [["readMode", 2], ["_fileName", "ORDERS"], ["_recordId", "1001"]]}
//
// Fields stand in wire order, each with its name, which is often empty and need not be unique. A
// number is a number and a text a string; a blob is {"blob": "..."}; bytes that are no UTF-8 are
// {"base64": "..."}, and as a blob {"blob": {"base64": "..."}}; null is null. A version of 0 may be
// left out.
#pragma once

#include <string>
#include <string_view>

#include "client/command/dump/catalogue.h"
#include "client/command/dump/fields.h"

namespace nox::command {

/// One line.
std::string jsonOf(const ObjectFields& object, ObjectFactory& factory);
/// {"key": "text"}, one line.
std::string jsonOfText(const char* key, std::string_view text);

/// The frame of the message that the JSON text describes, its length included. Throws
/// std::runtime_error that says where and why for one that is no message: an unknown type, a field
/// too many or too few, of another kind or under another name.
std::string frameOfJson(std::string_view json, CatalogueFactory& factory);

}  // namespace nox::command
