// Walks a selection page by page, with the records, changes some of them and commits each page:
//
//   mark_large URI KIB
//
// adds the value "large" to attribute 9 of every package of at least that size.
#include <exception>
#include <iostream>
#include <string>

#include <nox/client/client.h>

int main(int argc, char** argv) try {
  if (argc != 3) throw std::invalid_argument("usage: mark_large URI KIB");
  constexpr std::size_t kSize = 5;
  constexpr std::size_t kTags = 9;
  const long long least = std::stoll(argv[2]);

  nox::client::Connection connection = nox::client::Connection::open(argv[1]);
  nox::client::SelectList packages =
      connection.select("SSELECT PACKAGES").withRecords().pageSize(200);
  int pages = 0;
  int changed = 0;
  while (packages.nextPage()) {
    ++pages;
    for (nox::client::SelectList::Entry& package : packages.page()) {
      if (package.record()[kSize].empty() || package.record()[kSize].toInt64() < least) continue;
      nox::client::Record record = package.takeRecord();
      if (record.value(kTags).find("large") == 0) record.append(kTags, "large");
      package.replace(std::move(record));
      ++changed;
    }
    packages.commit();
  }
  std::cout << changed << " packages marked as large, on " << pages << " pages\n";
} catch (const std::exception& error) {
  std::cerr << "mark_large: " << error.what() << "\n";
  return 1;
}
