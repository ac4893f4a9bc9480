#include "agent/commands/dictionary.h"

#include <algorithm>
#include <utility>

#include "agent/commands/errors.h"
#include "agent/conversions/conversion_code.h"
#include "agent/failure.h"
#include "agent/multivalue.h"
#include "agent/requests/fields.h"
#include "agent/scripting/subroutine.h"
#include "agent/session/data_access.h"
#include "agent/session/session.h"

namespace nox::agent {

namespace {

constexpr char kIdItem[] = "@ID";
constexpr char kListItem[] = "@LIST";

struct BuiltIn {
  std::string_view name;
  std::size_t attribute;
};
constexpr BuiltIn kOfDictionaries[] = {
    {"TYPE", 1}, {"LOC", 2}, {"CONV", 3}, {"HEADING", 4}, {"FORMAT", 5}, {"SM", 6},
};

}  // namespace

Item::Item(std::string name, Definition definition, std::unique_ptr<Expression> expression)
    : name_(std::move(name)),
      definition_(std::move(definition)),
      expression_(std::move(expression)) {}
Item::Item(Item&&) noexcept = default;
Item& Item::operator=(Item&&) noexcept = default;
Item::~Item() = default;

const std::string& Item::heading() const {
  return definition_.heading.empty() ? name_ : definition_.heading;
}

std::string_view Item::value(std::string_view id, std::string_view record) {
  if (!expression_) {
    if (definition_.attribute == 0) return id;
    return extract(record, {static_cast<int>(definition_.attribute)});
  }
  computed_ = expression_->evaluate(id, record);
  // An item is one attribute: what would be several are its values.
  std::replace(computed_.begin(), computed_.end(), kAttribute, kValue);
  return computed_;
}

std::string Item::shown(std::string_view id, std::string_view record) {
  return conversion().applyWherePossible(value(id, record), Direction::Output);
}

Dictionary::Dictionary(Session& session, FilePart described)
    : session_(session), described_(std::move(described)) {
  if (!asCommandFailure([&] { return session_.store().hasFile(described_.file); })) {
    throw Failure("IE", "011", "there is no file \"" + described_.file + "\"");
  }
}

bool Dictionary::read(const std::string& name, std::string& record) {
  const bool isId = !name.empty() && name.size() <= kLongestRecordId && isUtf8(name) &&
                    name.find('\0') == std::string::npos;
  if (!isId) return false;
  NOXPBlob body;
  const FilePart dictionary{described_.file, Part::Dict};
  const DataAccess::Status status = asCommandFailure(
      [&] { return session_.data().read(dictionary.text(), name, DataAccess::kReadPlain, body); });
  if (status != DataAccess::Done) return false;
  record = bytesOf(&body);
  return true;
}

Item Dictionary::idItem() {
  std::string record;
  if (described_.part == Part::Data && read(kIdItem, record)) {
    try {
      Definition definition = parseDefinition(record);
      if (!definition.expression && definition.attribute == 0) {
        definition.multivalued = false;
        return Item(kIdItem, std::move(definition), nullptr);
      }
    } catch (const Failure&) {
      // The id is there whatever the record says.
    }
  }
  return Item(kIdItem, Definition(), nullptr);
}

Item Dictionary::item(const Word& name) {
  if (name.text == kIdItem) return idItem();
  if (described_.part == Part::Dict) {
    for (const auto& [builtIn, attribute] : kOfDictionaries) {
      if (name.text != builtIn) continue;
      Definition definition;
      definition.attribute = attribute;
      return Item(name.text, std::move(definition), nullptr);
    }
    refuseWord(name, "dictionaries have the items @ID, TYPE, LOC, CONV, HEADING, FORMAT and SM");
  }
  std::string record;
  if (!read(name.text, record)) refuseWord(name, "there is no such item in the dictionary");
  try {
    Definition definition = parseDefinition(record);
    std::unique_ptr<Expression> expression;
    if (definition.expression) expression = makeExpression(session_, *definition.expression);
    return Item(name.text, std::move(definition), std::move(expression));
  } catch (const Failure& failure) {
    throw Failure("IE", "011", "item " + quoted(name.text) + ": " + failure.reason());
  }
}

std::vector<Word> Dictionary::listed() {
  std::vector<Word> names;
  if (described_.part == Part::Dict) {
    for (const BuiltIn& builtIn : kOfDictionaries) names.push_back({std::string(builtIn.name), 0});
    return names;
  }
  std::string record;
  if (!read(kListItem, record)) return names;
  for (Fields name(record, kAttribute); name; name.next()) {
    if ((*name).empty()) continue;
    if (names.size() == kMostItems) {
      throw Failure("IE", "011", "the dictionary's record \"@LIST\" names more than 256 items");
    }
    names.push_back({std::string(*name), 0});
  }
  return names;
}

}  // namespace nox::agent
