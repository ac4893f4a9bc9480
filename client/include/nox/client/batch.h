// Batch: many requests sent together, many answers read together.
//
//   Batch batch(connection);
//   for (const auto& [id, record] : people) batch.write("PERSON", id, record);
//   for (const Batch::Result& result : batch.run()) if (!result.ok()) ...
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "nox/client/error.h"
#include "nox/client/export.h"
#include "nox/client/file.h"
#include "nox/client/record.h"
#include "nox/client/value.h"

namespace nox::client {

class Connection;
class Statement;

/// Requests are gathered in memory; run() sends them and reads as many answers. Each has its own
/// outcome: one that fails does not hold up those behind it, which the server does all the same.
/// Moves only. Belongs to its connection: use it in the thread that uses the connection.
class NOX_CLIENT_EXPORT Batch {
public:
  struct Result {
    Status status = Status::Done;
    Record record;               ///< of a read
    std::int64_t changes = 0;    ///< of an SQL statement
    std::optional<Error> error;  ///< absent when the server answered without one

    /// Whether it was done: no error, and Status::Done.
    bool ok() const { return !error && status == Status::Done; }
  };

  explicit Batch(Connection& connection);
  Batch(Batch&& other) noexcept;
  Batch& operator=(Batch&& other) noexcept;
  ~Batch();

  // Each returns the number of its result, from 0. An argument that cannot travel throws and adds
  // nothing.
  std::size_t read(std::string_view file, std::string_view id);
  std::size_t read(std::string_view file, std::string_view id, Lock lock, Wait wait = Wait::Yes);
  std::size_t write(std::string_view file, std::string_view id, const Record& record);
  std::size_t writeNew(std::string_view file, std::string_view id, const Record& record);
  std::size_t remove(std::string_view file, std::string_view id);
  std::size_t exists(std::string_view file, std::string_view id);
  std::size_t release(std::string_view file, std::string_view id);
  /// A prepared statement that answers no rows, with values of its own. The statement must live
  /// until run() returns. Error 02001 when the number of values is wrong, 22023 for a statement of
  /// another connection.
  std::size_t update(Statement& statement, const std::vector<Value>& values);

  /// Results that run() will give.
  std::size_t size() const;
  /// Bytes that are gathered.
  std::size_t bytes() const;
  void clear();

  /// Sends everything and reads the answers, each within the connection's request timeout from the
  /// one before it; answers are read while requests are still being sent. Throws only when the
  /// connection is unusable before anything is sent. When it is lost on the way, the results say
  /// which requests were answered, which are Unknown and which were NotSent. The batch is empty
  /// afterwards.
  std::vector<Result> run();

private:
  struct NOX_CLIENT_HIDDEN State;
  std::unique_ptr<State> state_;
};

}  // namespace nox::client
