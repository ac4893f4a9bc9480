// Captured packets: the TCP streams in them, put together again.
#include <arpa/inet.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <tuple>

#include "client/command/dump/frames.h"

namespace nox::command {

namespace {

struct Free {
  void operator()(pcap_t* capture) const { pcap_close(capture); }
  void operator()(std::FILE* file) const { std::fclose(file); }
};

using Bytes = std::string_view;

std::uint16_t number16(Bytes bytes, std::size_t at) {
  return static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[at]) << 8 |
                                    static_cast<unsigned char>(bytes[at + 1]));
}

std::uint32_t number32(Bytes bytes, std::size_t at) {
  return static_cast<std::uint32_t>(number16(bytes, at)) << 16 | number16(bytes, at + 2);
}

/// One direction of a connection.
struct Direction {
  std::string source;
  std::string target;
  bool operator<(const Direction& other) const {
    return std::tie(source, target) < std::tie(other.source, other.target);
  }
  std::string text() const { return source + " > " + target; }
};

struct Segment {
  Direction direction;
  std::uint32_t sequence = 0;
  bool begins = false;  // SYN
  Bytes payload;
};

std::string address(int family, Bytes bytes, std::uint16_t port) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(family, bytes.data(), text.data(), text.size());
  const std::string host(text.data());
  return (family == AF_INET6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

/// What lies behind the header of the link, if it is IP.
std::optional<Bytes> ipPacket(int link, Bytes packet) {
  constexpr std::uint16_t kIpv4 = 0x0800;
  constexpr std::uint16_t kIpv6 = 0x86DD;
  constexpr std::uint16_t kVlan = 0x8100;
  std::size_t header = 0;
  std::size_t typeAt = 0;
  switch (link) {
    case DLT_EN10MB:
      header = 14;
      typeAt = 12;
      break;
    case DLT_LINUX_SLL:
      header = 16;
      typeAt = 14;
      break;
    case DLT_LINUX_SLL2:
      header = 20;
      typeAt = 0;
      break;
    case DLT_NULL:
    case DLT_LOOP:
      return packet.size() > 4 ? std::optional(packet.substr(4)) : std::nullopt;
    case DLT_RAW:
      return packet;
    default:
      throw std::runtime_error("packets of this kind of network are not understood");
  }
  if (packet.size() < header) return std::nullopt;
  std::uint16_t type = number16(packet, typeAt);
  if (link == DLT_EN10MB && type == kVlan) {
    header += 4;
    if (packet.size() < header) return std::nullopt;
    type = number16(packet, 16);
  }
  if (type != kIpv4 && type != kIpv6) return std::nullopt;
  return packet.substr(header);
}

/// The TCP segment in an IP packet; nothing for other packets and for fragments.
std::optional<Segment> segmentIn(Bytes ip) {
  constexpr unsigned char kTcp = 6;
  if (ip.empty()) return std::nullopt;
  const int version = static_cast<unsigned char>(ip[0]) >> 4;
  int family = AF_INET;
  Bytes source;
  Bytes target;
  Bytes tcp;
  if (version == 4) {
    if (ip.size() < 20 || static_cast<unsigned char>(ip[9]) != kTcp) return std::nullopt;
    constexpr std::uint16_t kFragment = 0x3FFF;
    const std::size_t header = static_cast<std::size_t>(ip[0] & 0x0F) * 4;
    const std::size_t total = number16(ip, 2);
    if ((number16(ip, 6) & kFragment) != 0 || header < 20) return std::nullopt;
    // A total of 0 is what segmentation in the network card leaves behind.
    const std::size_t size = total == 0 ? ip.size() : std::min(total, ip.size());
    if (size < header) return std::nullopt;
    source = ip.substr(12, 4);
    target = ip.substr(16, 4);
    tcp = ip.substr(header, size - header);
  } else if (version == 6) {
    if (ip.size() < 40 || static_cast<unsigned char>(ip[6]) != kTcp) return std::nullopt;
    family = AF_INET6;
    source = ip.substr(8, 16);
    target = ip.substr(24, 16);
    tcp = ip.substr(40, number16(ip, 4));
  } else {
    return std::nullopt;
  }
  if (tcp.size() < 20) return std::nullopt;
  constexpr unsigned char kSyn = 0x02;
  const std::size_t header = static_cast<std::size_t>(static_cast<unsigned char>(tcp[12]) >> 4) * 4;
  if (header < 20 || tcp.size() < header) return std::nullopt;
  Segment segment;
  segment.direction = {address(family, source, number16(tcp, 0)),
                       address(family, target, number16(tcp, 2))};
  segment.sequence = number32(tcp, 4);
  segment.begins = (static_cast<unsigned char>(tcp[13]) & kSyn) != 0;
  segment.payload = tcp.substr(header);
  return segment;
}

/// Puts segments into their order, drops what was sent twice, and keeps what came early until the
/// gap in front of it is filled.
class Stream {
public:
  void add(const Segment& segment) {
    std::uint32_t sequence = segment.sequence;
    if (segment.begins) {
      next_ = sequence + 1;
      begun_ = true;
      return;
    }
    if (segment.payload.empty()) return;
    if (!begun_) {  // captured in the middle: begins with what is seen first
      next_ = sequence;
      begun_ = true;
    }
    early_.emplace_back(sequence, std::string(segment.payload));
    bool moved = true;
    while (moved) {
      moved = false;
      for (auto it = early_.begin(); it != early_.end(); ++it) {
        const auto ahead = static_cast<std::int32_t>(it->first - next_);
        if (ahead > 0) continue;
        const auto known = static_cast<std::size_t>(-static_cast<std::int64_t>(ahead));
        if (known < it->second.size()) {
          bytes_.append(it->second, known);
          next_ += static_cast<std::uint32_t>(it->second.size() - known);
        }
        early_.erase(it);
        moved = true;
        break;
      }
    }
  }
  const std::string& bytes() const { return bytes_; }
  bool hasGap() const { return !early_.empty(); }

private:
  std::uint32_t next_ = 0;
  bool begun_ = false;
  std::string bytes_;
  std::vector<std::pair<std::uint32_t, std::string>> early_;
};

}  // namespace

