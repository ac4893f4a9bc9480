#include "nox/core/serializable.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <new>

#include "tests/core/samples.h"

namespace nox {
namespace {

using test::Bare;

TEST(Serializable, StartsWithoutVersionSizeAndProperties) {
  // On memory that is anything but zero: nothing of it may ever travel.
  alignas(Bare<2>) unsigned char store[sizeof(Bare<2>)];
  std::memset(store, 0xA5, sizeof store);
  auto* const object = new (store) Bare<2>;
  EXPECT_EQ(object->getClassVersion(), 0);
  EXPECT_EQ(object->getPacketSize(), 0u);
  EXPECT_EQ(object->getProperties(), nullptr);
  object->~Bare<2>();
}

TEST(Serializable, KnowsVersionZeroUnlessItsClassSaysMore) {
  EXPECT_EQ(Bare<2>().getVersion(), 0u);
}

TEST(Serializable, KeepsItsVersionApartFromItsClassVersion) {
  class Second : public Bare<2> {
  public:
    unsigned int getVersion() override { return 2; }
  };
  // Deliberate: nothing copies one to the other.
  Second object;
  EXPECT_EQ(object.getVersion(), 2u);
  EXPECT_EQ(object.getClassVersion(), 0);
  object.setClassVersion(-1);
  EXPECT_EQ(object.getClassVersion(), -1);
  EXPECT_EQ(object.getVersion(), 2u);
}

TEST(Serializable, CopiesShareTheProperties) {
  Serializable::properties_t properties;
  properties.compress = true;
  properties.compressThreshold = 100;
  Bare<2> object;
  object.setClassVersion(3);
  object.setPacketSize(std::uint64_t{1} << 40);
  object.setProperties(&properties);

  const Bare<2> copy(object);
  EXPECT_EQ(copy.getClassVersion(), 3);
  EXPECT_EQ(copy.getPacketSize(), std::uint64_t{1} << 40);
  EXPECT_EQ(copy.getProperties(), &properties);

  Bare<2> assigned;
  assigned = object;
  EXPECT_EQ(assigned.getClassVersion(), 3);
  EXPECT_EQ(assigned.getPacketSize(), std::uint64_t{1} << 40);
  EXPECT_EQ(assigned.getProperties(), &properties);
}

TEST(Serializable, NeverFreesItsProperties) {
  const auto properties = std::make_unique<Serializable::properties_t>();
  { Bare<2>().setProperties(properties.get()); }
  EXPECT_FALSE(properties->compress);
  EXPECT_EQ(properties->compressThreshold, 0);
}

TEST(Serializable, IsDeletedThroughItsBase) {
  const std::unique_ptr<Serializable> object(new test::Pair(1, std::string(100, 'x')));
  EXPECT_EQ(object->getType(), 3);
}

}  // namespace
}  // namespace nox
