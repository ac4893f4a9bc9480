// Dictionaries: the items by which commands name what lies in records.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "agent/commands/definition.h"
#include "agent/commands/grammar.h"
#include "agent/names.h"

namespace nox::agent {

class Expression;
class Session;

/// An item of a file, ready to be asked for its value in one record after another.
class Item {
public:
  Item(std::string name, Definition definition, std::unique_ptr<Expression> expression);
  Item(Item&&) noexcept;
  Item& operator=(Item&&) noexcept;
  ~Item();

  const std::string& name() const { return name_; }
  const Definition& definition() const { return definition_; }
  const Conversion& conversion() const { return definition_.conversion; }
  bool multivalued() const { return definition_.multivalued; }
  bool isNumeric() const { return definition_.justification == Justification::Right; }
  /// Heading lines, joined by value marks.
  const std::string& heading() const;
  /// Whether the id alone is not enough.
  bool needsRecord() const { return expression_ || definition_.attribute != 0; }

  /// The value as it is stored, without attribute marks. Valid until the next call, and no longer
  /// than `id` and `record`. Throws Failure IE/011 when an expression fails.
  std::string_view value(std::string_view id, std::string_view record);
  /// The value as people read it. What cannot be converted stays as it is.
  std::string shown(std::string_view id, std::string_view record);

private:
  std::string name_;
  Definition definition_;
  std::unique_ptr<Expression> expression_;
  std::string computed_;
};

/// The items of one part of a file. Data is described by the records of the file's dictionary;
/// dictionaries are described by items of their own: TYPE, LOC, CONV, HEADING, FORMAT and SM.
class Dictionary {
public:
  /// Throws Failure IE/011 where there is no such file.
  Dictionary(Session& session, FilePart described);

  /// "@ID" always exists; a record of that name says how it is shown. Throws Failure IE/011 for an
  /// item that is unknown, or whose record defines none.
  Item item(const Word& name);
  /// What a LIST without items shows besides the id: the names in the record "@LIST".
  std::vector<Word> listed();

private:
  /// False where there is no such record.
  bool read(const std::string& name, std::string& record);
  Item idItem();

  Session& session_;
  FilePart described_;
};

}  // namespace nox::agent
