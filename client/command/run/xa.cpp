// xa: the branches of distributed transactions.
#include <charconv>

#include "client/command/context.h"

namespace nox::command {

namespace {

client::Xid parseXid(const std::string& text) {
  client::Xid xid;
  const std::size_t colon = text.find(':');
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + std::min(colon, text.size()), xid.format);
  if (colon == std::string::npos || error != std::errc() || end != text.data() + colon ||
      colon + 1 == text.size()) {
    throw UsageError("a branch is FORMAT:ID, as \"xa list\" prints it, not \"" + text + "\"");
  }
  xid.id = text.substr(colon + 1);
  return xid;
}

}  // namespace

int runXa(Context& context, const Arguments& arguments) {
  const std::string action = arguments.get("ACTION");
  if (action == "list") {
    if (arguments.has("FORMAT:ID")) throw UsageError("xa list takes no branch");
    const auto branches = context.connection().recover();
    const auto rows = context.rows(std::vector<OutputColumn>{{"BRANCH"}, {"STATE"}});
    for (const client::XaBranchInfo& branch : branches) {
      rows->row({std::to_string(branch.xid.format) + ":" + branch.xid.id, branch.state});
    }
    rows->end();
    return kDone;
  }
  if (!arguments.has("FORMAT:ID")) throw UsageError("xa " + action + " needs FORMAT:ID");
  const client::Xid xid = parseXid(arguments.get("FORMAT:ID"));
  auto& branch = context.branch();
  if (action == "start") {
    if (!context.isSession()) throw UsageError("xa start belongs into a script, or to the prompt");
    branch = context.connection().startBranch(xid);
    return kDone;
  }
  if (branch && branch->xid() == xid) {
    if (action == "end") {
      branch->end();
    } else if (action == "prepare") {
      branch->prepare();
    } else {
      client::XaBranch ended = std::move(*branch);
      branch.reset();
      action == "commit" ? ended.commit() : ended.rollback();
    }
    return kDone;
  }
  if (action == "end" || action == "prepare") {
    throw UsageError("this session has not started " + arguments.get("FORMAT:ID"));
  }
  client::XaBranch prepared = context.connection().preparedBranch(xid);
  action == "commit" ? prepared.commit() : prepared.rollback();
  return kDone;
}

}  // namespace nox::command
