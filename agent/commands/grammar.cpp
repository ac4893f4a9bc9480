#include "agent/commands/grammar.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "agent/commands/tokens.h"
#include "agent/conversions/characters.h"
#include "agent/conversions/conversion_code.h"
#include "agent/failure.h"

namespace nox::agent {

namespace {

/// Words that name no item, in any case.
constexpr std::array<std::string_view, 8> kReserved = {"WITH", "EVERY",   "AND",      "OR",
                                                       "BY",   "BY-DSND", "HDR-SUPP", "ID-SUPP"};

constexpr std::pair<std::string_view, Comparison> kComparisons[] = {
    {"=", Comparison::Equal},   {"#", Comparison::NotEqual}, {"<", Comparison::Less},
    {"<=", Comparison::AtMost}, {">", Comparison::Greater},  {">=", Comparison::AtLeast},
    {"LIKE", Comparison::Like},
};

/// Recursive descent, but for the recursion: the language has no parentheses.
class Parser {
public:
  explicit Parser(std::string_view line) : tokens_(tokensOf(line)) {}

  Command parse() {
    Command command = parseVerb();
    if (peek().kind != Token::Kind::Nothing) refuse("nothing more was expected");
    return command;
  }

private:
  using Make = Command (Parser::*)();
  struct Verb {
    std::string_view name;
    Make make;
  };
  static const Verb kVerbs[];

  const Token& peek(std::size_t ahead = 0) const {
    return tokens_[std::min(at_ + ahead, tokens_.size() - 1)];
  }
  bool isNext(std::string_view keyword) const {
    return peek().kind == Token::Kind::Plain && equalsIgnoringCase(peek().word.text, keyword);
  }
  bool take(std::string_view keyword) {
    if (!isNext(keyword)) return false;
    ++at_;
    return true;
  }
  Word take() { return std::move(tokens_[at_++].word); }

  [[noreturn]] void refuse(const std::string& why) const {
    if (peek().kind != Token::Kind::Nothing) refuseWord(peek().word, why);
    throw Failure("IE", "011", "the command ends too early: " + why);
  }

  Word takePlain(const char* what) {
    if (peek().kind != Token::Kind::Plain) refuse(std::string(what) + " was expected");
    return take();
  }

  std::string takeFileName() {
    if (peek().kind != Token::Kind::Plain || !isFileName(peek().word.text)) {
      refuse("the name of a file was expected");
    }
    return take().text;
  }

  std::string takeListName() {
    if (peek().kind != Token::Kind::Plain || !isFileName(peek().word.text)) {
      refuse("the name of a list was expected");
    }
    return take().text;
  }

  Word takeItem() {
    if (peek().kind != Token::Kind::Plain || isReserved(peek().word.text)) {
      refuse("the name of an item was expected");
    }
    return take();
  }

  static bool isReserved(std::string_view word) {
    return std::any_of(kReserved.begin(), kReserved.end(), [&](std::string_view reserved) {
      return equalsIgnoringCase(word, reserved);
    });
  }

  bool takeYes() { return take("(Y") || take("(Y)"); }

  Command parseVerb();
  Target parseTarget();
  bool takeClause(Target& target);
  With parseWith();
  Condition parseCondition();
  bool takeOption(ListCommand& list);
  ListCommand parseList();

  template <class Named>
  Command parseFile() {
    return Named{takeFileName()};
  }
  template <class Named>
  Command parseFileAndYes() {
    Named command{takeFileName()};
    command.confirmed = takeYes();
    return command;
  }
  template <class Named>
  Command parseListName() {
    return Named{takeListName()};
  }
  template <class Plain>
  Command parsePlain() {
    return Plain{};
  }
  template <class Targeted>
  Command parseTargeted() {
    return Targeted{parseTarget()};
  }
  Command parseListCommand() { return parseList(); }
  Command parseSort() {
    ListCommand list = parseList();
    list.target.by.push_back(byId());
    return list;
  }
  Command parseSortedSelect() {
    SelectCommand select{parseTarget()};
    select.target.by.push_back(byId());
    return select;
  }
  Command parseRun() {
    RunCommand run{takePlain("the name of a subroutine"), {}};
    while (peek().kind != Token::Kind::Nothing) run.arguments.push_back(take().text);
    return run;
  }

  static By byId() { return {{"@ID", 0}, false}; }

