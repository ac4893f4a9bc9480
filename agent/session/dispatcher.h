// From the class of a request to the function that answers it.
#pragma once

#include <cstdint>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <utility>
#include <vector>

#include <nox/nox.h>

namespace nox::agent {

class Reply;
class Session;

/// Filled once, when the agent starts, by each family's `register...Requests`; read-only after.
class Dispatcher {
public:
  /// One per request class: its position counts it in the metrics.
  struct Entry {
    /// Whether the reply of a request before it may wait until this one is answered.
    enum class Brief { No, WhileWriting, Yes };
    void (*handle)(Session&, noxp::RequestProt&, Reply&, const Entry&) = nullptr;
    void (*target)() = nullptr;  // the family's function, of the type that `handle` knows
    const char* name = nullptr;  // as in logs and metrics: "ReadRecord"
    std::size_t index = 0;
    bool keepsPrompt = false;  // answered beside a program that waits for input
    bool isSql = false;        // fails with SQLErrorResponseProt
    // It takes no time worth mentioning, but for waits that the session tells of. What writes may
    // wait for other writers, unless its transaction has written already.
    Brief brief = Brief::No;
  };

  /// `name` must be a literal.
  template <class Request>
  Entry& on(const char* name, void (*function)(Session&, Request&, Reply&)) {
    Entry entry;
    entry.handle = [](Session& session, noxp::RequestProt& request, Reply& reply,
                      const Entry& self) {
      reinterpret_cast<void (*)(Session&, Request&, Reply&)>(self.target)(
          session, static_cast<Request&>(request), reply);
    };
    entry.target = reinterpret_cast<void (*)()>(function);
    entry.name = name;
    entry.index = entries_.size();
    return entries_[typeid(Request)] = entry;
  }

  /// Null for a root object that is no command.
  const Entry* find(const noxp::RequestProt& request) const {
    const auto found = entries_.find(typeid(request));
    return found == entries_.end() ? nullptr : &found->second;
  }
  std::size_t size() const { return entries_.size(); }
  /// The names by index.
  std::vector<const char*> names() const;

private:
  std::unordered_map<std::type_index, Entry> entries_;
};

// One per family, each in the file of its name under requests/.
void registerCommonRequests(Dispatcher& dispatcher);       // 502, 504, 229, 222, 228, 219
void registerRecordRequests(Dispatcher& dispatcher);       // 201-204, 225, 221
void registerFileRequests(Dispatcher& dispatcher);         // 205-208
void registerSelectListRequests(Dispatcher& dispatcher);   // 230-232
void registerTransactionRequests(Dispatcher& dispatcher);  // 11-13, 211-218
void registerCommandRequests(Dispatcher& dispatcher);      // 209, 210, 220, 223
void registerQueryRequests(Dispatcher& dispatcher);        // 226, 227
void registerAccountRequests(Dispatcher& dispatcher);      // 224
void registerSqlRequests(Dispatcher& dispatcher);          // 2-10, 14, 16
Dispatcher allRequests();

}  // namespace nox::agent
