#include "agent/commands/rows.h"

#include <algorithm>
#include <limits>
#include <unordered_set>
#include <utility>

#include "agent/commands/errors.h"
#include "agent/commands/filter.h"
#include "agent/commands/sort_key.h"
#include "agent/commands/sorter.h"
#include "agent/lists/select_lists.h"
#include "agent/multivalue.h"
#include "agent/requests/fields.h"
#include "agent/session/data_access.h"
#include "agent/session/session.h"

namespace nox::agent {

/// Where records come from.
class Rows::Source {
public:
  virtual ~Source() = default;
  virtual bool next() = 0;
  // Valid until the next call.
  virtual std::string_view id() const = 0;
  virtual std::string_view record() const = 0;
};

/// All records of a file.
class Rows::FileSource : public Source {
public:
  FileSource(Session& session, const FilePart& file, bool withBodies)
      : cursor_(asCommandFailure([&] { return session.data().scan(file, withBodies); })),
        withBodies_(withBodies) {}

  bool next() override {
    return asCommandFailure([&] { return cursor_->next(); });
  }
  std::string_view id() const override { return cursor_->key(); }
  std::string_view record() const override {
    return withBodies_ ? cursor_->body() : std::string_view();
  }

private:
  std::unique_ptr<RecordCursor> cursor_;
  bool withBodies_;
};

/// The records of given ids, as far as there are such records.
class Rows::IdSource : public Source {
public:
  IdSource(Session& session, const FilePart& file, bool withBodies)
      : session_(session), file_(file.text()), withBodies_(withBodies) {}

  bool next() override {
    return asCommandFailure([&] {
      while (nextId(id_)) {
        if (read() == DataAccess::Done) return true;
        checkDeadline(session_);
      }
      return false;
    });
  }
  std::string_view id() const override { return id_; }
  std::string_view record() const override { return bytesOf(&body_); }

protected:
  virtual bool nextId(std::string& id) = 0;

private:
  DataAccess::Status read() {
    return withBodies_ ? session_.data().read(file_, id_, DataAccess::kReadPlain, body_)
                       : session_.data().exists(file_, id_);
  }

  Session& session_;
  std::string file_;
  bool withBodies_;
  std::string id_;
  NOXPBlob body_;
};

/// The ids that a command names.
class Rows::NamedSource : public IdSource {
public:
  NamedSource(Session& session, const FilePart& file, bool withBodies, std::vector<std::string> ids)
      : IdSource(session, file, withBodies), ids_(std::move(ids)) {}

private:
  bool nextId(std::string& id) override {
    if (next_ == ids_.size()) return false;
    id = ids_[next_++];
    return true;
  }

  std::vector<std::string> ids_;
  std::size_t next_ = 0;
};

/// The keys of a list; where the command names ids, only those.
class Rows::ListSource : public IdSource {
public:
  ListSource(Session& session, const FilePart& file, bool withBodies, KeyList keys,
             const std::vector<std::string>& ids)
      : IdSource(session, file, withBodies), keys_(std::move(keys)), ids_(ids.begin(), ids.end()) {}

private:
  bool nextId(std::string& id) override {
    while (true) {
      if (next_ == chunk_.size()) {
        constexpr std::size_t kChunk = 1'000;
        chunk_ = keys_.read(read_, kChunk);
        read_ += chunk_.size();
        next_ = 0;
        if (chunk_.empty()) return false;
      }
      id = std::move(chunk_[next_++]);
      if (ids_.empty() || ids_.count(id) > 0) return true;
    }
  }

  KeyList keys_;
  std::unordered_set<std::string> ids_;
  std::vector<std::string> chunk_;
  std::size_t read_ = 0;  // keys of the list that were in a chunk
  std::size_t next_ = 0;  // of the chunk
};

Rows::Rows(Session& session, const Target& target, std::vector<Item> columns,
           std::optional<std::uint64_t> first, std::size_t memory)
    : session_(session),
      items_(std::move(columns)),
      rest_(first.value_or(std::numeric_limits<std::uint64_t>::max())) {
  Dictionary dictionary(session, target.file);
  filter_ = std::make_unique<Filter>(dictionary, target.with);
  for (const By& by : target.by) order_.push_back({dictionary.item(by.item), by.descending});
  if (!order_.empty()) sorter_ = std::make_unique<Sorter>(memory);

  const auto needsRecord = [](const auto& item) { return item.needsRecord(); };
  const bool withBodies = filter_->needsRecord() ||
                          std::any_of(items_.begin(), items_.end(), needsRecord) ||
                          std::any_of(order_.begin(), order_.end(),
                                      [&](const Order& order) { return needsRecord(order.item); });
  // Behind everything that may be wrong with the command: such a one leaves the list active.
  source_ = makeSource(target, withBodies);
}

Rows::~Rows() = default;

std::unique_ptr<Rows::Source> Rows::makeSource(const Target& target, bool withBodies) {
  if (std::optional<SelectedKeys> active = session_.lists().takeActive()) {
    return std::make_unique<ListSource>(session_, target.file, withBodies, std::move(active->keys),
                                        target.ids);
  }
  if (!target.ids.empty()) {
    return std::make_unique<NamedSource>(session_, target.file, withBodies, target.ids);
  }
  return std::make_unique<FileSource>(session_, target.file, withBodies);
}

bool Rows::next() {
  if (rest_ == 0) return false;
  if (!sorter_) {
    if (!nextSelected()) return false;
    id_ = source_->id();
    show();
    columns_ = shown_;
  } else {
    if (source_) sort();
    checkNowAndThen();
    if (!sorter_->next()) return false;
    // An id holds no marks.
    const std::string_view content = sorter_->content();
    const std::size_t end = content.find(kAttribute);
    id_ = content.substr(0, end);
    columns_ = content.substr(end + 1);
  }
  --rest_;
  return true;
}

void Rows::checkNowAndThen() {
  constexpr unsigned int kRecordsPerCheck = 32;  // expressions may take long for each
  if (++sinceCheck_ % kRecordsPerCheck == 0) checkDeadline(session_);
}

bool Rows::nextSelected() {
  while (source_->next()) {
    checkNowAndThen();
    if (filter_->accepts(source_->id(), source_->record())) return true;
  }
  return false;
}

/// Reads everything: what is kept of a record is what it is sorted by and what is shown.
void Rows::sort() {
  while (nextSelected()) {
    std::string key;
    for (Order& order : order_) {
      appendSortKey(key, order.item.value(source_->id(), source_->record()), order.item.isNumeric(),
                    order.descending);
    }
    show();
    std::string content(source_->id());
    content += kAttribute;
    content += shown_;
    sorter_->add(std::move(key), content);
  }
  source_.reset();
}

void Rows::show() {
  shown_.clear();
  bool first = true;
  for (Item& item : items_) {
    if (!first) shown_ += kAttribute;
    first = false;
    shown_ += item.shown(source_->id(), source_->record());
  }
}

std::vector<Item> listedItems(Session& session, const ListCommand& list) {
  Dictionary dictionary(session, list.target.file);
  const std::vector<Word> names = list.items.empty() ? dictionary.listed() : list.items;
  const bool namesId =
      std::any_of(names.begin(), names.end(), [](const Word& name) { return name.text == "@ID"; });
  std::vector<Item> items;
  if (list.ids && !namesId) items.push_back(dictionary.item({"@ID", 0}));
  for (const Word& name : names) items.push_back(dictionary.item(name));
  return items;
}

}  // namespace nox::agent
