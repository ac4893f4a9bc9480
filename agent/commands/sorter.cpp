#include "agent/commands/sorter.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>

#include "agent/failure.h"

namespace nox::agent {

namespace {

/// What an entry costs besides its bytes.
constexpr std::size_t kOverhead = 96;
constexpr std::size_t kSmallestBuffer = 4u * 1024;
constexpr std::size_t kLargestBuffer = 256u * 1024;

[[noreturn]] void fail(const char* what) {
  const std::string reason = std::generic_category().message(errno);
  throw Failure("IE", "011", std::string("the temporary file of a sort: ") + what + ": " + reason);
}

void appendLength(std::string& to, std::size_t length) {
  const auto number = static_cast<std::uint32_t>(length);
  char bytes[sizeof number];
  std::memcpy(bytes, &number, sizeof number);
  to.append(bytes, sizeof bytes);
}

std::size_t lengthAt(const char* bytes) {
  std::uint32_t number = 0;
  std::memcpy(&number, bytes, sizeof number);
  return number;
}

}  // namespace

/// Written from front to back, then read anywhere.
class Sorter::File {
public:
  File() : file_(std::tmpfile(), &std::fclose) {
    if (!file_) fail("it cannot be made");
  }
  std::uint64_t size() const { return size_; }
  void append(std::string_view bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) {
      fail("it cannot be written");
    }
    size_ += bytes.size();
  }
  void finish() {
    if (std::fflush(file_.get()) != 0) fail("it cannot be written");
  }
  void read(std::uint64_t from, char* to, std::size_t length) {
    if (fseeko(file_.get(), static_cast<off_t>(from), SEEK_SET) != 0 ||
        std::fread(to, 1, length, file_.get()) != length) {
      fail("it cannot be read");
    }
  }

private:
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
  std::uint64_t size_ = 0;
};

/// A part of the file, read entry by entry through a buffer of its own.
class Sorter::Run {
public:
  Run(std::uint64_t begin, std::uint64_t end) : at_(begin), end_(end) {}

  void setBuffer(std::size_t size) { bufferSize_ = size; }
  bool next(File& file) {
    constexpr std::size_t kHead = 2 * sizeof(std::uint32_t);
    buffer_.erase(0, entry_);
    entry_ = 0;
    if (buffer_.empty() && at_ == end_) return false;
    fill(file, kHead);
    key_ = lengthAt(buffer_.data());
    content_ = lengthAt(buffer_.data() + sizeof(std::uint32_t));
    fill(file, kHead + key_ + content_);
    entry_ = kHead + key_ + content_;
    return true;
  }
  // Of the entry that was read last.
  std::string_view key() const { return {buffer_.data() + entry_ - content_ - key_, key_}; }
  std::string_view content() const { return {buffer_.data() + entry_ - content_, content_}; }

private:
  void fill(File& file, std::size_t wanted) {
    if (buffer_.size() >= wanted) return;
    const std::size_t have = buffer_.size();
    const std::size_t more = static_cast<std::size_t>(std::min<std::uint64_t>(
        std::max(wanted - have, bufferSize_ - std::min(have, bufferSize_)), end_ - at_));
    buffer_.resize(have + more);
    file.read(at_, &buffer_[have], more);
    at_ += more;
  }

  std::uint64_t at_;  // what was read into the buffer ends here
  std::uint64_t end_;
  std::size_t bufferSize_ = kSmallestBuffer;
  std::string buffer_;
  std::size_t entry_ = 0;  // its bytes at the front of the buffer
  std::size_t key_ = 0;
  std::size_t content_ = 0;
};

Sorter::Sorter(std::size_t memory) : memory_(memory) {}
Sorter::~Sorter() = default;

std::size_t Sorter::runs() const { return runs_.size(); }

void Sorter::add(std::string key, std::string_view content) {
  used_ += key.size() + content.size() + kOverhead;
  entries_.push_back({std::move(key), std::string(content)});
  if (used_ > memory_) spill();
}

void Sorter::sortEntries() {
  std::stable_sort(entries_.begin(), entries_.end(),
                   [](const Entry& a, const Entry& b) { return a.key < b.key; });
}

void Sorter::spill() {
  sortEntries();
  if (!file_) file_ = std::make_unique<File>();
  const std::uint64_t begin = file_->size();
  std::string head;
  for (const Entry& entry : entries_) {
    head.clear();
    appendLength(head, entry.key.size());
    appendLength(head, entry.content.size());
    file_->append(head);
    file_->append(entry.key);
    file_->append(entry.content);
  }
  runs_.emplace_back(begin, file_->size());
  entries_.clear();
  used_ = 0;
}

void Sorter::startMerge() {
  started_ = true;
  if (runs_.empty()) return sortEntries();
  if (!entries_.empty()) spill();
  entries_.shrink_to_fit();
  file_->finish();
  const std::size_t buffer = std::clamp(memory_ / runs_.size(), kSmallestBuffer, kLargestBuffer);
  for (std::size_t run = 0; run < runs_.size(); ++run) {
    runs_[run].setBuffer(buffer);
    if (runs_[run].next(*file_)) heap_.push_back(run);
  }
  merging_ = true;
}

bool Sorter::next() {
  const bool first = !started_;
  if (first) startMerge();
  if (!merging_) {
    if (next_ == entries_.size()) return false;
    content_ = entries_[next_++].content;
    return true;
  }
  // Runs with the same key come in their order, so that the whole is stable.
  const auto later = [&](std::size_t a, std::size_t b) {
    const int order = runs_[a].key().compare(runs_[b].key());
    return order != 0 ? order > 0 : a > b;
  };
  if (first) {
    std::make_heap(heap_.begin(), heap_.end(), later);
  } else if (!heap_.empty()) {
    // The run that gave the last entry moves on.
    std::pop_heap(heap_.begin(), heap_.end(), later);
    if (runs_[heap_.back()].next(*file_)) {
      std::push_heap(heap_.begin(), heap_.end(), later);
    } else {
      heap_.pop_back();
    }
  }
  if (heap_.empty()) return false;
  content_ = runs_[heap_.front()].content();
  return true;
}

}  // namespace nox::agent
