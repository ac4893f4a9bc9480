// Link: what a connection and everything made from it share.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "client/src/channel.h"
#include "nox/client/options.h"

namespace nox::client::detail {

class RowSource;

/// Ends, for all who hold it, when its connection closes.
class Link {
public:
  Link(std::unique_ptr<Channel> channel, const Options& options, Host host);

  /// Throws Error kUnusable once the link is closed.
  Channel& channel();
  /// Null once the link is closed.
  Channel* open() const { return channel_.get(); }
  bool isUsable() const { return channel_ && channel_->isUsable(); }
  void close() noexcept { channel_.reset(); }

  /// Sends `request` and returns its answer, which must be a `Reply`.
  template <class Reply>
  std::unique_ptr<Reply> ask(Serializable& request, bool isSecret = false) {
    std::unique_ptr<Serializable> answer = exchange(request, isSecret);
    auto* const reply = dynamic_cast<Reply*>(answer.get());
    if (!reply) channel().failAnswer(request.getType(), answer->getType());
    static_cast<void>(answer.release());
    return std::unique_ptr<Reply>(reply);
  }
  /// The same for an answer of any kind.
  std::unique_ptr<Serializable> exchange(Serializable& request, bool isSecret = false);
  /// Sends `request` without waiting for its answer, for destructors: what fails shows with the
  /// next request. Nothing happens on an unusable link.
  void post(Serializable& request) noexcept;

  /// Makes the session as it was after its login, for its next user: locks are given back. False
  /// where that cannot be done.
  bool renew(const Options& options) noexcept;

  /// Both still answer once the link is closed.
  const std::shared_ptr<Canceller>& canceller() const { return canceller_; }
  bool isEncrypted() const { return isEncrypted_; }

  Deadline deadline() const { return Deadline::in(requestTimeout); }

  // What this side knows of the session.
  std::string user;
  std::string account;
  const Host host;
  std::chrono::milliseconds requestTimeout;
  const int fetchSize;
  bool emptyIsNull = false;          // EMPTY_NULL was set
  bool inTransaction = false;        // a local one, or a started branch
  std::uint64_t programs = 0;        // that were started; the server goes on with the last alone
  std::weak_ptr<RowSource> catalog;  // the server keeps the rows of one catalogue query
  // What the next user of a pooled connection would notice.
  bool isChanged = false;  // properties, account, or what a program left
  bool mayHoldLocks = false;
  bool mayHaveActiveList = false;

private:
  std::unique_ptr<Channel> channel_;
  const std::shared_ptr<Canceller> canceller_;
  const bool isEncrypted_;
};

}  // namespace nox::client::detail
