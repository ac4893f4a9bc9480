#include "agent/session/named_commons.h"

#include "agent/conversions/conversions.h"
#include "agent/failure.h"
#include "agent/session/session.h"

namespace nox::agent {

std::string namedCommon(Session& session, std::string_view name) {
  if (name == "@USER") return session.user();
  if (name == "@ACCOUNT") return session.account();
  if (name == "@SESSION") return std::to_string(session.id());
  if (name == "@DATE") return std::to_string(now(session.settings().timezone).day);
  if (name == "@TIME") return std::to_string(now(session.settings().timezone).second);
  if (name == "@LAST") return std::to_string(session.lastCommandCode());
  const auto found = session.commons().find(std::string(name));
  return found == session.commons().end() ? std::string() : found->second;
}

void setNamedCommon(Session& session, std::string_view name,
                    std::optional<std::string_view> value) {
  if (name.empty() || name.size() > kLongestCommonName || name.front() == '@') {
    throw Failure("22", "003",
                  "a named common of a program has a name of 1 to 255 bytes that does not begin "
                  "with \"@\"");
  }
  auto& commons = session.commons();
  const std::string key(name);
  if (!value) {
    commons.erase(key);
    return;
  }
  std::size_t bytes = name.size() + value->size();
  for (const auto& [other, text] : commons) {
    if (other != name) bytes += other.size() + text.size();
  }
  if (bytes > kMostCommonBytes) throw Failure("22", "003", "the named commons are too large");
  commons[key] = *value;
}

}  // namespace nox::agent
