// What holds for every message, shown for every row of the table.
#include "tests/protocol/message_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifdef __GNUG__
#include <cxxabi.h>
#endif

#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "nox/core/exceptions.h"
#include "tests/support/caught.h"

namespace nox::test {
namespace {

using ::testing::UnorderedElementsAre;

const std::type_info& classOf(const Serializable& object) { return typeid(object); }

/// The message in `frame`, read by a factory that knows this class for its code.
std::unique_ptr<Serializable> readAsRow(const MessageRow& row, const std::string& frame) {
  EveryMessage factory(&row);
  return readFrame(frame, factory);
}

TEST(MessageTable, HasEveryTypeCodeThatTheLibraryNames) {
  std::ifstream header(NOX_TYPE_CODES);
  ASSERT_TRUE(header.is_open()) << NOX_TYPE_CODES;
  std::map<int, int> namesOfCode;
  const std::regex constant("constexpr int (\\w+) = ([0-9]+);.*");
  std::smatch match;
  for (std::string line; std::getline(header, line);) {
    if (std::regex_match(line, match, constant) && match[1] != "HTTPRequest") {
      ++namesOfCode[std::stoi(match[2])];
    }
  }
  std::map<int, int> classesOfCode;
  for (const MessageRow* row : allRows()) ++classesOfCode[row->code];
  --classesOfCode[313];  // the server's class and the client's
  EXPECT_EQ(classesOfCode, namesOfCode);
}

TEST(MessageTable, GivesEveryClassItsCode) {
  std::set<std::string> classNames;
  for (const MessageRow* row : allRows()) {
    SCOPED_TRACE(row->className);
    EXPECT_TRUE(classNames.insert(row->className).second) << "stands in the table twice";
    EXPECT_EQ(row->makeDefault()->getType(), row->code);
#ifdef __GNUG__
    const std::unique_ptr<char, void (*)(void*)> name(
        abi::__cxa_demangle(row->type->name(), nullptr, nullptr, nullptr), std::free);
    EXPECT_EQ(std::string(name.get()), row->className);
#endif
  }
}

TEST(MessageTable, HasEveryNameOfEveryFactory) {
  for (const Catalogue catalogue : kCatalogues) {
    SCOPED_TRACE(nameOf(catalogue));
    const std::unique_ptr<ObjectFactory> factory = factoryOf(catalogue);
    std::map<int, const MessageRow*> expected;
    for (const MessageRow* row : allRows()) {
      if (row->nameIn(catalogue)) expected[row->code] = row;
    }
    for (int code = 0; code < ObjectFactory::kCapacity; ++code) {
      SCOPED_TRACE(code);
      const auto found = expected.find(code);
      if (found == expected.end()) {
        EXPECT_EQ(factory->getTypeName(code), nullptr);
        continue;
      }
      const MessageRow& row = *found->second;
      EXPECT_STREQ(factory->getTypeName(code), row.nameIn(catalogue)->c_str());
      const std::unique_ptr<Serializable> created(factory->createObject(code));
      EXPECT_TRUE(classOf(*created) == *row.type) << row.className;
    }
  }
}

TEST(MessageTable, CreatesDefaultObjectsFromFilledOnes) {
  for (const MessageRow* row : allRows()) {
    SCOPED_TRACE(row->className);
    const Example example = row->example();
    const std::unique_ptr<Serializable> created(example.message->create());
    ASSERT_NE(created, nullptr);
    EXPECT_NE(created.get(), example.message.get());
    EXPECT_TRUE(classOf(*created) == *row->type);
    EXPECT_BYTES(frameOf(*created), frameOf(*row->makeDefault()));
  }
}

TEST(MessageTable, StartsEveryObjectWithVersionAndPacketSizeZero) {
  for (const MessageRow* row : allRows()) {
    SCOPED_TRACE(row->className);
    const std::unique_ptr<Serializable> object = row->makeDefault();
    EXPECT_EQ(object->getClassVersion(), 0);
    EXPECT_EQ(object->getPacketSize(), 0u);
    EXPECT_EQ(object->getProperties(), nullptr);
  }
}

TEST(MessageTable, ReadsDefaultObjectsBack) {
  for (const MessageRow* row : allRows()) {
    if (row->defaultReads == DefaultReads::notAtAll || row->defaultReads == DefaultReads::never) {
      continue;
    }
    for (const int version : row->versions) {
      SCOPED_TRACE(row->className + ", version " + std::to_string(version));
      const std::unique_ptr<Serializable> object = row->makeDefault();
      object->setClassVersion(version);
      const std::string frame = frameOf(*object);
      const std::unique_ptr<Serializable> read = readAsRow(*row, frame);
      ASSERT_NE(read, nullptr);
      EXPECT_TRUE(classOf(*read) == *row->type);
      EXPECT_EQ(read->getClassVersion(), version);
      EXPECT_EQ(read->getPacketSize(), frame.size() - 4);
      const std::string again = frameOf(*read);
      if (row->defaultReads == DefaultReads::asItIs) {
        EXPECT_BYTES(again, frame);
      } else {
        EXPECT_NE(again, frame) << "reads as it is";
        EXPECT_BYTES(frameOf(*readAsRow(*row, again)), again);
      }
    }
  }
}

TEST(MessageTable, RefusesToReadWhatCannotBeRead) {
  for (const MessageRow* row : allRows()) {
    SCOPED_TRACE(row->className);
    if (row->defaultReads == DefaultReads::notAtAll) {
      const std::string frame = frameOf(*row->makeDefault());
      EXPECT_NE(caught<UnexpectedChar>([&] { readAsRow(*row, frame); }), nullptr);
    } else if (row->defaultReads == DefaultReads::never) {
      const std::string frame = frameOf(*row->makeDefault());
      EXPECT_NE(caught<AssertionFailure>([&] { readAsRow(*row, frame); }), nullptr);
    }
  }
}

TEST(MessageTable, ReadsFilledObjectsBack) {
  for (const MessageRow* row : allRows()) {
    if (row->defaultReads == DefaultReads::never) continue;
    for (const int version : row->versions) {
      SCOPED_TRACE(row->className + ", version " + std::to_string(version));
      const std::string frame = frameOf(*row->example(version).message);
      const std::unique_ptr<Serializable> read = readAsRow(*row, frame);
      ASSERT_NE(read, nullptr);
      EXPECT_TRUE(classOf(*read) == *row->type);
      EXPECT_BYTES(frameOf(*read), frame);
    }
  }
}

TEST(MessageTable, CopiesDeeply) {
  for (const MessageRow* row : allRows()) {
    if (!row->expectCopies) continue;
    SCOPED_TRACE(row->className);
    row->expectCopies(*row->makeDefault());
    row->expectCopies(*row->example().message);
  }
}

TEST(MessageTable, NamesTheClassesThatDoNotCopyLikeTheOthers) {
  std::vector<std::string> others;
  for (const MessageRow* row : allRows()) {
    if (!row->expectCopies) others.push_back(row->shortName());
  }
  EXPECT_THAT(others, UnorderedElementsAre("SelectListProt", "SQLResultResponseProt",
                                           "WriteRecordRequestProt", "ResultSetProt", "RowProt",
                                           "ColumnMetaDataProt"));
}

TEST(MessageTable, SurvivesEveryDamageOfAnyFrame) {
  for (const MessageRow* row : allRows()) {
    EveryMessage everything(row);
    std::vector<std::string> frames = {frameOf(*row->makeDefault())};
    for (const int version : row->versions) {
      frames.push_back(frameOf(*row->example(version).message));
    }
    for (const std::string& frame : frames) {
      SCOPED_TRACE(row->className + " " + hex(frame));
      expectSurvivesDamage(frame, everything);
      for (const Catalogue catalogue : kCatalogues) {
        if (row->nameIn(catalogue)) expectSurvivesDamage(frame, *factoryOf(catalogue));
      }
    }
  }
}

}  // namespace
}  // namespace nox::test
