#include "nox/core/object_factory.h"

#include <gtest/gtest.h>

#include <memory>

#include "nox/core/exceptions.h"
#include "nox/core/memory_streams.h"
#include "tests/core/expect_logged.h"
#include "tests/core/samples.h"
#include "tests/support/caught.h"
#include "tests/support/frames.h"

#include "tests/support/recording_archive.h"

namespace nox {
namespace {

using test::Bare;
using test::caught;
using test::LogCapture;

class EmptyFactory : public ObjectFactory {
public:
  Serializable* create() override { return new EmptyFactory; }
};

// Counts its living instances.
class TrackedPrototype : public Bare<20> {
public:
  TrackedPrototype() { ++alive; }
  TrackedPrototype(const TrackedPrototype&) = delete;
  TrackedPrototype& operator=(const TrackedPrototype&) = delete;
  ~TrackedPrototype() override { --alive; }
  Serializable* create() override { return new TrackedPrototype; }
  static inline int alive = 0;
};

class Barren : public Bare<21> {
public:
  Serializable* create() override { return nullptr; }
};

// A service's factory with two classes of one code.
class TwoOfACode : public ObjectFactory {
public:
  TwoOfACode() {
    add<TrackedPrototype>("first");
    add<TrackedPrototype>("second");
  }
  Serializable* create() override { return new TwoOfACode; }
};

// A class of a code of its instance's choice.
class Coded : public Bare<0> {
public:
  explicit Coded(int code) : code_(code) {}
  Serializable* create() override { return new Coded(code_); }
  int getType() override { return code_; }

private:
  int code_;
};

TEST(ObjectFactory, CreatesANewObjectOfTheRegisteredClassEachTime) {
  EmptyFactory factory;
  auto* const prototype = new test::Pair(5, "ab");
  factory.registerType(prototype, "Pair");
  const std::unique_ptr<Serializable> first(factory.createObject(3));
  const std::unique_ptr<Serializable> second(factory.createObject(3));
  ASSERT_TRUE(dynamic_cast<test::Pair*>(first.get()));
  ASSERT_TRUE(dynamic_cast<test::Pair*>(second.get()));
  EXPECT_NE(first, second);
  EXPECT_NE(first.get(), prototype);
  EXPECT_EQ(dynamic_cast<test::Pair*>(first.get())->text_, "");  // default-constructed, not copied
}

TEST(ObjectFactory, SaysWhatItCreates) {
  const LogCapture log;
  EmptyFactory factory;
  factory.registerType(new test::Pair, "Pair");
  EXPECT_LOGGED(log, debug, "ObjectFactory::registerType: (3) Pair");
  const std::unique_ptr<Serializable> object(factory.createObject(3));
  EXPECT_LOGGED(log, debug, "ObjectFactory::createObject: creating Pair(3), version: 0");
}

TEST(ObjectFactory, RefusesCodesOutsideItsTable) {
  EmptyFactory factory;
  for (const int code : {-1, 1000, 2147483647, -2147483647 - 1}) {
    const LogCapture log;
    const auto error = caught<UnknownType>([&] { factory.createObject(code); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getTypeCode(), code);
    EXPECT_LOGGED(log, error,
                  "ObjectFactory::createObject: invalid value: type = " + std::to_string(code));
  }
}

TEST(ObjectFactory, RefusesCodesWithoutAClass) {
  EmptyFactory factory;
  for (const int code : {0, 1, 999}) {
    const LogCapture log;
    const auto error = caught<UnknownType>([&] { factory.createObject(code); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getTypeCode(), code);
    EXPECT_LOGGED(log, error,
                  "ObjectFactory::createObject: type " + std::to_string(code) + " not registered.");
  }
}

TEST(ObjectFactory, TreatsAClassThatMakesNoObjectAsUnregistered) {
  EmptyFactory factory;
  factory.registerType(new Barren, "Barren");
  const LogCapture log;
  const auto error = caught<UnknownType>([&] { factory.createObject(21); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getTypeCode(), 21);
  EXPECT_LOGGED(log, error, "ObjectFactory::createObject: type 21 not registered.");
}

TEST(ObjectFactory, TakesTheFirstAndTheLastCode) {
  EmptyFactory factory;
  factory.registerType(new Coded(0), "zero");
  factory.registerType(new Coded(999), "last");
  EXPECT_EQ(std::unique_ptr<Serializable>(factory.createObject(0))->getType(), 0);
  EXPECT_EQ(std::unique_ptr<Serializable>(factory.createObject(999))->getType(), 999);
  EXPECT_STREQ(factory.getTypeName(999), "last");
}

TEST(ObjectFactory, KeepsTheFirstOfTwoClassesOfOneCode) {
  EmptyFactory factory;
  factory.registerType(new test::Pair, "Pair");
  Bare<3> rejected;  // stays the caller's
  const LogCapture log;
  const auto error = caught<DuplicateType>([&] { factory.registerType(&rejected, "Other"); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getTypeCode(), 3);
  EXPECT_LOGGED(log, error, "ObjectFactory::registerType duplicate type 3");
  EXPECT_STREQ(factory.getTypeName(3), "Pair");
  const std::unique_ptr<Serializable> object(factory.createObject(3));
  EXPECT_TRUE(dynamic_cast<test::Pair*>(object.get()));
}

TEST(ObjectFactory, RegistersNothingOutsideItsTable) {
  EmptyFactory factory;
  for (const int code : {-1, 1000, 2147483647, -2147483647 - 1}) {
    Coded prototype(code);
    const auto error = caught<UnknownType>([&] { factory.registerType(&prototype, "x"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getTypeCode(), code);
  }
}

TEST(ObjectFactory, RegistersNoNullPrototype) {
  EmptyFactory factory;
  const auto error = caught<UnknownType>([&] { factory.registerType(nullptr, "x"); });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getTypeCode(), -1);
}

TEST(ObjectFactory, OwnsItsPrototypes) {
  {
    EmptyFactory factory;
    factory.registerType(new TrackedPrototype, "TrackedPrototype");
    EXPECT_EQ(TrackedPrototype::alive, 1);
  }
  EXPECT_EQ(TrackedPrototype::alive, 0);
}

TEST(ObjectFactory, LosesNothingWhenAServicesConstructorThrows) {
  const auto error = caught<DuplicateType>([] { TwoOfACode factory; });
  ASSERT_TRUE(error);
  EXPECT_EQ(error->getTypeCode(), 20);
  EXPECT_EQ(TrackedPrototype::alive, 0);
}

TEST(ObjectFactory, KnowsTheNamesItWasGiven) {
  static const char name[] = "Pair";
  EmptyFactory factory;
  factory.registerType(new test::Pair, name);
  EXPECT_EQ(factory.getTypeName(3), name);  // Deliberate: by address, not copied.
  EXPECT_EQ(factory.getTypeName(4), nullptr);
}

TEST(ObjectFactory, KnowsNoNamesOutsideItsTable) {
  EmptyFactory factory;
  for (const int code : {-1, 1000, 5000}) {
    const LogCapture log;
    EXPECT_EQ(factory.getTypeName(code), nullptr);
    EXPECT_LOGGED(log, error,
                  "ObjectFactory::getTypeName: invalid value: type = " + std::to_string(code));
  }
}

TEST(ObjectFactory, IsAnObjectOfTypeAndVersionZero) {
  EmptyFactory factory;
  EXPECT_EQ(factory.getType(), 0);
  EXPECT_EQ(factory.getVersion(), 0u);
  EXPECT_EQ(factory.getClassVersion(), 0);
}

TEST(ObjectFactory, WritesItsClassesInCodeOrderUnderTheirNames) {
  EmptyFactory factory;
  factory.registerType(new Coded(999), "last");
  factory.registerType(new test::Pair, "Pair");
  factory.registerType(new Coded(0), "zero");
  EXPECT_EQ(test::fieldsOf(factory),
            (std::vector<std::string>{"object zero=type 0 version 0", "end",
                                      "object Pair=type 3 version 0", "int -=0", "text -=", "end",
                                      "object last=type 999 version 0", "end"}));
}

TEST(ObjectFactory, WritesFreshObjectsSoThatPrototypesStayAsTheyAre) {
  EmptyFactory factory;
  auto* const prototype = new test::Text(NOXPString("prototype"));
  factory.registerType(prototype, "Text");
  EXPECT_EQ(test::fieldsOf(factory),
            (std::vector<std::string>{"object Text=type 4 version 0", "string -=", "end"}));
  EXPECT_EQ(prototype->text_.getType(), NOXPString::Narrow);
}

TEST(ObjectFactory, LetsNoStreamChangeItsPrototypes) {
  EmptyFactory factory;
  factory.registerType(new test::Pair, "Pair");
  test::RecordingReader reader;
  EXPECT_EQ(&factory.serialize(reader, 0), &reader);
  EXPECT_TRUE(reader.lines().empty());
}

TEST(ObjectFactory, CopiesHoldPrototypesOfTheirOwn) {
  EmptyFactory copy;
  {
    EmptyFactory factory;
    factory.registerType(new TrackedPrototype, "TrackedPrototype");
    const EmptyFactory other(factory);
    EXPECT_EQ(TrackedPrototype::alive, 2);
    copy = other;
    EXPECT_EQ(TrackedPrototype::alive, 3);
  }
  EXPECT_EQ(TrackedPrototype::alive, 1);
  EXPECT_STREQ(copy.getTypeName(20), "TrackedPrototype");
  EXPECT_TRUE(std::unique_ptr<Serializable>(copy.createObject(20)));
}

TEST(ObjectFactory, AssignmentReplacesWhatWasRegistered) {
  EmptyFactory one;
  one.registerType(new TrackedPrototype, "TrackedPrototype");
  EmptyFactory two;
  two.registerType(new test::Pair, "Pair");
  one = two;
  EXPECT_EQ(TrackedPrototype::alive, 0);
  EXPECT_EQ(one.getTypeName(20), nullptr);
  EXPECT_STREQ(one.getTypeName(3), "Pair");
  auto& same = one;
  one = same;
  EXPECT_STREQ(one.getTypeName(3), "Pair");
  EXPECT_TRUE(std::unique_ptr<Serializable>(one.createObject(3)));
}

TEST(ObjectFactory, MovingLeavesTheSourceEmpty) {
  EmptyFactory source;
  source.registerType(new TrackedPrototype, "TrackedPrototype");
  EmptyFactory target(std::move(source));
  EXPECT_EQ(TrackedPrototype::alive, 1);
  EXPECT_STREQ(target.getTypeName(20), "TrackedPrototype");
  EXPECT_EQ(source.getTypeName(20), nullptr);
  EXPECT_TRUE(caught<UnknownType>([&] { source.createObject(20); }));

  EmptyFactory assigned;
  assigned = std::move(target);
  EXPECT_TRUE(std::unique_ptr<Serializable>(assigned.createObject(20)));
  EXPECT_EQ(target.getTypeName(20), nullptr);
}

TEST(ObjectFactory, DumpsEveryClassAsXmlInCodeOrder) {
  EmptyFactory factory;
  factory.registerType(new Coded(999), "last");
  factory.registerType(new test::Text(NOXPString("prototype")), "Text");
  testing::internal::CaptureStderr();
  factory.dump();
  const std::string shown = testing::internal::GetCapturedStderr();
  const std::size_t text = shown.find("Text");
  const std::size_t last = shown.find("last");
  ASSERT_NE(text, std::string::npos) << shown;
  ASSERT_NE(last, std::string::npos) << shown;
  EXPECT_LT(text, last);
  EXPECT_EQ(shown.find("prototype"), std::string::npos) << shown;
  EXPECT_EQ(shown.back(), '\n');
}

}  // namespace
}  // namespace nox
