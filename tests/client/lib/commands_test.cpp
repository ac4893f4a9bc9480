// Commands, subroutines, and those that ask something first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "nox/client/conversation.h"
#include "tests/client/lib/recorder.h"

namespace nox::client {
namespace {

using noxp::InputOutputResponseProt;
using noxp::remote::DateTimeResponseProt;
using noxp::remote::ExecuteResponseProt;
using noxp::remote::SelectListProt;
using noxp::remote::StatementFetchResponseProt;
using noxp::remote::SubroutineResponseProt;
using noxp::remote::ToviResponseProt;
using testing::ElementsAre;

class Commands : public test::RecordedSession {
protected:
  void replyDone(const char* output, const char* setting) {
    NOXPBlob printed(output);
    NOXPBlob set(setting);
    reply<ExecuteResponseProt>(&printed, &set, nullptr);
  }
  void replyPrompt(int command, const char* text) {
    NOXPBlob output(text);
    reply<InputOutputResponseProt>(command, &output);
  }
  void replyReturned(int status, const std::vector<std::optional<std::string>>& values,
                     int type = 12) {
    noxp::ACEBinaryFormatParameterListProt list(static_cast<int>(values.size()));
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (values[i]) {
        list.setString(static_cast<int>(i), *values[i], type);
      } else {
        list.setNull(static_cast<int>(i), type);
      }
    }
    const noxp::ParameterListProt* const base = &list;
    reply<SubroutineResponseProt>(status, base);
  }
  static Error errorOf(const std::function<void()>& action) {
    try {
      action();
    } catch (const Error& error) {
      return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return Error("00000", "", Outcome::Unknown);
  }
};

TEST_F(Commands, GiveWhatTheyPrintedAndSet) {
  replyDone(
      "one\xFEtwo\xFE\xFE"
      "2 records listed",
      "0\xFE"
      "2");
  const CommandResult result = connection_.execute("LIST F");
  EXPECT_EQ(result.output.count(), 4u);
  EXPECT_EQ(result.text(), "one\ntwo\n\n2 records listed\n");
  EXPECT_EQ(result.code(), 0);
  EXPECT_EQ(result.items(), 2);
  EXPECT_FALSE(result.list);
  EXPECT_THAT(asked(), ElementsAre("Run LIST F list none v0"));
}

TEST_F(Commands, MayPrintNothing) {
  replyDone("", "");
  const CommandResult result = connection_.execute("CLEARSELECT");
  EXPECT_EQ(result.text(), "");
  EXPECT_EQ(result.items(), 0);
}

TEST_F(Commands, MayBeLongAndHaveMarks) {
  replyDone("", "0");
  const std::string command = "LIST F '" + std::string(100'000, 'x') + "\xFE'";
  connection_.execute(command);
  EXPECT_THAT(asked(), ElementsAre("Run " + command + " list none v0"));
}

TEST_F(Commands, AskAndAreAnswered) {
  replyPrompt(1, "About to delete OLD\xFESure?");
  Conversation talk = connection_.converse("DELETE-FILE OLD");
  ASSERT_TRUE(talk.isWaiting());
  EXPECT_EQ(talk.output().count(), 2u);
  EXPECT_EQ(talk.prompt(), "Sure?");
  EXPECT_FALSE(talk.hidden());
  EXPECT_THROW(talk.command(), std::logic_error);
  replyPrompt(2, "Password?");
  talk.answer("Y");
  ASSERT_TRUE(talk.isWaiting());
  EXPECT_EQ(talk.prompt(), "Password?");
  EXPECT_TRUE(talk.hidden());
  replyDone("gone", "0");
  talk.answer("geheim");
  EXPECT_FALSE(talk.isWaiting());
  EXPECT_FALSE(talk.hidden());
  EXPECT_EQ(talk.command().text(), "gone\n");
  EXPECT_THROW(talk.answer("more"), std::logic_error);
  EXPECT_THROW(talk.call(), std::logic_error);
  EXPECT_THAT(asked(), ElementsAre("Run DELETE-FILE OLD list none v0", "Input Y", "Input geheim"));
}

TEST_F(Commands, ThatAskNothingEndAtOnce) {
  replyDone("x", "0");
  Conversation talk = connection_.converse("WHO");
  EXPECT_FALSE(talk.isWaiting());
  EXPECT_EQ(talk.command().text(), "x\n");
}

TEST_F(Commands, ThatAskAreAbandonedWhereNobodyAnswers) {
  replyPrompt(1, "Sure?");
  reply<DateTimeResponseProt>(1, 2);
  const Error error = errorOf([&] { connection_.execute("DELETE-FILE OLD"); });
  EXPECT_EQ(error.sqlState(), sqlstate::kPrompts);
  EXPECT_EQ(error.outcome(), Outcome::Rejected);
  EXPECT_EQ(error.message(), "the command asks for input: Sure?");
  EXPECT_TRUE(connection_.isUsable());
  EXPECT_THAT(asked(), ElementsAre("Run DELETE-FILE OLD list none v0", "DateTime"));
}

TEST_F(Commands, AreAbandonedWithTheirConversation) {
  replyPrompt(1, "Sure?");
  { Conversation talk = connection_.converse("DELETE-FILE OLD"); }
  EXPECT_THAT(asked(), ElementsAre("Run DELETE-FILE OLD list none v0", "DateTime"));
}

TEST_F(Commands, AreAbandonedOnceWhereAnotherOneTakesTheirPlace) {
  replyPrompt(1, "Sure?");
  Conversation talk = connection_.converse("DELETE-FILE OLD");
  // The server gives the first up when it sees the second.
  replyPrompt(1, "Really?");
  talk = connection_.converse("CLEAR-FILE OLD");
  EXPECT_TRUE(talk.isWaiting());
  EXPECT_THAT(asked(),
              ElementsAre("Run DELETE-FILE OLD list none v0", "Run CLEAR-FILE OLD list none v0"))
      << "and would give the second up for whatever else it hears";
  replyDone("done", "0");
  talk.answer("Y");
  EXPECT_EQ(talk.command().text(), "done\n");

  replyPrompt(1, "Sure?");
  Conversation waiting = connection_.converse("DELETE-FILE NEW");
  asked();
  waiting = std::move(talk);
  EXPECT_THAT(asked(), ElementsAre("DateTime"));
}

TEST_F(Commands, FailWithTheirConversation) {
  replyPrompt(1, "Sure?");
  Conversation talk = connection_.converse("DELETE-FILE OLD");
  reply<ErrorResponseProt>(SQLExtError("IE", "011", "no prompt waits"));
  EXPECT_EQ(errorOf([&] { talk.answer("Y"); }).sqlState(), "IE011");
  EXPECT_FALSE(talk.isWaiting());
}

TEST_F(Commands, CallSubroutines) {
  replyReturned(0, {"out", std::nullopt});
  const CallResult result = connection_.call("TOTAL", {"in", 5, nullptr, Record{"a", "b"}});
  EXPECT_FALSE(result.aborted);
  EXPECT_THAT(result.parameters, ElementsAre(Value("out"), Value()));
  EXPECT_THAT(asked(), ElementsAre("Call TOTAL 12:in 4:5 12:null 2004:a\xFE"
                                   "b"));
}

TEST_F(Commands, SayThatASubroutineAborted) {
  replyReturned(1, {});
  EXPECT_TRUE(connection_.subroutine("TOTAL")().aborted);
}

TEST_F(Commands, GetBytesBackAsBytes) {
  replyReturned(0, {"\x01\x02"}, 2004);
  EXPECT_THAT(connection_.call("TOTAL", {Value::bytes("x")}).parameters,
              ElementsAre(Value::bytes("\x01\x02")));
}

TEST_F(Commands, TalkWithSubroutines) {
  replyPrompt(1, "Name?");
  Conversation talk = connection_.subroutine("HELLO").start({"x"});
  EXPECT_EQ(talk.prompt(), "Name?");
  replyReturned(0, {"hello Ann"});
  talk.answer("Ann");
  EXPECT_THAT(talk.call().parameters, ElementsAre(Value("hello Ann")));
  EXPECT_THROW(talk.command(), std::logic_error);
}

TEST_F(Commands, AbandonSubroutinesThatAskNobody) {
  replyPrompt(1, "Name?");
  reply<DateTimeResponseProt>(1, 2);
  EXPECT_EQ(errorOf([&] { connection_.call("HELLO"); }).message(),
            "the subroutine HELLO asks for input: Name?");
  EXPECT_TRUE(connection_.isUsable());
}

TEST_F(Commands, ListAsRows) {
  const NOXPBlob keys(
      "1\xFE"
      "2");
  auto list = std::make_unique<SelectListProt>(&keys);
  list->setId(9);
  reply<ToviResponseProt>(0,
                          new NOXPBlob("Name\xFE"
                                       "City"),
                          list.release());
  Listing listing = connection_.listing("LIST F NAME CITY");
  EXPECT_EQ(listing.heading(), Record({"Name", "City"}));

  const auto page = [](std::initializer_list<const char*> rows) {
    auto* const parameters =
        new noxp::ACEBinaryFormatParameterListProt(static_cast<int>(rows.size()));
    int i = 0;
    for (const char* const row : rows) parameters->setString(i++, row, 0);
    return static_cast<noxp::ParameterListProt*>(parameters);
  };
  reply<StatementFetchResponseProt>(0, page({"Ann\xFEOslo", "Bob\xFE"}));
  reply<StatementFetchResponseProt>(1, page({"Cy\xFERome"}));
  std::vector<std::string> names;
  for (const Record& row : listing) names.push_back(row[1].str() + " of " + row[2].str());
  EXPECT_THAT(names, ElementsAre("Ann of Oslo", "Bob of ", "Cy of Rome"));
  EXPECT_FALSE(listing.next());
  EXPECT_THAT(asked(),
              ElementsAre("Query LIST F NAME CITY v1", "QueryFetch 9 1000", "QueryFetch 9 1000"));
}

TEST_F(Commands, ListNothing) {
  const NOXPBlob keys("");
  auto list = std::make_unique<SelectListProt>(&keys);
  list->setId(9);
  reply<ToviResponseProt>(0, new NOXPBlob("Name"), list.release());
  reply<StatementFetchResponseProt>(1, nullptr);
  Listing listing = connection_.listing("LIST F").fetchSize(5);
  EXPECT_TRUE(listing.begin() == listing.end());
  EXPECT_EQ(asked().back(), "QueryFetch 9 5");
}

}  // namespace
}  // namespace nox::client
