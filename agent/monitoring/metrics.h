// What the agent counts, and the page that shows it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace nox::agent {

/// Counting costs a few relaxed additions; the page gathers them. Safe for threads.
class Metrics {
public:
  /// `requestNames`: the classes of requests by their index.
  explicit Metrics(const std::vector<const char*>& requestNames);
  ~Metrics();

  void connectionOpened(bool tls);
  void connectionClosed(bool tls);
  void connectionRefused();
  void loginFailed();
  void request(std::size_t index, std::uint64_t bytesIn, std::uint64_t bytesOut,
               std::chrono::nanoseconds duration);
  void error(std::string_view sqlState);

  /// What is asked for when the page is made.
  struct Gauges {
    std::size_t sessions = 0;
    std::size_t locks = 0;
    double storeBusySeconds = 0;
    std::uint64_t storeCommits = 0;
    std::uint64_t storeWrites = 0;
  };
  /// Prometheus text format.
  std::string page(const Gauges& gauges) const;
  std::uint64_t requests() const;
  std::uint64_t connections() const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace nox::agent
