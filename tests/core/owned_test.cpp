#include "nox/core/owned.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/core/samples.h"

namespace nox {
namespace {

using test::Pair;

// Counts its living instances.
struct Counted {
  explicit Counted(int value = 0) : value(value) { ++alive; }
  Counted(const Counted& other) : value(other.value) { ++alive; }
  Counted& operator=(const Counted&) = default;
  ~Counted() { --alive; }
  int value;
  static inline int alive = 0;
};

std::string content(const NOXPBlob& blob) {
  return {reinterpret_cast<const char*>(blob.getBuf()), blob.length()};
}

const std::string kLong(2000, 'x');  // beyond every inline store

TEST(Owned, StartsEmptyAndPresent) {
  const OwnedString text;
  const OwnedBlob blob;
  const Owned<Counted> object;
  ASSERT_TRUE(text);
  ASSERT_TRUE(blob);
  ASSERT_TRUE(object);
  EXPECT_EQ(text->getType(), NOXPString::Empty);
  EXPECT_EQ(blob->length(), 0u);
  EXPECT_EQ(object->value, 0);
}

TEST(Owned, CanBeAbsent) {
  const OwnedString text = nullptr;
  const OwnedBlob blob = nullptr;
  const Owned<Counted> object = nullptr;
  EXPECT_FALSE(text);
  EXPECT_EQ(text.get(), nullptr);
  EXPECT_EQ(blob.get(), nullptr);
  EXPECT_EQ(object.get(), nullptr);
  EXPECT_EQ(Counted::alive, 0);
}

TEST(Owned, CopiesTextFromACString) {
  char text[] = "abc";
  const OwnedString field{CopiedString(text)};
  text[0] = 'X';
  EXPECT_STREQ(field->c_str(), "abc");
  EXPECT_EQ(field->getType(), NOXPString::Narrow);
}

TEST(Owned, CopiesTextFromAString) {
  NOXPString text("abc", true);
  const OwnedString field{CopiedString(&text)};
  text.append("d");
  EXPECT_NE(field.get(), &text);
  EXPECT_STREQ(field->c_str(), "abc");
  EXPECT_EQ(field->getType(), NOXPString::Utf8);
}

TEST(Owned, CopiesBytesFromACStringAndABlob) {
  EXPECT_EQ(content(*OwnedBlob(CopiedBlob("abc"))), "abc");
  NOXPBlob blob("a\0b", 3);
  const OwnedBlob field{CopiedBlob(&blob)};
  blob.clear();
  EXPECT_EQ(content(*field), std::string("a\0b", 3));
}

TEST(Owned, MakesNullTextAndBytesEmpty) {
  const OwnedString text{CopiedString(static_cast<const char*>(nullptr))};
  const OwnedString string{CopiedString(static_cast<const NOXPString*>(nullptr))};
  const OwnedBlob bytes{CopiedBlob(static_cast<const char*>(nullptr))};
  const OwnedBlob blob{CopiedBlob(static_cast<const NOXPBlob*>(nullptr))};
  ASSERT_TRUE(text && string && bytes && blob);
  EXPECT_EQ(text->length(), 0u);
  EXPECT_EQ(string->length(), 0u);
  EXPECT_EQ(bytes->length(), 0u);
  EXPECT_EQ(blob->length(), 0u);
}

TEST(Owned, CopiesOtherObjectsAndKeepsNullAbsent) {
  Counted object(5);
  {
    const Owned<Counted> field{Copied<Counted>(&object)};
    EXPECT_NE(field.get(), &object);
    EXPECT_EQ(field->value, 5);
    EXPECT_FALSE(Owned<Counted>(Copied<Counted>(nullptr)));
  }
  EXPECT_EQ(Counted::alive, 1);
}

TEST(Owned, TakesAnAdoptedObjectOver) {
  auto* const text = new NOXPString("abc");
  const OwnedString field{Adopted<NOXPString>(text)};
  EXPECT_EQ(field.get(), text);

  auto* const object = new Counted(5);
  {
    const Owned<Counted> other{Adopted<Counted>(object)};
    EXPECT_EQ(other.get(), object);
  }
  EXPECT_EQ(Counted::alive, 0);
  EXPECT_FALSE(OwnedBlob(Adopted<NOXPBlob>(nullptr)));
}

TEST(Owned, AnAdoptedArgumentThatNobodyTakesIsDeleted) {
  { const Adopted<Counted> argument(new Counted); }
  EXPECT_EQ(Counted::alive, 0);
}

TEST(Owned, CopiesDeeply) {
  const OwnedString text{CopiedString(kLong.c_str())};
  const OwnedString copy(text);
  EXPECT_NE(copy.get(), text.get());
  EXPECT_EQ(copy->length(), 2000u);

  OwnedBlob blob{CopiedBlob("abc")};
  OwnedBlob other;
  other = blob;
  blob->clear();
  EXPECT_EQ(content(*other), "abc");

  const OwnedString absent = nullptr;
  const OwnedString alsoAbsent(absent);
  EXPECT_FALSE(alsoAbsent);
  OwnedString present;
  present = absent;
  EXPECT_FALSE(present);
}

TEST(Owned, SurvivesAssignmentToItself) {
  OwnedString text{CopiedString(kLong.c_str())};
  auto& same = text;
  text = same;
  EXPECT_EQ(text->length(), 2000u);
}

TEST(Owned, TakesACopyOfItsOwnContent) {
  OwnedString text{CopiedString(kLong.c_str())};
  text.assign(CopiedString(text.get()));
  EXPECT_EQ(text->length(), 2000u);
  text.assign(CopiedString(text->c_str() + 1));
  EXPECT_EQ(text->length(), 1999u);

  OwnedBlob blob{CopiedBlob(kLong.c_str())};
  blob.assign(CopiedBlob(blob.get()));
  EXPECT_EQ(content(*blob), kLong);

  auto* const adopted = new NOXPString("abc");
  text.adopt(adopted);
  text.adopt(adopted);
  EXPECT_STREQ(text->c_str(), "abc");
}

TEST(Owned, ReplacesItsObject) {
  OwnedString text{CopiedString("old")};
  text.assign(CopiedString("new"));
  EXPECT_STREQ(text->c_str(), "new");
  text.emplaceEmpty();
  EXPECT_EQ(text->length(), 0u);
  text.reset();
  EXPECT_FALSE(text);
  text.adopt(new NOXPString("adopted"));
  EXPECT_STREQ(text->c_str(), "adopted");
  text.emplaceEmpty();
  EXPECT_EQ(text->length(), 0u);
  text.adopt(nullptr);
  EXPECT_FALSE(text);

  Owned<Counted> object;
  object.adopt(new Counted(6));
  EXPECT_EQ(Counted::alive, 1);
  EXPECT_EQ(object->value, 6);
}

TEST(MaybeOwned, StartsAbsent) {
  const MaybeOwned<Pair> field;
  EXPECT_FALSE(field);
  EXPECT_FALSE(field.owns());
  const MaybeOwned<Pair> null = nullptr;
  EXPECT_FALSE(null);
}

TEST(MaybeOwned, DeletesWhatItAdopted) {
  {
    const MaybeOwned<Counted> field{Adopted<Counted>(new Counted(5))};
    EXPECT_TRUE(field.owns());
    EXPECT_EQ((*field).value, 5);
  }
  EXPECT_EQ(Counted::alive, 0);
  EXPECT_FALSE(MaybeOwned<Counted>(Adopted<Counted>(nullptr)));
}

TEST(MaybeOwned, LeavesWhatItBorrowed) {
  Counted object(5);
  {
    const MaybeOwned<Counted> field{Borrowed<Counted>(&object)};
    EXPECT_EQ(field.get(), &object);
    EXPECT_FALSE(field.owns());
  }
  EXPECT_EQ(Counted::alive, 1);
}

TEST(MaybeOwned, CopiesDeeplyAndOwnsTheCopy) {
  Counted object(5);
  const MaybeOwned<Counted> borrowed{Borrowed<Counted>(&object)};
  MaybeOwned<Counted> copy(borrowed);
  EXPECT_NE(copy.get(), &object);
  EXPECT_EQ(copy->value, 5);
  EXPECT_TRUE(copy.owns());
  EXPECT_EQ(Counted::alive, 2);
  copy = copy;
  EXPECT_EQ(copy->value, 5);
  copy = MaybeOwned<Counted>();
  EXPECT_FALSE(copy);
  EXPECT_EQ(Counted::alive, 1);
}

TEST(MaybeOwned, MovesItsObject) {
  MaybeOwned<Counted> field{Adopted<Counted>(new Counted(5))};
  const Counted* const object = field.get();
  const MaybeOwned<Counted> moved(std::move(field));
  EXPECT_EQ(moved.get(), object);
  EXPECT_TRUE(moved.owns());
  EXPECT_FALSE(field);
  EXPECT_EQ(Counted::alive, 1);
}

TEST(MaybeOwned, HandsItsObjectOver) {
  MaybeOwned<Counted> owned{Adopted<Counted>(new Counted(5))};
  const std::unique_ptr<Counted> released(owned.release());
  EXPECT_EQ(released->value, 5);
  EXPECT_FALSE(owned);

  Counted object(6);
  MaybeOwned<Counted> borrowed{Borrowed<Counted>(&object)};
  EXPECT_EQ(borrowed.release(), &object);
  EXPECT_FALSE(borrowed);
}

TEST(MaybeOwned, MakesAnEmptyObjectOfItsOwn) {
  Counted object(6);
  MaybeOwned<Counted> field{Borrowed<Counted>(&object)};
  field.emplaceEmpty();
  EXPECT_TRUE(field.owns());
  EXPECT_EQ(field->value, 0);
  EXPECT_EQ(object.value, 6);
}

}  // namespace
}  // namespace nox
