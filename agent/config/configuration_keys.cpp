#include "agent/config/configuration_keys.h"

#include <utility>

#include "agent/conversions/conversions.h"
#include "agent/names.h"

namespace nox::agent {

namespace {

using Values = ConfigurationValues;

constexpr std::int64_t kKiB = 1024;
constexpr std::int64_t kDay = 24LL * 60 * 60;

std::int64_t numberOf(std::int64_t value) { return value; }
template <class Rep, class Period>
std::int64_t numberOf(std::chrono::duration<Rep, Period> value) {
  return value.count();
}

/// A number that lies in a member: an integer, or a duration in its own unit.
template <auto Member>
NumberKey number(std::int64_t least, std::int64_t most) {
  using Type = std::remove_reference_t<decltype(std::declval<Values&>().*Member)>;
  return {least, most,
          [](const Values& values) { return numberOf(static_cast<Type>(values.*Member)); },
          [](Values& values, std::int64_t value) { values.*Member = static_cast<Type>(value); }};
}

template <auto Member>
FlagKey flag() {
  return {[](Values& values) -> bool& { return values.*Member; }};
}

template <auto Member>
TextKey text(std::string (*mistakeIn)(const std::string&)) {
  return {[](const Values& values) { return values.*Member; },
          [](Values& values, std::string value) { values.*Member = std::move(value); }, mistakeIn};
}

std::string accountMistake(const std::string& name) {
  return isFileName(name) ? "" : "\"" + name + "\" is no name of an account";
}

std::string timezoneMistake(const std::string& name) {
  return isTimezone(name) ? "" : "there is no time zone \"" + name + "\"";
}

std::string synchronousMistake(const std::string& text) {
  return text == "full" || text == "normal" ? "" : "it is \"full\" or \"normal\"";
}

std::string levelMistake(const std::string& level) {
  return level == "debug" || level == "info" || level == "warning" || level == "error"
             ? ""
             : "it is \"debug\", \"info\", \"warning\" or \"error\"";
}

std::vector<Key> makeKeys() {
  constexpr bool kNeedsRestart = true;
  constexpr bool kIsRead = true;
  return {
      {"server", "data_directory",
       PathKey{[](Values& v) -> std::string& { return v.dataDirectory; }, !kIsRead},
       "Where the users and the accounts lie.", kNeedsRestart},
      {"server", "listen", AddressKey{[](Values& v) -> ListenAddress& { return v.listen; }},
       "Where clients connect in plain text, as \"address:port\"; an IPv6 address stands in\n"
       "brackets. Port 0 leaves the choice to the system.",
       kNeedsRestart},
      {"server", "plain_listener", flag<&Values::plainListener>(),
       "Whether there is a port for plain text at all.", kNeedsRestart},
      {"server", "plain_login_everywhere", flag<&Values::plainLoginEverywhere>(),
       "Whether clients on other machines may send passwords in plain text. Whoever can listen on\n"
       "the network reads them then; TLS is the better way."},
      {"server", "max_connections", number<&Values::maxConnections>(1, 100'000),
       "How many clients may be connected at a time. Further ones are refused."},
      {"server", "max_frame", number<&Values::maxFrame>(64 * kKiB, 1024 * 1024 * kKiB),
       "The largest request and reply, in bytes. A record of 8 MiB, the largest there is, needs\n"
       "a little more than that."},
      {"server", "default_account", text<&Values::defaultAccount>(accountMistake),
       "The account of clients that name none when they log in."},
      {"server", "timezone", text<&Values::timezone>(timezoneMistake),
       "The zone of the dates and times that clients ask for: \"UTC\", or one of the system's."},
      {"server", "http", flag<&Values::http>(),
       "Whether /healthz, /readyz and /metrics are answered on the same ports."},
      {"server", "http_everywhere", flag<&Values::httpEverywhere>(),
       "Whether other machines may ask for them, too."},
      {"server", "login_timeout", number<&Values::login>(1, 3600),
       "Seconds in which a client must have logged in."},
      {"server", "frame_timeout", number<&Values::frame>(1, 3600),
       "Seconds in which a request must have come as a whole, from its first byte on."},
      {"server", "idle_timeout", number<&Values::idle>(0, 30 * kDay),
       "Seconds after which a client that asks for nothing is disconnected; 0: never."},
      {"server", "send_timeout", number<&Values::send>(1, 3600),
       "Seconds in which a client must take what it is sent."},
      {"server", "drain_timeout", number<&Values::drain>(0, kDay),
       "Seconds that running requests have to finish when the agent is told to end."},

      {"tls", "enabled", FlagKey{[](Values& v) -> bool& { return v.tls.enabled; }},
       "Whether there is a port for TLS.", kNeedsRestart},
      {"tls", "listen", AddressKey{[](Values& v) -> ListenAddress& { return v.tls.listen; }},
       "Where clients connect with TLS.", kNeedsRestart},
      {"tls", "certificate",
       PathKey{[](Values& v) -> std::string& { return v.tls.certificate; }, kIsRead},
       "The agent's certificate and those that lead to its authority, in PEM."},
      {"tls", "key", PathKey{[](Values& v) -> std::string& { return v.tls.key; }, kIsRead},
       "The certificate's private key, in PEM, without a password."},
      {"tls", "client_ca",
       PathKey{[](Values& v) -> std::string& { return v.tls.clientCa; }, kIsRead},
       "The authorities whose client certificates are accepted, in PEM. Empty: clients show none."},
      {"tls", "require_client_certificate",
       FlagKey{[](Values& v) -> bool& { return v.tls.requireClientCertificate; }},
       "Whether clients without a certificate are turned away."},

      {"store", "synchronous",
       TextKey{[](const Values& v) { return std::string(v.synchronousFull ? "full" : "normal"); },
               [](Values& v, std::string value) { v.synchronousFull = value == "full"; },
               synchronousMistake},
       "\"full\": what was acknowledged survives a loss of power. \"normal\": it survives the end "
       "of\n"
       "the agent, but the last moments before a loss of power may be missing.",
       kNeedsRestart},

      {"session", "lock_wait", number<&Values::lockWait>(0, 3600),
       "Seconds that a request waits for a lock, or for another writer. Clients change it with\n"
       "LOCK_WAIT."},
      {"session", "statement_timeout", number<&Values::statementTimeout>(0, kDay),
       "Seconds that a request may run; 0: no limit. Clients change it with STATEMENT_TIMEOUT."},
      {"session", "fetch_size", number<&Values::fetchSize>(1, 100'000),
       "Rows that are delivered at a time. Clients change it with FETCH_SIZE."},
      {"session", "transaction_idle", number<&Values::transactionIdle>(1, kDay),
       "Seconds after which a transaction that is open and idle is rolled back."},
      {"session", "prompt_timeout", number<&Values::prompt>(1, kDay),
       "Seconds after which a program that waits for input is given up."},

      {"log", "file", PathKey{[](Values& v) -> std::string& { return v.logFile; }, !kIsRead},
       "Where the log is written. Empty: standard error.", kNeedsRestart},
      {"log", "level", text<&Values::logLevel>(levelMistake),
       "The least that is written: \"debug\", \"info\", \"warning\" or \"error\"."},
      {"log", "access", flag<&Values::accessLog>(), "Whether there is a line for each request."},
      {"log", "slow_request", number<&Values::slowRequest>(0, 3'600'000),
       "Milliseconds from which on a request is noted as slow; 0: never."},
  };
}

std::string tomlText(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result + '"';
}

}  // namespace

const std::vector<Key>& allKeys() {
  static const std::vector<Key> keys = makeKeys();
  return keys;
}

std::string valueText(const Key& key, ConfigurationValues values) {
  struct {
    ConfigurationValues& values;
    std::string operator()(const FlagKey& flag) { return flag.value(values) ? "true" : "false"; }
    std::string operator()(const NumberKey& number) { return std::to_string(number.get(values)); }
    std::string operator()(const TextKey& text) { return tomlText(text.get(values)); }
    std::string operator()(const PathKey& path) { return tomlText(path.value(values)); }
    std::string operator()(const AddressKey& address) {
      return tomlText(textOf(address.value(values)));
    }
  } visitor{values};
  return std::visit(visitor, key.kind);
}

void copyValue(const Key& key, ConfigurationValues from, ConfigurationValues& to) {
  struct {
    ConfigurationValues& from;
    ConfigurationValues& to;
    void operator()(const FlagKey& flag) { flag.value(to) = flag.value(from); }
    void operator()(const NumberKey& number) { number.set(to, number.get(from)); }
    void operator()(const TextKey& text) { text.set(to, text.get(from)); }
    void operator()(const PathKey& path) { path.value(to) = path.value(from); }
    void operator()(const AddressKey& address) { address.value(to) = address.value(from); }
  } visitor{from, to};
  std::visit(visitor, key.kind);
}

}  // namespace nox::agent
