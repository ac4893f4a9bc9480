// What may follow what was typed so far.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace nox::command {

/// Where names come from. The prompt asks the server and remembers; tests make them up.
class NameSource {
public:
  virtual ~NameSource() = default;
  virtual std::vector<std::string> files() = 0;
  virtual std::vector<std::string> items(const std::string& file) = 0;
  virtual std::vector<std::string> tables() = 0;
  virtual std::vector<std::string> columns(const std::string& table) = 0;
};

struct Completion {
  std::size_t begin = 0;                // of the word that is completed
  std::vector<std::string> candidates;  // sorted, each beginning like that word (in any case)
};

/// `text` is what stands left of the cursor, of SQL of several lines all of it; `behind` what
/// stands right of it.
Completion complete(std::string_view text, std::string_view behind, NameSource& names);

/// The longest begin that all candidates share.
std::string commonBegin(const std::vector<std::string>& candidates);

}  // namespace nox::command
