#include "client/src/uri.h"

#include <charconv>
#include <system_error>

#include "client/src/numbers.h"
#include "nox/client/error.h"

namespace nox::client::detail {

namespace {

constexpr std::string_view kScheme = "nox://";
constexpr std::size_t kNone = std::string_view::npos;

std::string percentDecode(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    const int high = i + 1 < text.size() ? hexDigit(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? hexDigit(text[i + 2]) : -1;
    if (high < 0 || low < 0) {
      throwBadOption("two hexadecimal digits are missing behind a \"%\" of the URI");
    }
    if (high == 0 && low == 0) throwBadOption("the URI has a NUL (\"%00\")");
    decoded += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return decoded;
}

/// Takes what precedes the first of `ends` off `rest`, which begins with it then or is empty.
std::string_view takeUntil(std::string_view& rest, const char* ends) {
  const std::size_t end = rest.find_first_of(ends);
  const std::string_view taken = rest.substr(0, end);
  rest.remove_prefix(taken.size());
  return taken;
}

Host parseHost(std::string_view text) {
  Host host;
  std::string_view port;
  if (!text.empty() && text.front() == '[') {
    const std::size_t end = text.find(']');
    if (end == kNone) throwBadOption("a \"]\" is missing behind an IPv6 address");
    host.name = percentDecode(text.substr(1, end - 1));
    port = text.substr(end + 1);
    if (!port.empty() && port.front() != ':') {
      throwBadOption("only a port may follow the \"]\" of an IPv6 address");
    }
  } else {
    const std::size_t colon = text.find(':');
    host.name = percentDecode(text.substr(0, colon));
    if (colon != kNone) port = text.substr(colon);
    if (port.find(':', 1) != kNone) throwBadOption("an IPv6 address must stand in brackets");
  }
  if (host.name.empty()) throwBadOption("a host has no name");
  if (!port.empty()) host.port = parsePort(port.substr(1));
  return host;
}

}  // namespace

void throwBadOption(const std::string& message) {
  throw Error(sqlstate::kBadOption, message, Outcome::NotSent);
}

std::uint16_t parsePort(std::string_view text) {
  std::uint16_t port = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, port);
  if (error != std::errc() || stopped != end || port == 0) {
    throwBadOption("a port is a number from 1 to 65535, not \"" + std::string(text) + "\"");
  }
  return port;
}

std::vector<Host> parseHosts(std::string_view text) {
  std::vector<Host> hosts;
  if (text.empty()) return hosts;
  for (;;) {
    hosts.push_back(parseHost(takeUntil(text, ",")));
    if (text.empty()) return hosts;
    text.remove_prefix(1);
  }
}

Uri parseUri(std::string_view text) {
  if (text.substr(0, kScheme.size()) != kScheme) {
    throwBadOption("a URI begins with \"nox://\"");
  }
  text.remove_prefix(kScheme.size());
  if (text.find('#') != kNone) throwBadOption("a URI has no \"#\"; write \"%23\"");

  Uri uri;
  std::string_view authority = takeUntil(text, "/?");
  const std::size_t at = authority.find('@');
  if (at != kNone) {
    const std::string_view user = authority.substr(0, at);
    if (user.find(':') != kNone) {
      throwBadOption(
          "a password does not belong in a URI, where others can read it: use password_file");
    }
    if (authority.find('@', at + 1) != kNone) {
      throwBadOption("a URI has one \"@\"; write \"%40\" for those in a name");
    }
    uri.user = percentDecode(user);
    authority.remove_prefix(at + 1);
  }
  uri.hosts = parseHosts(authority);

  if (!text.empty() && text.front() == '/') {
    text.remove_prefix(1);
    const std::string_view account = takeUntil(text, "?");
    if (account.find('/') != kNone) throwBadOption("behind the account a URI has no \"/\"");
    uri.account = percentDecode(account);
  }

  if (!text.empty()) text.remove_prefix(1);  // the "?"
  while (!text.empty()) {
    std::string_view value = takeUntil(text, "&");
    if (!text.empty()) text.remove_prefix(1);
    const std::string_view key = takeUntil(value, "=");
    if (key.empty()) throwBadOption("a parameter of the URI has no name");
    if (value.empty()) {
      throwBadOption("the URI's parameter \"" + percentDecode(key) + "\" has no \"=\"");
    }
    uri.parameters.emplace_back(percentDecode(key), percentDecode(value.substr(1)));
  }
  return uri;
}

std::string percentEncode(std::string_view text) {
  constexpr char kHexDigits[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' || c == '~';
    if (isPlain) {
      encoded += c;
    } else {
      encoded += '%';
      encoded += kHexDigits[byte >> 4];
      encoded += kHexDigits[byte & 0x0F];
    }
  }
  return encoded;
}

}  // namespace nox::client::detail
