#include "client/src/monitor_table.h"

#include <limits>
#include <string>

#include "client/src/numbers.h"

namespace nox::client::detail {

namespace {

/// The parts of `text` between separators.
std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

/// The server shows a backslash doubled, and what a terminal would obey as "\x1b".
std::string unescape(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      plain += text[i];
    } else if (text[i + 1] == 'x' && i + 3 < text.size() && hexDigit(text[i + 2]) >= 0 &&
               hexDigit(text[i + 3]) >= 0) {
      plain += static_cast<char>(hexDigit(text[i + 2]) * 16 + hexDigit(text[i + 3]));
      i += 3;
    } else {
      plain += text[++i];
    }
  }
  return plain;
}

}  // namespace

std::vector<XaBranchInfo> branchesIn(std::string_view text) {
  constexpr std::size_t kBranch = 0;
  constexpr std::size_t kState = 1;
  std::vector<XaBranchInfo> branches;
  const std::vector<std::string_view> lines = split(text, '\n');
  for (std::size_t i = 1; i < lines.size(); ++i) {  // the first is the heading
    const std::vector<std::string_view> fields = split(lines[i], '\t');
    if (fields.size() <= kState) continue;
    const std::string branch = unescape(fields[kBranch]);
    const std::size_t colon = branch.find(':');
    if (colon == std::string::npos) continue;
    const auto format = parseInt64(std::string_view(branch).substr(0, colon));
    if (!format || *format < std::numeric_limits<std::int32_t>::min() ||
        *format > std::numeric_limits<std::int32_t>::max()) {
      continue;
    }
    XaBranchInfo info;
    info.xid.format = static_cast<std::int32_t>(*format);
    info.xid.id = branch.substr(colon + 1);
    info.state = unescape(fields[kState]);
    branches.push_back(std::move(info));
  }
  return branches;
}

}  // namespace nox::client::detail
