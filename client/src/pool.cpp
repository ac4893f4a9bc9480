#include "nox/client/pool.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "client/src/deadline.h"
#include "client/src/link.h"
#include "client/src/uri.h"

namespace nox::client {

namespace {

using Clock = std::chrono::steady_clock;
using detail::Deadline;
using std::chrono::milliseconds;

/// Zero never passes.
bool hasPassed(milliseconds time, Clock::time_point since, Clock::time_point now) {
  return time.count() > 0 && std::chrono::floor<milliseconds>(now - since) >= time;
}

PoolOptions checked(PoolOptions options) {
  if (options.idle.count() < 0) detail::throwBadOption("a pool's idle time is negative");
  if (options.maxLife.count() < 0) detail::throwBadOption("a pool's maxLife is negative");
  if (options.acquireTimeout.count() < 0) {
    detail::throwBadOption("a pool's acquireTimeout is negative");
  }
  return options;
}

}  // namespace

struct Pool::State {
  struct Idle {
    std::unique_ptr<Connection> connection;
    Clock::time_point born;
    Clock::time_point since;
  };

  State(Options connecting, PoolOptions limits) : options(std::move(connecting)), pool(limits) {
    idle.reserve(pool.size);  // giving back needs no memory
  }

  const Options options;
  const PoolOptions pool;

  std::mutex mutex;
  std::condition_variable freed;
  std::vector<Idle> idle;  // the one that came back last at the end
  PoolStatistics statistics;
  bool isOver = false;

  bool isTooOld(Clock::time_point born, Clock::time_point now) const {
    return hasPassed(pool.maxLife, born, now);
  }
  void closeStale() noexcept;
  std::optional<Idle> takeStale(Clock::time_point now);
  std::optional<Idle> takeIdle();
};

/// Takes one out that nobody wanted for too long. Call with the mutex held, and let it go without
/// it.
std::optional<Pool::State::Idle> Pool::State::takeStale(Clock::time_point now) {
  const auto stale = std::find_if(idle.begin(), idle.end(), [&](const Idle& one) {
    return hasPassed(pool.idle, one.since, now) || isTooOld(one.born, now);
  });
  if (stale == idle.end()) return std::nullopt;
  Idle taken = std::move(*stale);
  idle.erase(stale);
  --statistics.open;
  ++statistics.discarded;
  return taken;
}

/// The pool has no thread of its own: whoever comes by closes what is over. Call without the mutex.
void Pool::State::closeStale() noexcept {
  const Clock::time_point now = Clock::now();
  for (;;) {
    std::optional<Idle> stale;  // outlives the lock
    const std::lock_guard<std::mutex> lock(mutex);
    stale = takeStale(now);
    if (!stale) return;
  }
}

/// Call with the mutex held.
std::optional<Pool::State::Idle> Pool::State::takeIdle() {
  if (idle.empty()) return std::nullopt;
  Idle taken = std::move(idle.back());
  idle.pop_back();
  return taken;
}

Pool::Pool(Options options, PoolOptions pool)
    : state_(std::make_shared<State>(std::move(options), checked(pool))) {}

Pool::Pool(std::string_view uri, PoolOptions pool) : Pool(Options::fromUri(uri), pool) {}

Pool::~Pool() {
  std::vector<State::Idle> idle;
  const std::lock_guard<std::mutex> lock(state_->mutex);
  state_->isOver = true;
  idle.swap(state_->idle);
  state_->statistics.open -= idle.size();
}

Pool::Lease Pool::acquire() {
  const milliseconds timeout = state_->pool.acquireTimeout;
  return acquire(timeout.count() > 0 ? timeout : milliseconds::max());
}

Pool::Lease Pool::acquire(milliseconds timeout) {
  const bool mayWait = timeout.count() > 0;
  const Deadline deadline = mayWait ? Deadline::in(timeout) : Deadline();
  state_->closeStale();
  std::unique_lock<std::mutex> lock(state_->mutex);
  for (;;) {
    if (std::optional<State::Idle> idle = state_->takeIdle()) {
      ++state_->statistics.taken;
      lock.unlock();
      if (idle->connection->isAlive()) {
        return Lease(state_, std::move(idle->connection), idle->born);
      }
      idle.reset();
      lock.lock();
      --state_->statistics.taken;
      --state_->statistics.open;
      ++state_->statistics.discarded;
      continue;
    }
    if (state_->statistics.open < state_->pool.size) break;
    bool came = mayWait;
    if (mayWait) {
      const auto mayGoOn = [this] {
        return !state_->idle.empty() || state_->statistics.open < state_->pool.size;
      };
      ++state_->statistics.waiting;
      if (deadline.isNever()) {
        state_->freed.wait(lock, mayGoOn);
      } else {
        came = state_->freed.wait_until(lock, *deadline.at(), mayGoOn);
      }
      --state_->statistics.waiting;
    }
    if (!came) {
      throw Error(sqlstate::kPoolExhausted,
                  "all " + std::to_string(state_->pool.size) + " connections of the pool are taken",
                  Outcome::NotSent);
    }
  }

  // A place of one's own: the connection is made without holding up the others.
  ++state_->statistics.open;
  ++state_->statistics.taken;
  lock.unlock();
  try {
    Options options = state_->options;
    if (!deadline.isNever()) {
      const milliseconds left(std::max(deadline.pollTimeout(), 1));
      const bool isLonger = options.connectTimeout.count() == 0 || options.connectTimeout > left;
      if (isLonger) options.connectTimeout = left;
    }
    auto connection = std::make_unique<Connection>(Connection::open(options));
    lock.lock();
    ++state_->statistics.opened;
    lock.unlock();
    return Lease(state_, std::move(connection), Clock::now());
  } catch (...) {
    if (!lock.owns_lock()) lock.lock();
    --state_->statistics.open;
    --state_->statistics.taken;
    state_->freed.notify_one();
    throw;
  }
}

PoolStatistics Pool::statistics() const {
  state_->closeStale();
  const std::lock_guard<std::mutex> lock(state_->mutex);
  return state_->statistics;
}

Pool::Lease::Lease(std::shared_ptr<State> pool, std::unique_ptr<Connection> connection,
                   Clock::time_point born)
    : pool_(std::move(pool)), connection_(std::move(connection)), born_(born) {}

Pool::Lease::Lease(Lease&& other) noexcept = default;

Pool::Lease& Pool::Lease::operator=(Lease&& other) noexcept {
  Lease taken(std::move(other));
  std::swap(pool_, taken.pool_);
  std::swap(connection_, taken.connection_);
  std::swap(born_, taken.born_);
  return *this;
}

Pool::Lease::~Lease() { giveBack(); }

void Pool::Lease::discard() {
  if (!connection_) return;
  connection_->close();
  giveBack();
}

void Pool::Lease::giveBack() noexcept {
  if (!connection_) return;
  std::unique_ptr<Connection> connection = std::move(connection_);
  const std::shared_ptr<State> pool = std::move(pool_);
  pool->closeStale();
  // What was made from it and still lives would share it with its next user.
  const bool isShared = connection->link_.use_count() > 1;
  const Clock::time_point now = Clock::now();
  if (isShared || pool->isTooOld(born_, now) || !connection->link_->renew(pool->options)) {
    connection->close();
    connection.reset();
  }
  const std::lock_guard<std::mutex> lock(pool->mutex);
  --pool->statistics.taken;
  if (connection && !pool->isOver) {
    pool->idle.push_back({std::move(connection), born_, now});
  } else {
    --pool->statistics.open;
    ++pool->statistics.discarded;
  }
  pool->freed.notify_one();
}

}  // namespace nox::client
