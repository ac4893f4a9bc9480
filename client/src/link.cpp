#include "client/src/link.h"

#include <exception>
#include <utility>

#include "client/src/record_requests.h"

namespace nox::client::detail {

Link::Link(std::unique_ptr<Channel> channel, const Options& options, Host answering)
    : user(options.user),
      account(options.account),
      host(std::move(answering)),
      requestTimeout(options.requestTimeout),
      fetchSize(options.fetchSize),
      channel_(std::move(channel)),
      canceller_(channel_->canceller()),
      isEncrypted_(channel_->isEncrypted()) {}

Channel& Link::channel() {
  if (!channel_) {
    throw Error(sqlstate::kUnusable, "the connection is unusable: it was closed", Outcome::NotSent);
  }
  return *channel_;
}

std::unique_ptr<Serializable> Link::exchange(Serializable& request, bool isSecret) {
  return channel().exchange(request, deadline(), isSecret);
}

void Link::post(Serializable& request) noexcept {
  if (!isUsable()) return;
  try {
    channel_->post(request, deadline());
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): the next request says it
  }
}

bool Link::renew(const Options& options) noexcept {
  if (!isUsable() || inTransaction || isChanged) return false;
  requestTimeout = options.requestTimeout;
  try {
    if (std::exchange(mayHoldLocks, false)) {
      noxp::remote::ReleaseRecordLockRequestProt request(kReleaseAll, nullptr, nullptr);
      post(request);
    }
    if (std::exchange(mayHaveActiveList, false)) {
      NOXPBlob command("CLEARSELECT");
      noxp::remote::RemoteExecuteRequestProt request(&command);
      post(request);
    }
  } catch (const std::exception&) {
    return false;
  }
  return isUsable();
}

}  // namespace nox::client::detail