  std::vector<Token> tokens_;
  std::size_t at_ = 0;
  std::size_t conditions_ = 0;
};

const Parser::Verb Parser::kVerbs[] = {
    {"CREATE-FILE", &Parser::parseFile<CreateFileCommand>},
    {"DELETE-FILE", &Parser::parseFileAndYes<DeleteFileCommand>},
    {"CLEAR-FILE", &Parser::parseFileAndYes<ClearFileCommand>},
    {"LISTF", &Parser::parsePlain<ListFilesCommand>},
    {"LIST", &Parser::parseListCommand},
    {"SORT", &Parser::parseSort},
    {"COUNT", &Parser::parseTargeted<CountCommand>},
    {"SELECT", &Parser::parseTargeted<SelectCommand>},
    {"SSELECT", &Parser::parseSortedSelect},
    {"SAVE-LIST", &Parser::parseListName<SaveListCommand>},
    {"GET-LIST", &Parser::parseListName<GetListCommand>},
    {"DELETE-LIST", &Parser::parseListName<DeleteListCommand>},
    {"CLEARSELECT", &Parser::parsePlain<ClearSelectCommand>},
    {"WHO", &Parser::parsePlain<WhoCommand>},
    {"DATE", &Parser::parsePlain<DateCommand>},
    {"TIME", &Parser::parsePlain<TimeCommand>},
    {"RUN", &Parser::parseRun},
};

Command Parser::parseVerb() {
  if (peek().kind == Token::Kind::Nothing) throw Failure("IE", "011", "the command is empty");
  for (const auto& [name, make] : kVerbs) {
    if (take(name)) return (this->*make)();
  }
  refuse("there is no such command");
}

Target Parser::parseTarget() {
  Target target;
  if (take("DICT")) target.file.part = Part::Dict;
  target.file.file = takeFileName();
  while (peek().kind == Token::Kind::Id) {
    checkRecordId(peek().word.text);
    target.ids.push_back(take().text);
  }
  while (takeClause(target)) {
  }
  return target;
}

bool Parser::takeClause(Target& target) {
  if (take("WITH")) {
    target.with.push_back(parseWith());
    return true;
  }
  const bool descending = isNext("BY-DSND");
  if (!take("BY") && !take("BY-DSND")) return false;
  if (target.by.size() == kMostItems) refuse("a command sorts by 256 items at most");
  target.by.push_back({takeItem(), descending});
  return true;
}

With Parser::parseWith() {
  With with;
  with.every = take("EVERY");
  do {
    with.alternatives.emplace_back();
    do {
      with.alternatives.back().push_back(parseCondition());
    } while (take("AND"));
  } while (take("OR"));
  return with;
}

Condition Parser::parseCondition() {
  if (++conditions_ > kMostConditions) refuse("a command has 256 conditions at most");
  Condition condition;
  condition.item = takeItem();
  for (const auto& [sign, comparison] : kComparisons) {
    if (!take(sign)) continue;
    condition.comparison = comparison;
    if (peek().kind != Token::Kind::Plain && peek().kind != Token::Kind::Text) {
      refuse("a word or a text in double quotes was expected");
    }
    condition.literal = take();
    break;
  }
  return condition;
}

bool Parser::takeOption(ListCommand& list) {
  if (take("HDR-SUPP")) {
    list.headings = false;
    return true;
  }
  if (take("ID-SUPP")) {
    list.ids = false;
    return true;
  }
  // An item may be called FIRST, too: only a number behind it makes it an option.
  const Token& next = peek(1);
  if (!isNext("FIRST") || next.kind != Token::Kind::Plain) return false;
  const std::string& digits = next.word.text;
  std::uint64_t number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stopped, error] = std::from_chars(digits.data(), end, number);
  if (stopped != end) return false;
  if (error != std::errc()) refuseWord(next.word, "the number is too large");
  list.first = number;
  at_ += 2;
  return true;
}

/// Clauses, items and options may stand in any order behind the file and its ids.
ListCommand Parser::parseList() {
  ListCommand list;
  list.target = parseTarget();
  while (peek().kind != Token::Kind::Nothing) {
    if (takeClause(list.target) || takeOption(list)) continue;
    if (list.items.size() == kMostItems) refuse("a command lists 256 items at most");
    list.items.push_back(takeItem());
  }
  return list;
}

}  // namespace

void refuseWord(const Word& word, const std::string& why) {
  std::string text = quoted(word.text);
  if (word.position > 0) text += " at character " + std::to_string(word.position);
  throw Failure("IE", "011", text + ": " + why);
}

Command parseCommand(std::string_view line) { return Parser(line).parse(); }

}  // namespace nox::agent
