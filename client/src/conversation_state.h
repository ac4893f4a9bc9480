// What a Conversation is made of.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include <nox/nox.h>

#include "client/src/link.h"
#include "nox/client/conversation.h"

namespace nox::client {

struct Conversation::State {
  std::shared_ptr<detail::Link> link;
  std::uint64_t number = 0;  // among the link's programs
  bool isWaiting = false;
  bool isHidden = false;
  Record output;
  std::optional<CommandResult> command;
  std::optional<CallResult> call;

  /// A command that has been started; `list` is borrowed and may be null.
  static std::unique_ptr<State> ofCommand(const std::shared_ptr<detail::Link>& link,
                                          std::string_view command,
                                          noxp::remote::SelectListProt* list);
  /// What the command gave. One that asks is abandoned: Error kPrompts.
  CommandResult finish();
  std::string prompt() const;

  /// Sends what starts a program, or goes on with it, and takes what comes back.
  void run(Serializable& request, bool isSecret);
  /// Ends a program that waits; its work is rolled back.
  void abandon();
};

}  // namespace nox::client
