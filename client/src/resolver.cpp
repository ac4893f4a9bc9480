#include "client/src/resolver.h"

#include <netdb.h>
#include <pthread.h>

#include <condition_variable>
#include <csignal>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "client/src/transport_failure.h"
#include "nox/client/error.h"

namespace nox::client::detail {

namespace {

struct Found {
  int error = 0;  // getaddrinfo's
  std::vector<Address> addresses;
};

struct FreeAddresses {
  void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};

Found lookUp(const std::string& name, std::uint16_t port, int flags) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags | AI_NUMERICSERV;
  addrinfo* list = nullptr;
  Found found;
  found.error = ::getaddrinfo(name.c_str(), std::to_string(port).c_str(), &hints, &list);
  const std::unique_ptr<addrinfo, FreeAddresses> owned(list);
  if (found.error != 0) return found;
  for (const addrinfo* entry = list; entry; entry = entry->ai_next) {
    Address address;
    if (entry->ai_addrlen > sizeof address.storage) continue;
    std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
    address.size = entry->ai_addrlen;
    address.family = entry->ai_family;
    found.addresses.push_back(address);
  }
  return found;
}

/// What the looking thread and the waiting one share; the last of them frees it.
struct Search {
  std::mutex mutex;
  std::condition_variable ended;
  std::optional<Found> found;
};

/// Blocks every signal of this thread, so that a thread made meanwhile handles none.
class SignalsBlocked {
public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &outer_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &outer_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
  sigset_t outer_{};
};

/// The system's resolver waits as long as it likes, and cannot be interrupted: it runs in a thread
/// of its own, which is left behind when the deadline passes.
std::optional<Found> lookUpWithin(const std::string& name, std::uint16_t port,
                                  const Deadline& deadline) {
  const auto search = std::make_shared<Search>();
  std::thread looking;
  {
    const SignalsBlocked blocked;
    looking = std::thread([search, name, port] {
      Found found = lookUp(name, port, AI_ADDRCONFIG);
      const std::lock_guard<std::mutex> lock(search->mutex);
      search->found = std::move(found);
      search->ended.notify_one();
    });
  }
  std::unique_lock<std::mutex> lock(search->mutex);
  const auto hasEnded = [&search] { return search->found.has_value(); };
  if (deadline.isNever()) {
    search->ended.wait(lock, hasEnded);
  } else if (!search->ended.wait_until(lock, *deadline.at(), hasEnded)) {
    looking.detach();
    return std::nullopt;
  }
  Found found = std::move(*search->found);
  lock.unlock();
  looking.join();
  return found;
}

}  // namespace

std::vector<Address> resolve(const std::string& name, std::uint16_t port,
                             const Deadline& deadline) {
  // An address needs no resolver, and no thread.
  Found found = lookUp(name, port, AI_NUMERICHOST);
  if (found.error == EAI_NONAME) {
    std::optional<Found> looked = lookUpWithin(name, port, deadline);
    if (!looked) {
      throw TransportFailure{sqlstate::kConnectTimeout, "the name was not resolved in time"};
    }
    found = std::move(*looked);
  }
  if (found.error != 0 || found.addresses.empty()) {
    throw TransportFailure{sqlstate::kCannotConnect, ::gai_strerror(found.error)};
  }
  return std::move(found.addresses);
}

}  // namespace nox::client::detail
