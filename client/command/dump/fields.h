// The fields of a message, taken from its own description of itself.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <nox/nox.h>

namespace nox::command {

struct Field;

/// An object with its fields in wire order.
struct ObjectFields {
  int type = 0;
  int version = 0;
  std::vector<Field> fields;
};

/// One field, under the name that the object gives it; often there is none.
struct Field {
  enum class Kind { Number, Text, Blob, Object, Null };
  std::string name;
  Kind kind = Kind::Null;
  int number = 0;
  std::string bytes;  // of a text, in UTF-8, or of a blob
  std::unique_ptr<ObjectFields> object;
  bool secret = false;  // a password
};

/// The type of the null object.
constexpr int kNullType = 1;

/// The fields that the bytes of a body (what stands between '[' and ']') spell, without names. An
/// object that was read could not tell a null blob from an empty one; its bytes can. A root that is
/// the null object has kNullType. Throws std::runtime_error where the bytes do not follow the
/// format.
ObjectFields fieldsOfBody(std::string_view body);

/// Names them as `object`, which was read from the same bytes, calls its fields. Writing empties
/// some messages (rows of a result set), so this is the last that is done with the object.
void nameFields(ObjectFields& fields, Serializable& object);

}  // namespace nox::command
