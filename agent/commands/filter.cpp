#include "agent/commands/filter.h"

#include <algorithm>
#include <utility>

#include "agent/failure.h"
#include "agent/multivalue.h"

namespace nox::agent {

namespace {

/// The literal of a condition as values are stored.
std::string storedLiteral(const Item& item, const Word& literal) {
  try {
    return item.conversion().apply(literal.text, Direction::Input);
  } catch (const Failure& failure) {
    refuseWord(literal, "no value of the item \"" + item.name() + "\": " + failure.reason());
  }
}

}  // namespace

bool isLike(std::string_view text, std::string_view pattern) {
  constexpr std::string_view kAny = "...";
  std::size_t any = pattern.find(kAny);
  if (any == std::string_view::npos) return text == pattern;
  if (text.substr(0, any) != pattern.substr(0, any)) return false;
  text.remove_prefix(any);
  pattern.remove_prefix(any + kAny.size());
  // Each part between two "..." is taken where it first occurs; the last one ends the text.
  while ((any = pattern.find(kAny)) != std::string_view::npos) {
    const std::size_t found = text.find(pattern.substr(0, any));
    if (found == std::string_view::npos) return false;
    text.remove_prefix(found + any);
    pattern.remove_prefix(any + kAny.size());
  }
  return text.size() >= pattern.size() && text.substr(text.size() - pattern.size()) == pattern;
}

int compareValues(std::string_view value, std::string_view literal) {
  if (isNumber(value) && isNumber(literal)) return compareNumbers(value, literal);
  const int order = value.compare(literal);
  return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

Filter::Filter(Dictionary& dictionary, const std::vector<With>& clauses) {
  for (const With& with : clauses) {
    Clause clause;
    clause.every = with.every;
    for (const std::vector<Condition>& conditions : with.alternatives) {
      std::vector<Test>& tests = clause.alternatives.emplace_back();
      for (const Condition& condition : conditions) {
        Item item = dictionary.item(condition.item);
        std::string literal;
        if (condition.comparison != Comparison::NotEmpty) {
          literal = storedLiteral(item, condition.literal);
        }
        tests.push_back({std::move(item), condition.comparison, std::move(literal)});
      }
    }
    clauses_.push_back(std::move(clause));
  }
}

bool Filter::needsRecord() const {
  for (const Clause& clause : clauses_) {
    for (const std::vector<Test>& tests : clause.alternatives) {
      if (std::any_of(tests.begin(), tests.end(),
                      [](const Test& test) { return test.item.needsRecord(); })) {
        return true;
      }
    }
  }
  return false;
}

bool Filter::accepts(std::string_view id, std::string_view record) {
  return std::all_of(clauses_.begin(), clauses_.end(), [&](Clause& clause) {
    return std::any_of(
        clause.alternatives.begin(), clause.alternatives.end(), [&](std::vector<Test>& tests) {
          return std::all_of(tests.begin(), tests.end(),
                             [&](Test& test) { return test.holds(id, record, clause.every); });
        });
  });
}

bool Filter::Test::holds(std::string_view id, std::string_view record, bool every) {
  const std::string_view values = item.value(id, record);
  if (!item.multivalued()) return holds(values);
  // Subvalues are values like any other.
  for (Fields value(values, kValue); value; value.next()) {
    for (Fields subvalue(*value, kSubvalue); subvalue; subvalue.next()) {
      if (holds(*subvalue) != every) return !every;
    }
  }
  return every;
}

bool Filter::Test::holds(std::string_view value) const {
  switch (comparison) {
    case Comparison::NotEmpty:
      return !value.empty();
    case Comparison::Equal:
      return compareValues(value, literal) == 0;
    case Comparison::NotEqual:
      return compareValues(value, literal) != 0;
    case Comparison::Less:
      return compareValues(value, literal) < 0;
    case Comparison::AtMost:
      return compareValues(value, literal) <= 0;
    case Comparison::Greater:
      return compareValues(value, literal) > 0;
    case Comparison::AtLeast:
      return compareValues(value, literal) >= 0;
    case Comparison::Like:
      return isLike(value, literal);
  }
  return false;
}

}  // namespace nox::agent
