// The grammar of the command language: from a line of text to a command. Knows no files and no
// session.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "agent/names.h"

namespace nox::agent {

constexpr std::size_t kLongestCommand = 1024u * 1024;  // bytes
constexpr std::size_t kMostConditions = 256;           // of one command
constexpr std::size_t kMostItems = 256;                // that it lists, and that it sorts by

/// A word of a command, and where its first character stands, counted from 1; 0 where it comes from
/// a dictionary.
struct Word {
  std::string text;
  std::size_t position = 0;
};

/// Throws Failure IE/011 that names the word and its place.
[[noreturn]] void refuseWord(const Word& word, const std::string& why);

enum class Comparison { NotEmpty, Equal, NotEqual, Less, AtMost, Greater, AtLeast, Like };

struct Condition {
  Word item;
  Comparison comparison = Comparison::NotEmpty;
  Word literal;
};

/// A WITH clause: one of the alternatives holds, of which all conditions hold.
struct With {
  bool every = false;
  std::vector<std::vector<Condition>> alternatives;
};

struct By {
  Word item;
  bool descending = false;
};

/// Which records of which file, and in which order.
struct Target {
  FilePart file;
  std::vector<std::string> ids;  // empty: all
  std::vector<With> with;        // all of them hold
  std::vector<By> by;
};

struct CreateFileCommand {
  std::string file;
};
struct DeleteFileCommand {
  std::string file;
  bool confirmed = false;
};
struct ClearFileCommand {
  std::string file;
  bool confirmed = false;
};
struct ListFilesCommand {};
/// LIST, and SORT, whose target is ordered by the id at the end.
struct ListCommand {
  Target target;
  std::vector<Word> items;
  bool headings = true;
  bool ids = true;
  std::optional<std::uint64_t> first;
};
struct CountCommand {
  Target target;
};
/// SELECT, and SSELECT, likewise.
struct SelectCommand {
  Target target;
};
struct SaveListCommand {
  std::string name;
};
struct GetListCommand {
  std::string name;
};
struct DeleteListCommand {
  std::string name;
};
struct ClearSelectCommand {};
struct WhoCommand {};
struct DateCommand {};
struct TimeCommand {};
struct RunCommand {
  Word subroutine;
  std::vector<std::string> arguments;
};

using Command = std::variant<CreateFileCommand, DeleteFileCommand, ClearFileCommand,
                             ListFilesCommand, ListCommand, CountCommand, SelectCommand,
                             SaveListCommand, GetListCommand, DeleteListCommand, ClearSelectCommand,
                             WhoCommand, DateCommand, TimeCommand, RunCommand>;

/// Throws Failure IE/011 for a line that cannot be understood, and 22/021 or 22/001 for a record id
/// that cannot be one.
Command parseCommand(std::string_view line);

}  // namespace nox::agent
