// Reply, where a handler puts its one answer.
#pragma once

#include <nox/nox.h>

namespace nox::agent {

/// Every request is answered once. Handlers build their replies on the stack and send them here.
class Reply {
public:
  explicit Reply(BinaryWriter& writer) : writer_(writer) {}
  Reply(const Reply&) = delete;
  Reply& operator=(const Reply&) = delete;

  /// Writes `response` as a frame. A second call throws std::logic_error: it is the agent's own
  /// mistake.
  void send(noxp::ResponseProt& response);
  void send(noxp::ResponseProt&& response) { send(response); }

  bool sent() const { return sent_; }
  /// Bytes of the frame that was sent.
  std::uint64_t bytes() const { return bytes_; }
  /// Compresses replies from this many bytes on; below 0 none.
  void compressFrom(int threshold);

private:
  BinaryWriter& writer_;
  Serializable::properties_t properties_;
  bool sent_ = false;
  std::uint64_t bytes_ = 0;
};

}  // namespace nox::agent
