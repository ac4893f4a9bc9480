#include "client/command/dump/frames.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace nox::command {

namespace {

constexpr std::size_t kLengthSize = 4;
constexpr std::size_t kSmallestBody = 2;  // the two brackets

std::uint32_t bigEndian32(std::string_view bytes) {
  std::uint32_t value = 0;
  for (const char c : bytes.substr(0, kLengthSize)) {
    value = value << 8 | static_cast<unsigned char>(c);
  }
  return value;
}

/// Four letters that cannot be a sensible length are the begin of an HTTP method.
bool isHttp(std::string_view bytes) {
  for (const std::string_view method : {"GET ", "POST", "HEAD", "PUT ", "DELE", "OPTI", "TRAC"}) {
    if (bytes.substr(0, kLengthSize) == method) return true;
  }
  return false;
}

std::size_t httpLength(std::string_view bytes) {
  constexpr std::string_view kBlankLine = "\r\n\r\n";
  const std::size_t end = bytes.find(kBlankLine);
  return end == std::string_view::npos ? bytes.size() : end + kBlankLine.size();
}

int digitOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

/// A line without its comment and without an offset in front of a colon.
std::string_view digitsOf(std::string_view line) {
  line = line.substr(0, line.find('#'));
  const std::size_t colon = line.find(':');
  return colon == std::string_view::npos ? line : line.substr(colon + 1);
}

template <class Visit>
void forEachLine(std::string_view text, Visit visit) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    visit(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

}  // namespace

CapturedFrames framesOfBytes(std::string_view bytes, const std::string& origin) {
  CapturedFrames found;
  std::size_t at = 0;
  const auto stopAt = [&](const std::string& why) {
    found.problem = "byte " + std::to_string(at) + ": " + why;
    if (!origin.empty()) found.problem = origin + ", " + found.problem;
  };
  while (at < bytes.size()) {
    const std::string_view rest = bytes.substr(at);
    if (isHttp(rest)) {
      const std::size_t length = httpLength(rest);
      found.frames.push_back({std::string(rest.substr(0, length)), origin, at, true});
      at += length;
      continue;
    }
    if (rest.size() <= kLengthSize) {
      stopAt("the length of a frame is cut off");
      break;
    }
    const std::uint32_t length = bigEndian32(rest);
    if (rest[kLengthSize] != '[' || length < kSmallestBody) {
      stopAt("no frame begins here");
      break;
    }
    if (rest.size() - kLengthSize < length) {
      stopAt("a frame of " + std::to_string(length) + " bytes is cut off after " +
             std::to_string(rest.size() - kLengthSize));
      break;
    }
    found.frames.push_back({std::string(rest.substr(0, kLengthSize + length)), origin, at, false});
    at += kLengthSize + length;
  }
  return found;
}

bool looksLikeHex(std::string_view text) {
  bool any = false;
  bool only = true;
  forEachLine(text, [&](std::string_view line) {
    for (const char c : digitsOf(line)) {
      if (digitOf(c) >= 0) {
        any = true;
      } else if (!isBlank(c)) {
        only = false;
      }
    }
  });
  return any && only;
}

std::string bytesOfHex(std::string_view text) {
  std::string bytes;
  int high = -1;
  forEachLine(text, [&](std::string_view line) {
    for (const char c : digitsOf(line)) {
      const int digit = digitOf(c);
      if (digit < 0) continue;
      if (high < 0) {
        high = digit;
      } else {
        bytes += static_cast<char>(high << 4 | digit);
        high = -1;
      }
    }
  });
  if (high >= 0) throw std::runtime_error("an odd number of hexadecimal digits");
  return bytes;
}

bool looksLikeCapture(std::string_view bytes) {
  using namespace std::string_view_literals;
  for (const std::string_view magic :
       {"\xD4\xC3\xB2\xA1"sv, "\xA1\xB2\xC3\xD4"sv, "\x4D\x3C\xB2\xA1"sv, "\xA1\xB2\x3C\x4D"sv,
        "\x0A\x0D\x0D\x0A"sv}) {
    if (bytes.substr(0, magic.size()) == magic) return true;
  }
  return false;
}

CapturedFrames framesOf(std::string_view input) {
  if (looksLikeCapture(input)) return framesOfCapture(input);
  if (looksLikeHex(input)) return framesOfBytes(bytesOfHex(input));
  return framesOfBytes(input);
}

}  // namespace nox::command
