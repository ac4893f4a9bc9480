// WITH: which records a command takes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "agent/commands/dictionary.h"
#include "agent/commands/grammar.h"

namespace nox::agent {

/// Whether `text` is what `pattern` describes: "..." in it stands for any text. Bytewise.
bool isLike(std::string_view text, std::string_view pattern);

/// How a value compares with a literal: as numbers where both are, else bytewise. -1, 0 or 1.
int compareValues(std::string_view value, std::string_view literal);

/// The WITH clauses of a command, ready to be asked about one record after another.
class Filter {
public:
  /// Throws Failure IE/011 for an item that is unknown, and a literal that its conversion refuses.
  Filter(Dictionary& dictionary, const std::vector<With>& clauses);

  bool needsRecord() const;
  /// Whether the record satisfies all clauses.
  bool accepts(std::string_view id, std::string_view record);

private:
  struct Test {
    Item item;
    Comparison comparison;
    std::string literal;  // as it is stored

    bool holds(std::string_view value) const;
    bool holds(std::string_view id, std::string_view record, bool every);
  };
  struct Clause {
    bool every = false;
    std::vector<std::vector<Test>> alternatives;
  };

  std::vector<Clause> clauses_;
};

}  // namespace nox::agent
