// A peer that notes what is asked and answers as it is told.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "nox/client/connection.h"
#include "tests/client/support/environment.h"
#include "tests/client/support/peer.h"

namespace nox::client::test {

/// Shows the interesting fields of a request: "Read 6 F/1", "ListFetch 4 1 1000". Others by code.
std::string describe(Serializable& request);

/// One client, whose requests are answered with what was queued, in order; when nothing is, with
/// OK.
class RecordedSession : public testing::Test {
protected:
  RecordedSession()
      : peer_(serving(
            [this](PeerConnection& client, Serializable& request) { answer(client, request); })),
        connection_(Connection::open(peer_.uri())) {}

  /// The answer to the next request that has none yet.
  template <class Reply, class... Arguments>
  void reply(Arguments&&... arguments) {
    const auto message = std::make_shared<Reply>(std::forward<Arguments>(arguments)...);
    replyBytes(PeerConnection::frameOf(*message));
  }
  void replyBytes(std::string frame) {
    const std::lock_guard<std::mutex> lock(mutex_);
    replies_.push_back(std::move(frame));
  }
  /// What was asked since the last call. Requests that nobody waits for are asked for first.
  std::vector<std::string> asked() {
    sync();
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(asked_, {});
  }

  /// A round trip that leaves no trace in `asked`.
  void sync() { static_cast<void>(connection_.echo("sync")); }

  const Environment empty_;
  std::mutex mutex_;
  std::deque<std::string> replies_;
  std::vector<std::string> asked_;
  Peer peer_;
  Connection connection_;

private:
  void answer(PeerConnection& client, Serializable& request);
};

}  // namespace nox::client::test
