// What makes new objects of a class when there is no memory for them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <new>

#include "nox/auth/authentication.h"
#include "nox/protocol/client_object_factory.h"
#include "nox/protocol/remote/remote_object_factory.h"
#include "nox/protocol/remote/select_list_requests.h"
#include "nox/protocol/sql/sql_object_factory.h"

namespace {

constexpr int kPlenty = -1;
thread_local int allocationsLeft = kPlenty;

}  // namespace

// These pair up with malloc and free; the library's objects come through them as well. Out of line,
// or g++ takes the pairs for mismatched ones.
[[gnu::noinline]] void* operator new(std::size_t n) {
  if (allocationsLeft == 0) throw std::bad_alloc();
  if (allocationsLeft > 0) --allocationsLeft;
  if (void* block = std::malloc(n == 0 ? 1 : n)) return block;
  throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t /*n*/) noexcept {
  std::free(block);
}

namespace nox {
namespace {

template <class T>
class Prototype : public testing::Test {};

using Makers =
    testing::Types<noxp::remote::SelectListFetchRequestProt, noxp::remote::RemoteObjectFactory,
                   noxp::sql::SQLObjectFactory, noxp::auth::AuthObjectFactory, ClientObjectFactory>;
TYPED_TEST_SUITE(Prototype, Makers);

// Wherever it is that memory runs out, nothing is thrown and nothing is lost.
TYPED_TEST(Prototype, AnswersNullWhenMemoryRunsOut) {
  TypeParam prototype;
  std::unique_ptr<Serializable> made;
  int failures = 0;
  for (int enough = 0; !made; ++enough) {
    allocationsLeft = enough;
    made.reset(prototype.create());
    allocationsLeft = kPlenty;
    if (!made) ++failures;
  }
  EXPECT_GT(failures, 1);
  EXPECT_EQ(made->getType(), prototype.getType());
}

}  // namespace
}  // namespace nox
