#include "nox/client/options.h"

#include <charconv>
#include <cstdlib>
#include <limits>
#include <set>
#include <system_error>

#include "client/src/defaults.h"
#include "client/src/uri.h"

namespace nox::client {

namespace {

using detail::throwBadOption;
using std::chrono::milliseconds;

/// The digits that `text` begins with; they are taken off. Nothing where there are none, or too
/// many.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
  std::uint64_t number = 0;
  const auto [stopped, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(stopped - text.data()));
  return number;
}

[[noreturn]] void throwBadValue(std::string_view key, std::string_view value, const char* wanted) {
  throwBadOption(std::string(key) + " is " + wanted + ", not \"" + std::string(value) + "\"");
}

milliseconds parseDuration(std::string_view key, std::string_view value) {
  constexpr std::uint64_t kLongest = 24ull * 60 * 60 * 1000;
  std::string_view unit = value;
  const std::optional<std::uint64_t> number = takeNumber(unit);
  const std::uint64_t factor = unit == "ms" ? 1 : unit == "s" ? 1000 : unit == "m" ? 60'000 : 0;
  if (!number || factor == 0 || *number > kLongest / factor) {
    throwBadValue(key, value, "a time of up to a day such as 500ms, 5s or 2m");
  }
  return milliseconds(*number * factor);
}

std::string showDuration(milliseconds duration) {
  const auto count = duration.count();
  return count % 1000 == 0 ? std::to_string(count / 1000) + "s" : std::to_string(count) + "ms";
}

std::size_t parseFrameSize(std::string_view key, std::string_view value) {
  constexpr std::uint64_t kSmallest = 1024;
  constexpr std::uint64_t kLargest = std::numeric_limits<std::int32_t>::max();
  std::string_view unit = value;
  const std::optional<std::uint64_t> number = takeNumber(unit);
  const std::uint64_t factor = unit.empty()  ? 1
                               : unit == "K" ? 1024
                               : unit == "M" ? 1024 * 1024
                                             : 0;
  if (!number || factor == 0 || *number > kLargest / factor || *number * factor < kSmallest) {
    throwBadValue(key, value, "a size from 1K to 2047M");
  }
  return static_cast<std::size_t>(*number * factor);
}

int parseFetchSize(std::string_view key, std::string_view value) {
  constexpr std::uint64_t kMost = 100'000;
  std::string_view rest = value;
  const std::optional<std::uint64_t> number = takeNumber(rest);
  if (!number || !rest.empty() || *number == 0 || *number > kMost) {
    throwBadValue(key, value, "a number from 1 to 100000");
  }
  return static_cast<int>(*number);
}

Tls parseTls(std::string_view key, std::string_view value) {
  if (value == "verify-full") return Tls::VerifyFull;
  if (value == "insecure-no-verify") return Tls::InsecureNoVerify;
  if (value == "off") return Tls::Off;
  throwBadValue(key, value, "verify-full, insecure-no-verify or off");
}

const char* showTls(Tls tls) {
  switch (tls) {
    case Tls::VerifyFull:
      return "verify-full";
    case Tls::InsecureNoVerify:
      return "insecure-no-verify";
    case Tls::Off:
      return "off";
  }
  return "";
}

/// A setting that a URI and the environment may both hold.
struct Setting {
  const char* key;
  const char* variable;
  void (*set)(Options& options, std::string_view key, std::string_view value);
  std::string (*show)(const Options& options);
};

template <std::string Options::*member>
constexpr Setting textSetting(const char* key, const char* variable) {
  return {key, variable,
          [](Options& options, std::string_view, std::string_view value) {
            options.*member = std::string(value);
          },
          [](const Options& options) { return options.*member; }};
}

template <milliseconds Options::*member>
constexpr Setting durationSetting(const char* key, const char* variable) {
  return {key, variable,
          [](Options& options, std::string_view name, std::string_view value) {
            options.*member = parseDuration(name, value);
          },
          [](const Options& options) { return showDuration(options.*member); }};
}

const Setting kSettings[] = {
    {"tls", "NOX_TLS",
     [](Options& options, std::string_view key, std::string_view value) {
       options.tls = parseTls(key, value);
     },
     [](const Options& options) { return std::string(showTls(options.tls)); }},
    textSetting<&Options::tlsName>("tls_name", "NOX_TLS_NAME"),
    textSetting<&Options::ca>("ca", "NOX_CA"),
    textSetting<&Options::certificate>("cert", "NOX_CERT"),
    textSetting<&Options::key>("key", "NOX_KEY"),
    textSetting<&Options::passwordFile>("password_file", "NOX_PASSWORD_FILE"),
    durationSetting<&Options::connectTimeout>("connect_timeout", "NOX_CONNECT_TIMEOUT"),
    durationSetting<&Options::requestTimeout>("request_timeout", "NOX_REQUEST_TIMEOUT"),
    {"max_frame", "NOX_MAX_FRAME",
     [](Options& options, std::string_view key, std::string_view value) {
       options.maxFrame = parseFrameSize(key, value);
     },
     [](const Options& options) { return std::to_string(options.maxFrame); }},
    {"fetch_size", "NOX_FETCH_SIZE",
     [](Options& options, std::string_view key, std::string_view value) {
       options.fetchSize = parseFetchSize(key, value);
     },
     [](const Options& options) { return std::to_string(options.fetchSize); }},
    textSetting<&Options::clientName>("client_name", "NOX_CLIENT_NAME"),
};

const Setting* findSetting(std::string_view key) {
  for (const Setting& setting : kSettings) {
    if (key == setting.key) return &setting;
  }
  return nullptr;
}

/// What a variable of the environment says; nothing where it is not set or empty, and in a program
/// with more rights than whoever set it.
std::optional<std::string> variable(const char* name) {
  const char* const value = ::secure_getenv(name);
  if (!value || *value == '\0') return std::nullopt;
  return std::string(value);
}

bool parseSwitch(std::string_view key, std::string_view value) {
  if (value == "0") return false;
  if (value == "1") return true;
  throwBadValue(key, value, "0 or 1");
}

/// A port that the environment gives to hosts that have none.
void usePort(Options& options) {
  const std::optional<std::string> port = variable("NOX_PORT");
  if (!port) return;
  for (Host& host : options.hosts) {
    if (host.port == 0) host.port = detail::parsePort(*port);
  }
}

std::string showHostName(const std::string& name) {
  if (name.find(':') == std::string::npos) return detail::percentEncode(name);
  const std::size_t zone = name.find('%');
  if (zone == std::string::npos) return '[' + name + ']';
  return '[' + name.substr(0, zone) + detail::percentEncode(name.substr(zone)) + ']';
}

void apply(Options& options, const detail::Uri& uri) {
  if (!uri.user.empty()) options.user = uri.user;
  if (!uri.hosts.empty()) {
    options.hosts = uri.hosts;
    usePort(options);
  }
  if (!uri.account.empty()) options.account = uri.account;
  std::set<std::string> seen;
  for (const auto& [key, value] : uri.parameters) {
    if (key == "password") {
      throwBadOption(
          "a password does not belong in a URI, where others can read it: use password_file");
    }
    const Setting* const setting = findSetting(key);
    if (!setting) throwBadOption("there is no setting \"" + key + "\"");
    if (!seen.insert(key).second) throwBadOption("\"" + key + "\" is given twice");
    setting->set(options, key, value);
  }
}

}  // namespace

