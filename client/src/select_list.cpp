#include "nox/client/select_list.h"

#include <algorithm>
#include <utility>

#include "client/src/select_list_state.h"
#include "client/src/wire_text.h"

namespace nox::client {

using detail::Link;
using noxp::remote::SelectListProt;

namespace {

// What a server sends at once. The number travels in 32 bits, of which larger ones would lose some.
constexpr std::size_t kMostIds = 10'000;

/// The record at the list's cursor. Null where it was deleted, which travels as a null blob and
/// leaves one that never held anything, and where the list has fewer records than keys.
const NOXPBlob* recordAt(const SelectListProt& list) {
  if (!list.hasRecordData()) return nullptr;
  try {
    const NOXPBlob* const record = list.getRecord();
    return record && record->getBuf() ? record : nullptr;
  } catch (const SQLExtError&) {
    return nullptr;
  }
}

}  // namespace

bool SelectList::State::isModified() const {
  return std::any_of(page.begin(), page.end(),
                     [](const Entry& entry) { return entry.isModified(); });
}

std::unique_ptr<SelectList::State> SelectList::State::from(std::shared_ptr<Link> link,
                                                           Serializable* list) {
  auto state = std::make_unique<State>();
  state->pageSize = static_cast<std::size_t>(link->fetchSize);
  state->link = std::move(link);
  auto* const keys = dynamic_cast<SelectListProt*>(list);
  if (!keys || keys->getId() < 0) return state;
  state->id = keys->getId();
  state->firstPage = pageOf(*keys);
  return state;
}

SelectList::Page SelectList::State::pageOf(SelectListProt& list) {
  Page entries;
  entries.reserve(list.size());
  list.goToPosition(0);
  while (list.next()) {
    const NOXPBlob* const record = recordAt(list);
    entries.emplace_back(list.getKey(), Record(detail::bytesOf(record)), record != nullptr);
  }
  return entries;
}

/// A list of the modified records alone: what is committed is its keys and records, not positions
/// of the list on the server.
std::unique_ptr<SelectListProt> SelectList::State::changes() const {
  std::string keys;
  for (const Entry& entry : page) {
    if (!entry.isModified()) continue;
    if (!keys.empty()) keys += kAttributeMark;
    keys += entry.id();
  }
  NOXPBlob joined;
  detail::put(&joined, keys);
  auto list = std::make_unique<SelectListProt>(&joined);
  list->setId(id);
  list->setHasRecordData(true);
  for (const Entry& entry : page) {
    if (!entry.isModified()) continue;
    auto record = std::make_unique<NOXPBlob>();
    detail::put(record.get(), entry.record().bytes());
    list->next();
    list->setRecord(record.release());
  }
  return list;
}

bool SelectList::State::fetch(Direction direction) {
  if (id < 0) return false;
  if (!link) throw Error(sqlstate::kUnusable, "the list was closed", Outcome::NotSent);
  const std::unique_ptr<SelectListProt> modified = isModified() ? changes() : nullptr;
  const bool isFirst = direction == First || (direction == Next && !isStarted);
  if (isFirst && !isStarted && firstPage && !withRecords) {
    page = std::move(*firstPage);
    firstPage.reset();
    isStarted = true;
    return !page.empty();
  }
  noxp::remote::SelectListFetchRequestProt request(id, isFirst ? First : direction, pageSize,
                                                   withRecords, modified.get());
  const auto answer = link->ask<noxp::remote::SelectListFetchResponseProt>(request);
  firstPage.reset();
  isStarted = true;
  page.clear();
  if (answer->getSelectList()) page = pageOf(*answer->getSelectList());
  return !page.empty();
}

void SelectList::State::commit() {
  if (!isModified()) return;
  if (!link) throw Error(sqlstate::kUnusable, "the list was closed", Outcome::NotSent);
  const std::unique_ptr<SelectListProt> modified = changes();
  noxp::remote::SelectListCommitRequestProt request(modified.get());
  link->ask<OKResponseProt>(request);
  for (Entry& entry : page) entry.isModified_ = false;
}

void SelectList::State::close() noexcept {
  const std::shared_ptr<Link> used = std::exchange(link, nullptr);
  page.clear();
  firstPage.reset();
  if (!used || id < 0) return;
  noxp::remote::SelectListCloseRequestProt request(id);
  used->post(request);
}

SelectList::SelectList(std::unique_ptr<State> state) : state_(std::move(state)) {}

SelectList::SelectList(SelectList&& other) noexcept = default;

SelectList& SelectList::operator=(SelectList&& other) noexcept {
  SelectList taken(std::move(other));
  std::swap(state_, taken.state_);
  return *this;
}

SelectList::~SelectList() {
  if (state_) state_->close();
}

SelectList& SelectList::withRecords(bool wanted) & {
  state_->withRecords = wanted;
  return *this;
}

SelectList SelectList::withRecords(bool wanted) && {
  withRecords(wanted);
  return std::move(*this);
}

SelectList& SelectList::pageSize(std::size_t ids) & {
  state_->pageSize = std::clamp<std::size_t>(ids, 1, kMostIds);
  // What came with the list has a size of its own.
  if (state_->firstPage && state_->firstPage->size() > state_->pageSize) state_->firstPage.reset();
  return *this;
}

SelectList SelectList::pageSize(std::size_t ids) && {
  pageSize(ids);
  return std::move(*this);
}

SelectList::Iterator SelectList::begin() {
  static_cast<void>(firstPage());
  return Iterator(*this);
}

SelectList::Iterator SelectList::end() { return {}; }

bool SelectList::nextPage() { return state_->fetch(State::Next); }
bool SelectList::previousPage() { return state_->fetch(State::Previous); }
bool SelectList::firstPage() { return state_->fetch(State::First); }
bool SelectList::lastPage() { return state_->fetch(State::Last); }
bool SelectList::samePage() {
  return state_->fetch(state_->isStarted ? State::Same : State::First);
}

SelectList::Page& SelectList::page() { return state_->page; }
const SelectList::Page& SelectList::page() const { return state_->page; }

void SelectList::commit() { state_->commit(); }

std::vector<std::string> SelectList::ids() {
  std::vector<std::string> all;
  const bool wanted = std::exchange(state_->withRecords, false);
  while (nextPage()) {
    for (const Entry& entry : page()) all.push_back(entry.id());
  }
  state_->withRecords = wanted;
  return all;
}

std::size_t SelectList::count() {
  std::size_t entries = 0;
  const bool wanted = std::exchange(state_->withRecords, false);
  while (nextPage()) entries += page().size();
  state_->withRecords = wanted;
  return entries;
}

void SelectList::close() { state_->close(); }

int SelectList::id() const { return state_->id; }

SelectList::Iterator::Iterator(SelectList& list) : list_(&list) {
  SelectList::Page& page = list.page();
  if (page.empty()) return;
  entry_ = page.data();
  pageEnd_ = entry_ + page.size();
}

SelectList::Iterator& SelectList::Iterator::operator++() {
  if (++entry_ != pageEnd_) return *this;
  static_cast<void>(list_->nextPage());
  *this = Iterator(*list_);
  return *this;
}

}  // namespace nox::client
