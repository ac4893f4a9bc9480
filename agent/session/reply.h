// Reply, where a handler puts its one answer.
#pragma once

#include <functional>
#include <utility>

#include <nox/nox.h>

namespace nox::agent {

/// Every request is answered once. Handlers build their replies on the stack and send them here.
class Reply {
public:
  /// `beforeSend` is called just before the reply's first byte may leave. `writer` is borrowed.
  explicit Reply(BinaryWriter& writer, std::function<void()> beforeSend = {})
      : writer_(writer), beforeSend_(std::move(beforeSend)) {}
  Reply(const Reply&) = delete;
  Reply& operator=(const Reply&) = delete;

  /// Writes `response` as a frame. A second call throws std::logic_error: it is the agent's own
  /// mistake.
  void send(noxp::ResponseProt& response);
  void send(noxp::ResponseProt&& response) { send(response); }

  bool sent() const { return sent_; }
  /// Compresses replies from this many bytes on; below 0 none.
  void compressFrom(int threshold);

private:
  BinaryWriter& writer_;
  std::function<void()> beforeSend_;
  Serializable::properties_t properties_;
  bool sent_ = false;
};

}  // namespace nox::agent