Options Options::fromEnvironment() {
  Options options;
  options.user = variable("NOX_USER").value_or(detail::loginName());
  options.account = variable("NOX_ACCOUNT").value_or("");
  options.hosts = detail::parseHosts(variable("NOX_HOST").value_or(detail::kDefaultHost));
  usePort(options);
  for (const Setting& setting : kSettings) {
    if (const std::optional<std::string> value = variable(setting.variable)) {
      setting.set(options, setting.variable, *value);
    }
  }
  options.traceFile = variable("NOX_TRACE").value_or("");
  if (const std::optional<std::string> value = variable("NOX_TRACE_PAYLOAD")) {
    options.tracePayload = parseSwitch("NOX_TRACE_PAYLOAD", *value);
  }
  return options;
}

Options Options::fromUri(std::string_view uri) {
  Options options = fromEnvironment();
  if (!uri.empty()) {
    apply(options, detail::parseUri(uri));
  } else if (const std::optional<std::string> fromVariable = variable("NOX_URI")) {
    apply(options, detail::parseUri(*fromVariable));
  }
  return options;
}

std::string Options::toUri() const {
  std::string uri = "nox://";
  if (!user.empty()) uri += detail::percentEncode(user) + '@';
  for (const Host& host : hosts) {
    if (&host != hosts.data()) uri += ',';
    uri += showHostName(host.name);
    if (host.port != 0) uri += ':' + std::to_string(host.port);
  }
  if (!account.empty()) uri += '/' + detail::percentEncode(account);
  char separator = '?';
  const Options defaults;
  for (const Setting& setting : kSettings) {
    const std::string value = setting.show(*this);
    // Whoever reads it may have an environment that says something else, and the password would go
    // where TLS was meant to be.
    const bool isAlwaysShown = setting.key == std::string_view("tls");
    if (!isAlwaysShown && value == setting.show(defaults)) continue;
    uri += separator;
    uri += setting.key;
    uri += '=';
    // Slashes of file names need no encoding here, and are easier to read.
    std::string encoded = detail::percentEncode(value);
    for (std::size_t at; (at = encoded.find("%2F")) != std::string::npos;) {
      encoded.replace(at, 3, "/");
    }
    uri += encoded;
    separator = '&';
  }
  return uri;
}

}  // namespace nox::client
