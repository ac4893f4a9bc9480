// Every message and payload of the library: its code, its class, its names, a default and a filled
// object. What holds for all of them is tested by walking this table; docs/messages.md is made of
// it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "nox/core/object_factory.h"
#include "nox/core/serializable.h"
#include "nox/protocol/remote/select_list.h"
#include "nox/protocol/sql/sql_responses.h"
#include "tests/support/messages.h"

namespace nox::test {

/// The library's factories, in the order of the columns that show them.
enum class Catalogue { auth, sql, remote, client };
constexpr Catalogue kCatalogues[] = {Catalogue::auth, Catalogue::sql, Catalogue::remote,
                                     Catalogue::client};
const char* nameOf(Catalogue catalogue);
std::unique_ptr<ObjectFactory> factoryOf(Catalogue catalogue);

/// What becomes of a default object that is written and read back.
enum class DefaultReads {
  asItIs,
  withEmptyFields,  // fields that are absent in a default object are empty in one that was read
  notAtAll,         // a default object writes nothing that could be read
  never             // objects of this class only write
};

/// A filled message with the objects that it only borrows.
struct Example {
  Example(Serializable* filled, std::vector<std::shared_ptr<void>> borrowed = {})
      : lent(std::move(borrowed)), message(filled) {}

  std::vector<std::shared_ptr<void>> lent;
  std::unique_ptr<Serializable> message;
};

/// Classes that can be copied but not tested like all others: lists, whose assignment leaves its
/// target alone, and the reply whose rows end with the first writing. Their own tests see to them.
template <class Message>
constexpr bool kCopiesItsOwnWay = std::is_same_v<Message, noxp::remote::SelectListProt> ||
                                  std::is_same_v<Message, noxp::sql::SQLResultResponseProt>;

/// One class. Codes, class names and registered names are typed here by hand.
struct MessageRow {
  int code;
  std::string className;
  std::string summary;
  const std::type_info* type;
  std::function<std::unique_ptr<Serializable>()> makeDefault;
  std::function<Example()> makeExample;
  /// Null for classes that are not copied, or not as all others are.
  std::function<void(const Serializable&)> expectCopies;

  std::vector<std::pair<Catalogue, std::string>> names;
  /// The layouts to show; examples travel in the last one.
  std::vector<int> versions = {0};
  DefaultReads defaultReads = DefaultReads::asItIs;
  /// What the fields alone do not tell.
  std::string note;

  MessageRow& in(Catalogue catalogue, std::string name) {
    names.emplace_back(catalogue, std::move(name));
    return *this;
  }
  MessageRow& layouts(std::vector<int> all) {
    versions = std::move(all);
    return *this;
  }
  MessageRow& reads(DefaultReads how) {
    defaultReads = how;
    return *this;
  }
  MessageRow& noting(std::string text) {
    note = std::move(text);
    return *this;
  }

  /// The registered name, or null.
  const std::string* nameIn(Catalogue catalogue) const;
  /// A filled object in the last layout.
  Example example() const { return example(versions.back()); }
  Example example(int version) const;
  /// The class name without its namespaces.
  std::string shortName() const;
};

/// The row of a class; `fill` makes the example.
template <class Message, class Fill>
MessageRow row(int code, std::string className, std::string summary, Fill fill) {
  MessageRow made{code,
                  std::move(className),
                  std::move(summary),
                  &typeid(Message),
                  [] { return std::unique_ptr<Serializable>(new Message); },
                  [fill]() -> Example { return fill(); },
                  nullptr,
                  {},
                  {0},
                  DefaultReads::asItIs,
                  ""};
  if constexpr (!kCopiesItsOwnWay<Message> && std::is_copy_constructible_v<Message> &&
                std::is_copy_assignable_v<Message>) {
    made.expectCopies = [](const Serializable& example) {
      test::expectCopies(dynamic_cast<const Message&>(example));
    };
  }
  return made;
}

/// Messages that belong together, as a section of the document.
struct Family {
  std::string title;
  std::string introduction;
  std::vector<MessageRow> rows;
};

const std::vector<Family>& families();

/// All rows of all families, in order.
std::vector<const MessageRow*> allRows();

/// A factory of every class of the table that can be read. Of classes that share a code it knows
/// that of `first`, where it has the code, or else the one that stands first in the table.
class EveryMessage : public ObjectFactory {
public:
  explicit EveryMessage(const MessageRow* first = nullptr);
  Serializable* create() override { return new EveryMessage; }
};

}  // namespace nox::test
