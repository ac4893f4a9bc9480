// What a session costs: connections are borrowed, and few are kept.
#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <vector>

#include "agent/store/sqlite/connection_pool.h"
#include "tests/agent/store/store_test.h"
#include "tests/support/allocation_counter.h"

namespace nox::agent::test {
namespace {

using ::testing::Eq;
using ::testing::Optional;

using StoreConnections = StoreTest;

std::size_t openDescriptors() {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    count += entry.exists() || entry.is_symlink() ? 1 : 0;
  }
  return count;
}

TEST_F(StoreConnections, AThousandSessionsAtRestHoldNone) {
  newSession()->write(kFile, "1", "Ann");
  ASSERT_THAT(read(*newSession(), "1"), Optional(Eq("Ann")));
  const std::size_t before = openDescriptors();
  std::vector<std::unique_ptr<StoreSession>> sessions;
  for (int i = 0; i < 1000; ++i) {
    sessions.push_back(newSession());
    EXPECT_THAT(read(*sessions.back(), "1"), Optional(Eq("Ann")));
  }
  EXPECT_EQ(store().connections().borrowed(), 0u);
  EXPECT_EQ(store().connections().idle(), 1u);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(StoreConnections, AThousandTransactionsThatOnlyReadHoldNone) {
  std::vector<std::unique_ptr<StoreSession>> sessions;
  for (int i = 0; i < 1000; ++i) {
    sessions.push_back(newSession());
    sessions.back()->begin(0);
    EXPECT_FALSE(sessions.back()->exists(kFile, "1"));
  }
  EXPECT_EQ(store().connections().borrowed(), 0u);
}

TEST_F(StoreConnections, FewAreKeptWhenManyWereNeeded) {
  const auto session = newSession();
  session->write(kFile, "1", "Ann");
  {
    std::vector<std::unique_ptr<RecordCursor>> cursors;
    for (int i = 0; i < 20; ++i) cursors.push_back(session->scan(kFile, true));
    EXPECT_EQ(store().connections().borrowed(), 20u);
  }
  EXPECT_EQ(store().connections().borrowed(), 0u);
  EXPECT_EQ(store().connections().idle(), ConnectionPool::kMostIdle);
}

TEST_F(StoreConnections, CopiesOfALeaseShareItsConnection) {
  ConnectionPool& pool = store().connections();
  ConnectionLease one = pool.borrow(nullptr);
  ConnectionLease two = one;
  EXPECT_EQ(&*one, &*two);
  one = ConnectionLease();
  EXPECT_EQ(pool.borrowed(), 1u);
  two = ConnectionLease();
  EXPECT_EQ(pool.borrowed(), 0u);
}

TEST_F(StoreConnections, AConnectionComesBackWithoutATransaction) {
  ConnectionPool& pool = store().connections();
  SqliteConnection* used = nullptr;
  {
    const ConnectionLease lease = pool.borrow(nullptr);
    used = &*lease;
    lease->beginWriting(kNotAtAll);
  }
  const ConnectionLease again = pool.borrow(nullptr);
  EXPECT_EQ(&*again, used);
  EXPECT_FALSE(again->inTransaction());
}

TEST_F(StoreConnections, ReadingARecordAgainAllocatesNoMoreThanTheEnginesOwnCursor) {
  const FilePart file{"A.FILE.WITH.A.NAME.THAT.DOES.NOT.FIT.INTO.A.STRING", Part::Data};
  const std::string id(100, 'i');
  const auto session = newSession();
  session->createFile(file.file);
  session->write(file, id, std::string(200, 'x'));
  NOXPBlob body;
  ASSERT_TRUE(session->read(file, id, body));
  const nox::test::AllocationScope allocations;
  ASSERT_TRUE(session->read(file, id, body));
  EXPECT_LE(allocations.count(), 2u);
  EXPECT_LE(allocations.bytes(), 1024u);
}

}  // namespace
}  // namespace nox::agent::test
