#include "client/command/run/page_reader.h"

#include <utility>

namespace nox::command {

using client::SelectList;

PageReader::PageReader(SelectList list) : list_(std::move(list)), thread_([this] { fetchAll(); }) {}

PageReader::~PageReader() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    isOver_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

SelectList::Page PageReader::next() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return isReady_; });
  if (error_) std::rethrow_exception(error_);
  if (page_.empty()) return {};  // stays so
  isReady_ = false;
  SelectList::Page page = std::move(page_);
  lock.unlock();
  changed_.notify_all();
  return page;
}

void PageReader::fetchAll() {
  try {
    bool isThere = list_.firstPage();
    while (isThere) {
      if (!hand(std::move(list_.page()), nullptr)) return;
      isThere = list_.nextPage();
    }
    hand({}, nullptr);
  } catch (...) {
    hand({}, std::current_exception());
  }
}

bool PageReader::hand(SelectList::Page page, std::exception_ptr error) {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return !isReady_ || isOver_; });
  if (isOver_) return false;
  page_ = std::move(page);
  error_ = std::move(error);
  isReady_ = true;
  lock.unlock();
  changed_.notify_all();
  return true;
}

}  // namespace nox::command
