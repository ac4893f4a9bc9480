#include "agent/session/named_commons.h"

#include "agent/conversions/conversions.h"
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

}  // namespace nox::agent
