#include "agent/server/server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <list>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "agent/log/log.h"
#include "agent/monitoring/metrics.h"
#include "agent/server/connection.h"
#include "agent/server/server_state.h"
#include "agent/server/socket.h"
#include "agent/server/thread.h"
#include "agent/server/tls.h"
#include "agent/users/logins.h"

namespace nox::agent {

namespace {

using Clock = Transport::Clock;
using Phase = ServerState::Phase;

// The deepest subroutines, statements and frames that are accepted take 1.5 MiB, and several times
// that under a sanitizer. What is not touched costs nothing.
constexpr std::size_t kStack = 4u * 1024 * 1024;
// Clients that are told why they are not served get a thread, too. Those beyond are told in
// passing, or over TLS hung up on.
constexpr std::size_t kMostRefusals = 16;
// After the system had no descriptor or no thread for a client.
constexpr std::chrono::milliseconds kPause{100};
constexpr std::chrono::seconds kQuiet{10};  // between two lines about it
// How often what does not end is interrupted again: it may have been between two statements.
constexpr std::chrono::milliseconds kInsist{100};

// How often clients are looked for that have gone while a request of theirs runs.
constexpr std::chrono::seconds kLookForGone{1};

/// A client, and the thread that it has.
struct Client {
  Client(ServerState& state, std::unique_ptr<Transport> transport, Peer peer, bool tls,
         bool isRefused)
      : connection(state, std::move(transport), std::move(peer), tls), refused(isRefused) {}

  Connection connection;
  const bool refused;
  std::atomic<bool> over{false};
  std::optional<Thread> thread;  // last: it uses the connection
};

}  // namespace

struct Server::Impl {
  Impl(Agent& agent, const Dispatcher& dispatcher) : state(agent, dispatcher) {
    if (!wakeUp) throw std::system_error(errno, std::system_category(), "no descriptor");
  }

  Log& log() { return state.agent.log; }
  std::shared_ptr<const ConfigurationValues> values() { return state.agent.configuration.values(); }
  void wake() { eventfd_write(wakeUp.get(), 1); }

  std::shared_ptr<const TlsContext> readCertificate() {
    return std::make_shared<const TlsContext>(
        values()->tls, [this](std::string_view warning) { log().warning(warning); });
  }

  // In the thread of run().
  void waitForClients();
  std::optional<Clock::time_point> nextLook();
  void admit(Listener& listener, bool isTls);
  void admit(AcceptedSocket accepted, bool isTls);
  const char* refusal();
  void reap();
  bool isDone();

  void cutAll();
  void cutThoseGone();

