#include "agent/users/logins.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "agent/users/users.h"

namespace nox::agent {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFirstDelay{200};
constexpr int kMostDoublings = 4;  // 3.2 seconds
constexpr std::chrono::seconds kForgetOne{10};

/// A few passwords at once keep the processors busy; more would only take memory.
int mostAtOnce() { return std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, 4); }

/// Who has one IPv6 address has 2^64 of them.
std::string keyOf(const std::string& peer) {
  in6_addr address{};
  if (inet_pton(AF_INET6, peer.c_str(), &address) != 1) return peer;
  constexpr std::size_t kPrefixBytes = 8;
  return std::string(reinterpret_cast<const char*>(address.s6_addr), kPrefixBytes);
}

}  // namespace

struct Logins::Impl {
  struct Peer {
    int failures = 0;
    Clock::time_point since{};  // the time up to which failures are forgotten
    int active = 0;             // checks and delays that go on

    void forget(Clock::time_point now) {
      const auto forgotten = (now - since) / kForgetOne;
      failures = static_cast<int>(std::max<long>(0, failures - static_cast<long>(forgotten)));
      since += forgotten * kForgetOne;
    }
    bool isForgotten() const { return failures == 0 && active == 0; }
  };
  using Peers = std::map<std::string, Peer>;

  explicit Impl(Verify toAsk) : ask(std::move(toAsk)) {}

  /// The peer's place in the table, which stays there while it is active.
  class Turn {
  public:
    Turn(Impl& impl, Peer& peer) : impl_(impl), peer_(peer) { ++peer_.active; }
    ~Turn() {
      --peer_.active;
      impl_.changed.notify_all();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

  private:
    Impl& impl_;
    Peer& peer_;
  };

  /// Makes room in the table: by those that are forgotten, else by the one that failed longest ago.
  void evict(Clock::time_point now) {
    auto oldest = peers.end();
    for (auto peer = peers.begin(); peer != peers.end();) {
      peer->second.forget(now);
      if (peer->second.isForgotten()) {
        peer = peers.erase(peer);
        continue;
      }
      const bool older = oldest == peers.end() || peer->second.since < oldest->second.since;
      if (peer->second.active == 0 && older) oldest = peer;
      ++peer;
    }
    if (peers.size() >= kMostPeers && oldest != peers.end()) peers.erase(oldest);
  }

  Peer& find(const std::string& key) {
    const Clock::time_point now = Clock::now();
    auto found = peers.find(key);
    if (found == peers.end()) {
      if (peers.size() >= kMostPeers) evict(now);
      found = peers.emplace(key, Peer{0, now, 0}).first;
    }
    found->second.forget(now);
    return found->second;
  }

  /// Looks at the password with the lock released, as one of a few.
  bool verify(std::unique_lock<std::mutex>& lock, const std::string& user,
              std::string_view password) {
    struct Place {
      std::unique_lock<std::mutex>& lock;
      int& checking;
      ~Place() {
        lock.lock();
        --checking;
      }
    };
    ++checking;
    const Place place{lock, checking};
    lock.unlock();
    return ask(user, password);
  }

  const Verify ask;
  const int most = mostAtOnce();
  std::mutex mutex;
  std::condition_variable changed;
  Peers peers;
  int checking = 0;
  bool stopped = false;
};

Logins::Logins(const Users& users)
    : Logins([&users](const std::string& user, std::string_view password) {
        return users.verify(user, password);
      }) {}

Logins::Logins(Verify verify) : impl_(std::make_unique<Impl>(std::move(verify))) {}

Logins::~Logins() = default;

Logins::Verdict Logins::check(const std::string& peer, const std::string& user,
                              std::string_view password, Clock::time_point deadline) {
  Impl& impl = *impl_;
  const std::string key = keyOf(peer);
  std::unique_lock<std::mutex> lock(impl.mutex);
  const auto mayGo = [&] {
    if (impl.stopped) return true;
    const Impl::Peer& state = impl.find(key);
    return impl.checking < impl.most && (state.failures == 0 || state.active == 0);
  };
  if (!impl.changed.wait_until(lock, deadline, mayGo) || impl.stopped) return Verdict::TooMany;

  Impl::Peer& state = impl.find(key);
  const Impl::Turn turn(impl, state);
  if (impl.verify(lock, user, password)) return Verdict::Right;
  impl.changed.notify_all();  // there is a place again
  const Clock::time_point now = Clock::now();
  state.forget(now);
  if (state.failures == 0) state.since = now;
  const auto delay = kFirstDelay * (1 << std::min(state.failures, kMostDoublings));
  ++state.failures;
  impl.changed.wait_until(lock, std::min(deadline, now + delay), [&] { return impl.stopped; });
  return Verdict::Wrong;
}

std::size_t Logins::rememberedPeers() const {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->peers.size();
}

void Logins::stop() {
  const std::lock_guard<std::mutex> lock(impl_->mutex);
  impl_->stopped = true;
  impl_->changed.notify_all();
}

}  // namespace nox::agent
