// Frames as people have them: in a file of raw bytes, as hexadecimal text, or captured from a
// network.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace nox::command {

/// One frame, its 4-byte length included, or an HTTP request as it stands.
struct CapturedFrame {
  std::string bytes;
  std::string origin;      // "10.0.0.1:5000 > 10.0.0.2:7433" for captures, else empty
  std::size_t offset = 0;  // in its stream
  bool http = false;
};

/// What was found, and why the search ended before the end of the input; empty where it did not.
struct CapturedFrames {
  std::vector<CapturedFrame> frames;
  std::string problem;
};

/// Cuts a stream of bytes into frames.
CapturedFrames framesOfBytes(std::string_view bytes, const std::string& origin = {});

/// Whether `text` is nothing but hexadecimal digits, blanks, and comments from '#' to the line's
/// end; an offset in front of ':' is taken for a comment, too.
bool looksLikeHex(std::string_view text);
/// The bytes that the text spells. Throws std::runtime_error for an odd number of digits.
std::string bytesOfHex(std::string_view text);

/// Whether `bytes` begin like a file of captured packets (pcap or pcapng).
bool looksLikeCapture(std::string_view bytes);
/// The frames of every TCP stream in the capture, in the order in which streams begin. Streams that
/// do not begin with a frame (TLS among them) are named in `problem`.
CapturedFrames framesOfCapture(std::string_view bytes);

/// One of the three, by what the input looks like.
CapturedFrames framesOf(std::string_view input);

}  // namespace nox::command
