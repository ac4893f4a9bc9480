// Commands and subroutines of the real noxd.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/client/wire/noxd_session.h"

namespace nox::client {
namespace {

using test::errorOf;
using testing::ElementsAre;
using testing::HasSubstr;

class NoxdCommands : public test::NoxdSession {
protected:
  void fill() {
    File dictionary = ann_.file("DICT " + fileName());
    dictionary.write("NAME", Record{"D", "1", "", "Name", "10L", "S"});
    dictionary.write("BORN", Record{"D", "2", "DI", "Born", "10R", "S"});
    File people = ann_.file(fileName());
    people.write("1", Record{"Ann", "0"});
    people.write("2", Record{"Bob", "366"});
  }
  void catalog(const std::string& name, const std::string& source) {
    static_cast<void>(errorOf([&] { ann_.execute("CREATE-FILE NOX.SUBS"); }));
    ann_.file("NOX.SUBS").write(name, Record(source));
  }
};

TEST_F(NoxdCommands, PrintLists) {
  fill();
  const CommandResult result = ann_.execute("SORT " + fileName() + " NAME BORN");
  EXPECT_EQ(result.code(), 0);
  EXPECT_EQ(result.items(), 2);
  EXPECT_THAT(result.text(), HasSubstr("1967-12-31"));
  EXPECT_THAT(result.text(), HasSubstr("2 records listed"));
}

TEST_F(NoxdCommands, ListAsRows) {
  fill();
  Listing listing = ann_.listing("SORT " + fileName() + " NAME BORN").fetchSize(1);
  EXPECT_EQ(listing.heading().value(listing.heading().count()), "Born");
  std::vector<std::string> born;
  for (const Record& row : listing) born.push_back(row[row.count()].str());
  EXPECT_THAT(born, ElementsAre("1967-12-31", "1968-12-31"));
}

TEST_F(NoxdCommands, ThatAreNotUnderstoodAreRefused) {
  EXPECT_EQ(errorOf([&] { ann_.execute("FROBNICATE"); }), "IE011 Rejected");
  EXPECT_EQ(errorOf([&] { ann_.listing("COUNT " + fileName()); }), "IE011 Rejected");
}

TEST_F(NoxdCommands, AskBeforeTheyDelete) {
  Conversation talk = ann_.converse("DELETE-FILE " + fileName());
  ASSERT_TRUE(talk.isWaiting());
  EXPECT_FALSE(talk.prompt().empty());
  EXPECT_FALSE(talk.hidden());
  talk.answer("N");
  EXPECT_FALSE(talk.isWaiting());
  EXPECT_EQ(errorOf([&] { ann_.file(fileName()); }), "no error");
  Conversation again = ann_.converse("DELETE-FILE " + fileName());
  again.answer("Y");
  ASSERT_FALSE(again.isWaiting());
  EXPECT_EQ(errorOf([&] { ann_.file(fileName()); }), "IE005 Rejected");
}

TEST_F(NoxdCommands, AreAbandonedWhereNobodyAnswers) {
  EXPECT_EQ(errorOf([&] { ann_.execute("DELETE-FILE " + fileName()); }), "IE011 Rejected");
  EXPECT_EQ(errorOf([&] { ann_.file(fileName()); }), "no error");
  { Conversation talk = ann_.converse("DELETE-FILE " + fileName()); }
  EXPECT_EQ(errorOf([&] { ann_.file(fileName()); }), "no error");
}

TEST_F(NoxdCommands, CallSubroutines) {
  catalog("DOUBLE", "args[1] = args[1] .. args[1]; args[2] = nil");
  const CallResult result = ann_.call("DOUBLE", {"ab", "gone"});
  EXPECT_FALSE(result.aborted);
  ASSERT_EQ(result.parameters.size(), 2u);
  EXPECT_EQ(result.parameters[0], Value("abab"));
  EXPECT_TRUE(result.parameters[1].isNull());
}

TEST_F(NoxdCommands, SeeSubroutinesAbortAndFail) {
  catalog("STOP", "nox.abort()");
  EXPECT_TRUE(ann_.call("STOP").aborted);
  catalog("FAIL", "error('on purpose')");
  EXPECT_EQ(errorOf([&] { ann_.call("FAIL"); }), "IE003 Rejected");
  EXPECT_EQ(errorOf([&] { ann_.call("NONE"); }), "IE004 Rejected");
}

TEST_F(NoxdCommands, TalkWithSubroutines) {
  catalog("HELLO",
          "nox.print('Who are you?') nox.print('Name?') args[1] = 'hello ' .. nox.input()");
  Conversation talk = ann_.subroutine("HELLO").start({""});
  ASSERT_TRUE(talk.isWaiting());
  EXPECT_EQ(talk.output(), Record({"Who are you?", "Name?"}));
  EXPECT_EQ(talk.prompt(), "Name?");
  EXPECT_FALSE(talk.hidden());
  talk.answer("Ünï");
  ASSERT_FALSE(talk.isWaiting());
  EXPECT_EQ(talk.call().parameters[0], Value("hello Ünï"));
}

TEST_F(NoxdCommands, SayThatAnAnswerMustBeHidden) {
  catalog("LOCKED", "nox.print('Password?') args[1] = nox.input(true)");
  Conversation talk = ann_.subroutine("LOCKED").start({""});
  EXPECT_TRUE(talk.hidden());
  talk.answer("sesame");
  EXPECT_EQ(talk.call().parameters[0], Value("sesame"));
}

TEST_F(NoxdCommands, SetNamedCommons) {
  catalog("SETIT", "nox.common['SPEED'] = '42'");
  ann_.call("SETIT");
  EXPECT_EQ(ann_.common("SPEED"), Record{"42"});
  EXPECT_TRUE(ann_.common("NEVER SET").empty());
}

}  // namespace
}  // namespace nox::client
