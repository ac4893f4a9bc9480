// The queries that a session has open: LIST and its kin, fetched row by row.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string_view>

#include <nox/nox.h>

namespace nox::agent {

class Session;

/// Ids count from 1, apart from those of lists and SQL statements. No request closes a query: where
/// there are kMostOpen, a new one takes the place of the one that was used longest ago.
class Queries {
public:
  static constexpr std::size_t kMostOpen = 256;

  explicit Queries(Session& session);
  ~Queries();

  /// Runs a LIST, SORT, SELECT or SSELECT and answers with a ToviResponseProt: the heading, and a
  /// list whose id is the query's, its keys the first chunk. Failure IE/011.
  std::unique_ptr<noxp::remote::ToviResponseProt> execute(std::string_view query);
  /// Up to `rows` rows (below 1: the session's fetch size), one parameter each; status 1 with the
  /// rest, or nothing, at the end, and from then on. Failure 26/000; any other closes the query.
  std::unique_ptr<noxp::remote::StatementFetchResponseProt> fetch(int id, int rows);
  void closeAll();
  std::size_t size() const { return open_.size(); }

private:
  struct Query;

  int newId();

  Session& session_;
  std::map<int, std::unique_ptr<Query>> open_;
  int lastId_ = 0;
  std::uint64_t uses_ = 0;
};

}  // namespace nox::agent