CapturedFrames framesOfCapture(std::string_view bytes) {
  std::unique_ptr<std::FILE, Free> file(
      fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "rb"));
  std::array<char, PCAP_ERRBUF_SIZE> error{};
  const std::unique_ptr<pcap_t, Free> capture(file ? pcap_fopen_offline(file.get(), error.data())
                                                   : nullptr);
  if (!capture) throw std::runtime_error(std::string("not a capture: ") + error.data());
  static_cast<void>(file.release());  // pcap_close() closes it

  std::map<Direction, std::size_t> numbers;
  std::vector<std::pair<Direction, Stream>> streams;
  const int link = pcap_datalink(capture.get());
  pcap_pkthdr* head = nullptr;
  const unsigned char* data = nullptr;
  int result = 0;
  while ((result = pcap_next_ex(capture.get(), &head, &data)) == 1) {
    const auto ip = ipPacket(link, Bytes(reinterpret_cast<const char*>(data), head->caplen));
    const auto segment = ip ? segmentIn(*ip) : std::nullopt;
    if (!segment) continue;
    const auto [known, isNew] = numbers.try_emplace(segment->direction, streams.size());
    if (isNew) streams.emplace_back(segment->direction, Stream());
    streams[known->second].second.add(*segment);
  }

  CapturedFrames all;
  const auto note = [&](const std::string& problem) {
    if (!all.problem.empty()) all.problem += "\n";
    all.problem += problem;
  };
  if (result == PCAP_ERROR) note(pcap_geterr(capture.get()));
  for (const auto& [direction, stream] : streams) {
    CapturedFrames found = framesOfBytes(stream.bytes(), direction.text());
    for (CapturedFrame& frame : found.frames) all.frames.push_back(std::move(frame));
    if (!found.problem.empty()) note(found.problem);
    if (stream.hasGap()) note(direction.text() + ": packets are missing");
  }
  return all;
}

}  // namespace nox::command