  ServerState state;
  Descriptor wakeUp{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  std::optional<Listener> plain;
  std::optional<Listener> tls;
  std::optional<Clock::time_point> pausedUntil;  // no clients until then
  Clock::time_point quietUntil{};                // nor words about it
  Clock::time_point nextLookForGone{};

  std::mutex mutex;
  std::shared_ptr<const TlsContext> certificate;
  std::optional<Clock::time_point> drainEnd;
  std::list<std::unique_ptr<Client>> clients;
};

Server::Server(Agent& agent, const Dispatcher& dispatcher)
    : impl_(std::make_unique<Impl>(agent, dispatcher)) {}

Server::~Server() {
  stop();
  run();
}

void Server::open() {
  Impl& impl = *impl_;
  const auto values = impl.values();
  if (values->tls.enabled) {
    impl.certificate = impl.readCertificate();
    impl.tls.emplace(values->tls.listen);
  }
  if (values->plainListener) impl.plain.emplace(values->listen);
  if (impl.plain) impl.log().info("listening on " + impl.plain->where().text());
  if (impl.tls) impl.log().info("listening on " + impl.tls->where().text() + " over TLS");
}

std::uint16_t Server::plainPort() const { return impl_->plain ? impl_->plain->where().port : 0; }

std::uint16_t Server::tlsPort() const { return impl_->tls ? impl_->tls->where().port : 0; }

void Server::writePorts(const std::string& file) const {
  const std::string unfinished = file + ".new";
  {
    std::ofstream out(unfinished, std::ios::trunc);
    if (plainPort() != 0) out << "plain " << plainPort() << "\n";
    if (tlsPort() != 0) out << "tls " << tlsPort() << "\n";
    out.close();
    if (!out) throw std::runtime_error("cannot write the ports to " + unfinished);
  }
  if (std::rename(unfinished.c_str(), file.c_str()) != 0) {
    throw std::runtime_error("cannot write the ports to " + file + ": " +
                             std::system_category().message(errno));
  }
}

void Server::run() {
  Impl& impl = *impl_;
  while (!impl.isDone()) {
    impl.waitForClients();
    impl.reap();
    impl.cutThoseGone();
  }
}

void Server::drain() {
  Impl& impl = *impl_;
  Phase serving = Phase::Serving;
  if (!impl.state.phase.compare_exchange_strong(serving, Phase::Draining)) return;
  const auto time = impl.values()->drain;
  std::size_t open = 0;
  {
    const std::lock_guard<std::mutex> lock(impl.mutex);
    impl.drainEnd = Clock::now() + time;
    for (const auto& client : impl.clients) {
      if (client->over || client->refused) continue;
      client->connection.drain();
      ++open;
    }
  }
  impl.log().info("draining: " + std::to_string(open) + " connections are open");
  impl.wake();
}

void Server::stop() {
  impl_->state.phase = Phase::Stopping;
  impl_->state.agent.logins.stop();
  impl_->cutAll();
  impl_->wake();
}

void Server::reload() {
  Impl& impl = *impl_;
  ++impl.state.generation;
  if (!impl.tls) return;
  try {
    auto certificate = impl.readCertificate();
    const std::lock_guard<std::mutex> lock(impl.mutex);
    impl.certificate = std::move(certificate);
    impl.log().info("TLS: the certificate was read anew");
  } catch (const std::exception& error) {
    impl.log().error(std::string("TLS: the old certificate stays: ") + error.what());
  }
}

/// Waits for clients, for one that ends, or for the next thing to do.
void Server::Impl::waitForClients() {
  std::array<pollfd, 3> waited{};
  waited[0] = {wakeUp.get(), POLLIN, 0};
  const bool paused = pausedUntil && Clock::now() < *pausedUntil;
  if (!paused) pausedUntil.reset();
  const bool listening = !paused && !state.stopping();
  // poll() passes over descriptors below 0.
  waited[1] = {listening && plain ? plain->descriptor() : -1, POLLIN, 0};
  waited[2] = {listening && tls ? tls->descriptor() : -1, POLLIN, 0};

  int wait = -1;
  if (const auto look = nextLook()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*look - Clock::now()).count();
    wait = static_cast<int>(std::max<decltype(left)>(0, left));
  }
  if (poll(waited.data(), waited.size(), wait) > 0) {
    eventfd_t count = 0;
    if (waited[0].revents != 0) eventfd_read(wakeUp.get(), &count);
    if (waited[1].revents != 0) admit(*plain, false);
    if (waited[2].revents != 0) admit(*tls, true);
  }
}

std::optional<Clock::time_point> Server::Impl::nextLook() {
  switch (state.phase.load()) {
    case Phase::Stopping:
      return Clock::now() + kInsist;
    case Phase::Draining: {
      const std::lock_guard<std::mutex> lock(mutex);
      return drainEnd;
    }
    case Phase::Serving:
      break;
  }
  const std::lock_guard<std::mutex> lock(mutex);
  if (clients.empty()) return pausedUntil;
  return std::min(nextLookForGone, pausedUntil.value_or(nextLookForGone));
}

/// Takes in those who wait, a few at a time, so that those on the other port are not forgotten.
void Server::Impl::admit(Listener& listener, bool isTls) {
  constexpr int kAtOnce = 64;
  try {
    for (int i = 0; i < kAtOnce; ++i) {
      auto accepted = listener.accept();
      if (!accepted) return;
      admit(std::move(*accepted), isTls);
    }
  } catch (const std::exception& error) {
    // No descriptor, no memory or no thread: those that are here are served, and the others wait.
    const Clock::time_point now = Clock::now();
    pausedUntil = now + kPause;
    if (now < quietUntil) return;
    quietUntil = now + kQuiet;
    log().error(std::string("clients cannot be served: ") + error.what());
  }
}

void Server::Impl::admit(AcceptedSocket accepted, bool isTls) {
  const char* const reason = refusal();
  std::unique_ptr<Transport> transport;
  if (isTls) {
    std::shared_ptr<const TlsContext> context;
    {
      const std::lock_guard<std::mutex> lock(mutex);
      context = certificate;
    }
    transport = context->makeTransport(std::move(accepted.socket));
  } else {
    transport = makePlainTransport(std::move(accepted.socket));
  }

  const std::lock_guard<std::mutex> lock(mutex);
  if (reason) {
    const auto refusals = std::count_if(clients.begin(), clients.end(),
                                        [](const auto& client) { return client->refused; });
    if (static_cast<std::size_t>(refusals) >= kMostRefusals) {
      Connection crowded(state, std::move(transport), std::move(accepted.peer), isTls);
      if (!isTls) crowded.dismiss(reason);
      return;
    }
  }
  auto& client = *clients.emplace_back(std::make_unique<Client>(
      state, std::move(transport), std::move(accepted.peer), isTls, reason != nullptr));
  try {
    client.thread.emplace("noxd-client", kStack, [this, &client, reason] {
      if (reason) {
        client.connection.refuse(reason);
      } else {
        client.connection.serve();
      }
      client.over = true;
      wake();
    });
  } catch (const std::exception&) {
    clients.pop_back();
    throw;
  }
  // Whoever drained or stopped in the meantime has not seen this one.
  if (state.stopping()) client.connection.cut();
  if (!reason && !state.serving()) client.connection.drain();
}

/// Why the next client is not served; null when it is.
const char* Server::Impl::refusal() {
  if (!state.serving()) return "the agent is about to end";
  const std::lock_guard<std::mutex> lock(mutex);
  const auto served = std::count_if(clients.begin(), clients.end(), [](const auto& client) {
    return !client->refused && !client->over;
  });
  return static_cast<std::size_t>(served) < values()->maxConnections
             ? nullptr
             : "the agent serves as many clients as it may";
}

/// Joins the threads that have ended.
void Server::Impl::reap() {
  std::list<std::unique_ptr<Client>> ended;
  const std::lock_guard<std::mutex> lock(mutex);
  for (auto client = clients.begin(); client != clients.end();) {
    const auto next = std::next(client);
    if ((*client)->over) ended.splice(ended.end(), clients, client);
    client = next;
  }
}

/// Whether run() may return; sees to what the phase asks for.
bool Server::Impl::isDone() {
  if (state.phase == Phase::Draining) {
    const std::lock_guard<std::mutex> lock(mutex);
    const bool left = std::any_of(clients.begin(), clients.end(),
                                  [](const auto& client) { return !client->refused; });
    const bool late = drainEnd && *drainEnd <= Clock::now();
    if (!left || late) state.phase = Phase::Stopping;
  }
  if (state.phase != Phase::Stopping) return false;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    if (clients.empty()) return true;
  }
  state.agent.logins.stop();
  cutAll();
  return false;
}

/// Nobody waits for the answers of a client that has gone: what it still runs would only take time,
/// and keep its locks, until it is done.
void Server::Impl::cutThoseGone() {
  const Clock::time_point now = Clock::now();
  if (now < nextLookForGone) return;
  nextLookForGone = now + kLookForGone;
  const std::lock_guard<std::mutex> lock(mutex);
  if (!state.serving()) return;  // looked at with the lock: drain() ends the reading behind it
  for (const auto& client : clients) {
    if (!client->refused) client->connection.cutIfGone();
  }
}

void Server::Impl::cutAll() {
  const std::lock_guard<std::mutex> lock(mutex);
  for (const auto& client : clients) client->connection.cut();
}

}  // namespace nox::agent
