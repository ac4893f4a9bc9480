// PageReader: the pages of a select list, each fetched while the one before it is worked on.
#pragma once

#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

#include <nox/client/client.h>

namespace nox::command {

/// Fetches in a thread of its own, one page ahead. Nobody else uses the list's connection while it
/// lives.
class PageReader {
public:
  /// Walks the list from its first page.
  explicit PageReader(client::SelectList list);
  /// Waits for the page that is being fetched.
  ~PageReader();
  PageReader(const PageReader&) = delete;
  PageReader& operator=(const PageReader&) = delete;

  /// The next page; empty behind the last. Throws what fetching it has thrown.
  client::SelectList::Page next();

private:
  void fetchAll();
  /// False when nobody wants more.
  bool hand(client::SelectList::Page page, std::exception_ptr error);

  client::SelectList list_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isReady_ = false;  // a page, or an error
  bool isOver_ = false;
  client::SelectList::Page page_;
  std::exception_ptr error_;
  std::thread thread_;  // last: it uses the others
};

}  // namespace nox::command
