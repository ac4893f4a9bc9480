// Transaction and XaBranch: work that is done as a whole or not at all.
//
//   Transaction work = connection.begin();
//   accounts.write("A", from);
//   accounts.write("B", to);
//   work.commit();                        // without it: rolled back
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nox/client/export.h"

namespace nox::client {

namespace detail {
class Link;
}

enum class Isolation { StoreDefault = 0, ReadCommitted = 2, RepeatableRead = 4, Serializable = 8 };

/// The connection's transaction, SQL and records alike; rolled back by the destructor unless it was
/// committed. A roll-back that fails there makes the connection unusable. Moves only. Belongs to
/// its connection: use it in the thread that uses the connection.
class NOX_CLIENT_EXPORT Transaction {
public:
  Transaction(Transaction&& other) noexcept;
  Transaction& operator=(Transaction&& other) noexcept;
  ~Transaction();

  /// A commit that is refused has rolled back. One whose outcome is Unknown may have committed.
  void commit();
  void rollback();
  /// Whether it is neither committed nor rolled back.
  bool isOpen() const { return link_ != nullptr; }

private:
  friend class Connection;
  explicit Transaction(std::shared_ptr<detail::Link> link);
  void giveUp() noexcept;

  std::shared_ptr<detail::Link> link_;  // null once it is over
};

/// Names a branch of a distributed transaction: a format and 1 to 128 bytes of text.
struct NOX_CLIENT_EXPORT Xid {
  std::int32_t format = 0;
  std::string id;

  /// The usual form of the text: both parts in hexadecimal, a colon between them. Error 22023 when
  /// that takes more than 128 bytes, which is 63 bytes for both together.
  static Xid of(std::int32_t format, std::string_view globalId, std::string_view branch);

  friend bool operator==(const Xid& a, const Xid& b) {
    return a.format == b.format && a.id == b.id;
  }
  friend bool operator!=(const Xid& a, const Xid& b) { return !(a == b); }
};

/// A branch that the server knows, as `xa list` shows it.
struct XaBranchInfo {
  Xid xid;
  std::string state;  ///< "started", "ended" or "prepared"
};

/// One branch, as its transaction manager drives it. The destructor rolls back what is not
/// prepared; a prepared branch stays until somebody commits it or rolls it back, from any
/// connection. Moves only. Belongs to its connection: use it in the thread that uses the
/// connection.
class NOX_CLIENT_EXPORT XaBranch {
public:
  enum class State { Started, Ended, Prepared, Finished };

  XaBranch(XaBranch&& other) noexcept;
  XaBranch& operator=(XaBranch&& other) noexcept;
  ~XaBranch();

  const Xid& xid() const { return xid_; }
  State state() const { return state_; }

  /// What follows on the connection is no longer part of the branch.
  void end();
  /// Once it returns the branch survives a crash of the server.
  void prepare();
  /// Of a prepared branch, or of an ended one in a single phase.
  void commit();
  void rollback();

private:
  friend class Connection;
  XaBranch(std::shared_ptr<detail::Link> link, Xid xid, State state);
  void giveUp() noexcept;

  std::shared_ptr<detail::Link> link_;
  Xid xid_;
  State state_;
};

}  // namespace nox::client
