// Logins: the one way in which clients' passwords are checked, slow for those who guess.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace nox::agent {

class Users;

/// Checking a password costs tens of MiB for a moment, so a few are checked at a time. A wrong one
/// is answered after a delay that grows with the failures of its peer, on whatever connection they
/// were; while there are failures, the peer's attempts wait for one another. Failures are forgotten
/// one by one. Safe for threads.
class Logins {
public:
  using Clock = std::chrono::steady_clock;
  enum class Verdict {
    Right,
    Wrong,
    TooMany  // its turn did not come before the deadline; the password was not looked at
  };

  /// Says whether the password is the user's; called from several threads at once.
  using Verify = std::function<bool(const std::string& user, std::string_view password)>;

  /// Borrows `users`, who are asked.
  explicit Logins(const Users& users);
  explicit Logins(Verify verify);
  ~Logins();
  Logins(const Logins&) = delete;
  Logins& operator=(const Logins&) = delete;

  /// `peer`: the address without its port; IPv6 peers count by their /64. A wrong password returns
  /// at `deadline` at the latest.
  Verdict check(const std::string& peer, const std::string& user, std::string_view password,
                Clock::time_point deadline);
  /// Ends all waits and delays, also those to come: the agent stops.
  void stop();

  /// How many peers' failures are remembered; there is an end to it.
  static constexpr std::size_t kMostPeers = 4096;
  std::size_t rememberedPeers() const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
