#include "nox/core/exceptions.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "nox/core/gzip_compressor.h"
#include "nox/core/serializable.h"

namespace nox {
namespace {

// Says which of a caller's four handlers received what `action` throws.
template <class Action>
std::string handlerOf(Action&& action) {
  try {
    action();
  } catch (NOXException* thrown) {
    const std::unique_ptr<NOXException> error(thrown);
    return std::string("pointer ") + error->what();
  } catch (const NOXException& error) {
    return std::string("reference ") + error.what();
  } catch (NONE* thrown) {
    const std::unique_ptr<NONE> marker(thrown);
    return "NONE";
  } catch (LAST* thrown) {
    const std::unique_ptr<LAST> marker(thrown);
    return "LAST";
  }
  return "nothing";
}

TEST(Exceptions, UnexpectedCharTellsBothBytesAndItsNameAlone) {
  const UnexpectedChar error(';', 's');
  EXPECT_STREQ(error.what(), "UnexpectedChar");
  EXPECT_EQ(error.getChar(), 59);
  EXPECT_EQ(error.getExpectedChar(), 115);
}

TEST(Exceptions, UnexpectedTypeTellsBothTypesAndItsNameAlone) {
  const UnexpectedType error(7, 8);
  EXPECT_STREQ(error.what(), "UnexpectedType");
  EXPECT_EQ(error.getActualType(), 7);
  EXPECT_EQ(error.getExpectedType(), 8);
}

TEST(Exceptions, UnknownTypeTellsTheCodeAndItsNameAlone) {
  const UnknownType error(-1);
  EXPECT_STREQ(error.what(), "UnknownType");
  EXPECT_EQ(error.getTypeCode(), -1);
}

TEST(Exceptions, DuplicateTypeTellsTheCodeAndItsNameAlone) {
  const DuplicateType error(999);
  EXPECT_STREQ(error.what(), "DuplicateType");
  EXPECT_EQ(error.getTypeCode(), 999);
}

TEST(Exceptions, BadTypeSaysItsName) { EXPECT_STREQ(BadType().what(), "BadType"); }

template <class E>
class ExceptionWithText : public testing::Test {};
using TextExceptions = testing::Types<NOXException, OpenFileError, CompressionError,
                                      IndexOutOfBound, AssertionFailure>;
TYPED_TEST_SUITE(ExceptionWithText, TextExceptions);

TYPED_TEST(ExceptionWithText, SaysTheTextItWasGiven) {
  const TypeParam error(std::string("x"));
  EXPECT_STREQ(error.what(), "x");
}

template <class E>
class AnyException : public testing::Test {};
using AllExceptions =
    testing::Types<NOXException, UnexpectedChar, UnexpectedType, UnknownType, DuplicateType,
                   BadType, OpenFileError, CompressionError, IndexOutOfBound, AssertionFailure>;
TYPED_TEST_SUITE(AnyException, AllExceptions);

TYPED_TEST(AnyException, IsACopyableNOXException) {
  static_assert(std::is_base_of_v<NOXException, TypeParam>);
  static_assert(std::is_base_of_v<std::runtime_error, TypeParam>);
  static_assert(std::is_copy_constructible_v<TypeParam>);
  static_assert(std::is_copy_assignable_v<TypeParam>);
  static_assert(std::has_virtual_destructor_v<TypeParam>);
}

TEST(Exceptions, CopyAssignmentTakesTheFieldsOver) {
  UnexpectedChar error(1, 2);
  error = UnexpectedChar(3, 4);
  EXPECT_EQ(error.getChar(), 3);
  EXPECT_EQ(error.getExpectedChar(), 4);

  UnexpectedType type(1, 2);
  type = UnexpectedType(3, 4);
  EXPECT_EQ(type.getActualType(), 3);
  EXPECT_EQ(type.getExpectedType(), 4);

  CompressionError text("old");
  text = CompressionError("new");
  EXPECT_STREQ(text.what(), "new");
}

TEST(Exceptions, PointersReachOnlyTheHandlerForPointers) {
  EXPECT_EQ(handlerOf([] { throw new UnexpectedChar('a', 'b'); }), "pointer UnexpectedChar");
  EXPECT_EQ(handlerOf([] { throw new UnexpectedType(1, 2); }), "pointer UnexpectedType");
  EXPECT_EQ(handlerOf([] { throw new UnknownType(1); }), "pointer UnknownType");
  EXPECT_EQ(handlerOf([] { throw new DuplicateType(1); }), "pointer DuplicateType");
  EXPECT_EQ(handlerOf([] { throw new AssertionFailure("n == 2"); }), "pointer n == 2");
}

TEST(Exceptions, ValuesReachOnlyTheHandlerForReferences) {
  EXPECT_EQ(handlerOf([] { throw CompressionError("x"); }), "reference x");
  EXPECT_EQ(handlerOf([] { throw IndexOutOfBound("y"); }), "reference y");
}

TEST(Exceptions, MarkersAreExceptionsOfTheirOwn) {
  EXPECT_EQ(handlerOf([] { throw new Serializable::NONE; }), "NONE");
  EXPECT_EQ(handlerOf([] { throw new Serializable::LAST; }), "LAST");
  static_assert(std::is_same_v<NONE, Serializable::NONE>);
  static_assert(std::is_same_v<LAST, Serializable::LAST>);
  static_assert(!std::is_base_of_v<std::exception, NONE>);
  static_assert(!std::is_base_of_v<std::exception, LAST>);
}

TEST(Exceptions, TheCompressorsErrorsAreNotNOXExceptions) {
  static_assert(!std::is_base_of_v<NOXException, GZipCompressor::Error>);
  static_assert(std::is_base_of_v<std::exception, GZipCompressor::Error>);
}

}  // namespace
}  // namespace nox
