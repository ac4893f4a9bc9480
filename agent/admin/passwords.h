// Passwords on their way from a person, or a file, to the agent.
#pragma once

#include <string>
#include <string_view>

namespace nox::agent {

/// A text that is wiped from memory when it ends.
class Secret {
public:
  explicit Secret(std::string text) : text_(std::move(text)) {}
  ~Secret();
  Secret(Secret&& other) noexcept;
  Secret& operator=(Secret&&) = delete;
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  std::string_view view() const { return text_; }

private:
  std::string text_;
};

/// A new password: the first line of `file`, which others than its owner must not be able to read;
/// without a file asked for twice and not shown where standard input is a terminal, else its first
/// line. `who` is named in the question. Throws AdminError.
Secret readNewPassword(const std::string& file, const std::string& who);

}  // namespace nox::agent
