#include "nox/client/file.h"

#include <utility>

#include "client/src/link.h"
#include "client/src/record_requests.h"
#include "client/src/select_list_state.h"

namespace nox::client {

namespace {

using detail::Link;
using noxp::remote::ToviResponseProt;

Link& use(const std::shared_ptr<Link>& link) {
  if (!link) throw Error(sqlstate::kUnusable, "the file was closed", Outcome::NotSent);
  return *link;
}

/// Sends a request about a record and returns its answer with its status.
std::pair<Status, std::unique_ptr<ToviResponseProt>> ask(Link& link, Serializable& request) {
  std::unique_ptr<ToviResponseProt> answer = link.ask<ToviResponseProt>(request);
  const std::optional<Status> status = detail::statusOf(*answer);
  if (!status) link.channel().failAnswer(request.getType(), answer->getType());
  return {*status, std::move(answer)};
}

/// Done or not; a lock of somebody else throws.
bool isDone(Status status, const std::string& file, std::string_view id) {
  if (status == Status::Locked) {
    throw Error(sqlstate::kLocked,
                "another session has locked record \"" + std::string(id) + "\" of " + file,
                Outcome::Rejected);
  }
  return status == Status::Done;
}

}  // namespace

File::File(std::shared_ptr<Link> link, std::string name)
    : link_(std::move(link)), name_(std::move(name)) {}

File::File(File&& other) noexcept = default;

File& File::operator=(File&& other) noexcept {
  File taken(std::move(other));
  std::swap(link_, taken.link_);
  std::swap(name_, taken.name_);
  return *this;
}

File::~File() { close(); }

void File::close() {
  if (!link_) return;
  const std::shared_ptr<Link> link = std::exchange(link_, nullptr);
  noxp::remote::CloseFileRequestProt request;
  detail::put(request.getFileName(), name_, detail::kFileName);
  link->post(request);
}

std::optional<Record> File::read(std::string_view id) const {
  ReadResult result = read(id, Lock::None);
  if (!isDone(result.status, name_, id)) return std::nullopt;
  return std::move(result.record);
}

ReadResult File::read(std::string_view id, Lock lock, Wait wait) const {
  Link& link = use(link_);
  noxp::remote::ReadRecordRequestProt request(detail::readMode(lock, wait), nullptr, nullptr);
  detail::fill(request, name_, id);
  if (lock != Lock::None) link.mayHoldLocks = true;
  const auto [status, answer] = ask(link, request);
  return {status, detail::recordOf(*answer)};
}

bool File::exists(std::string_view id) const {
  noxp::remote::ExistsRecordRequestProt request;
  detail::fill(request, name_, id);
  return isDone(ask(use(link_), request).first, name_, id);
}

Status File::write(std::string_view id, const Record& record, int mode) {
  Link& link = use(link_);
  noxp::remote::WriteRecordRequestProt request(mode, nullptr, nullptr, nullptr);
  detail::fill(request, name_, id, record);
  if (mode != detail::kWriteAndRelease) link.mayHoldLocks = true;
  return ask(link, request).first;
}

void File::write(std::string_view id, const Record& record) {
  static_cast<void>(isDone(tryWrite(id, record), name_, id));
}

void File::writeAndKeepLock(std::string_view id, const Record& record) {
  static_cast<void>(isDone(write(id, record, detail::kWriteAndKeep), name_, id));
}

bool File::writeNew(std::string_view id, const Record& record) {
  return isDone(write(id, record, detail::kWriteNew), name_, id);
}

Status File::tryWrite(std::string_view id, const Record& record) {
  return write(id, record, detail::kWriteAndRelease);
}

bool File::remove(std::string_view id) { return isDone(tryRemove(id), name_, id); }

Status File::tryRemove(std::string_view id) {
  noxp::remote::DeleteRecordRequestProt request;
  detail::fill(request, name_, id);
  return ask(use(link_), request).first;
}

void File::release(std::string_view id) {
  noxp::remote::ReleaseRecordLockRequestProt request(detail::kReleaseRecord, nullptr, nullptr);
  detail::fill(request, name_, id);
  use(link_).ask<OKResponseProt>(request);
}

void File::releaseAll() {
  noxp::remote::ReleaseRecordLockRequestProt request(detail::kReleaseFile, nullptr, nullptr);
  detail::fill(request, name_, {});
  use(link_).ask<OKResponseProt>(request);
}

void File::clear() {
  noxp::remote::ClearFileRequestProt request;
  detail::put(request.getFileName(), name_, detail::kFileName);
  use(link_).ask<OKResponseProt>(request);
}

SelectList File::select() const {
  constexpr int kVersionWithFirstChunk = 1;
  Link& link = use(link_);
  noxp::remote::SelectFileRequestProt request;
  request.setClassVersion(kVersionWithFirstChunk);
  detail::put(request.getFileName(), name_, detail::kFileName);
  const auto [status, answer] = ask(link, request);
  static_cast<void>(status);
  return SelectList(SelectList::State::from(link_, answer->getSelectList()));
}

}  // namespace nox::client
