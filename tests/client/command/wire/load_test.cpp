// Loading: batches, rejects, and going on after a load was broken off.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "tests/client/command/wire/nox_program.h"

namespace nox::command::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class NoxLoad : public NoxTest {
protected:
  void SetUp() override { done({"create-file", "L"}); }
  void TearDown() override { done({"run", "DELETE-FILE L (Y"}); }

  static std::string records(int from, int to) {
    std::string lines;
    for (int i = from; i < to; ++i) {
      lines +=
          "{\"id\": \"" + std::to_string(i) + "\", \"record\": [\"" + std::to_string(i) + "\"]}\n";
    }
    return lines;
  }
  static std::string count() { return done({"run", "COUNT", "L"}); }
};

TEST_F(NoxLoad, WritesEveryRecordInBatches) {
  done({"load", "L", "--from-format", "jsonl", "--batch", "7"}, records(0, 100));
  EXPECT_EQ(count(), "100 records counted\n");
  EXPECT_EQ(done({"read", "L", "99"}), "99");
}

TEST_F(NoxLoad, TellsTheFormatByTheName) {
  done({"load", "L", write("x.csv", "ID,1\na,b\n")});
  done({"load", "L", write("x.tsv", "ID\t2\nc\td\n")});
  done({"load", "L", write("x.jsonl", records(1, 2))});
  EXPECT_EQ(count(), "3 records counted\n");
  EXPECT_EQ(nox({"load", "L", write("x.txt", "")}).status, 2);
}

TEST_F(NoxLoad, EndsAtTheFirstBadRecordAndKeepsTheBatchesBefore) {
  const Outcome outcome =
      nox({"load", "L", "--from-format", "jsonl", "--batch", "10"}, records(0, 25) + "nonsense\n");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, StartsWith("nox: 20 loaded\nnox: line 26: byte 2: "));
  EXPECT_EQ(count(), "20 records counted\n");
}

TEST_F(NoxLoad, PutsWhatCannotBeLoadedIntoTheRejectFile) {
  const std::string lines =
      records(0, 3) + "nonsense\n{\"id\": \"\", \"record\": [\"x\"]}\n" + records(3, 5);
  const Outcome outcome =
      nox({"load", "L", "--from-format", "jsonl", "--reject", file("rejects")}, lines);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("5 loaded, 2 rejected"));
  EXPECT_EQ(count(), "5 records counted\n");
  const std::string rejects = contentOf("rejects");
  EXPECT_THAT(rejects, HasSubstr("{\"line\":4,"));
  EXPECT_THAT(rejects, HasSubstr("\"input\":\"nonsense\""));
  EXPECT_THAT(rejects, HasSubstr("{\"line\":5,"));
}

TEST_F(NoxLoad, LeavesTheRecordBeforeARowWithoutAnIdAlone) {
  const Outcome outcome = nox({"load", "L", "--from-format", "csv", "--reject", file("rejects")},
                              "ID,1\nA,first\n,second\n");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("1 loaded, 1 rejected"));
  EXPECT_EQ(done({"read", "L", "A"}), "first");
  EXPECT_EQ(contentOf("rejects"),
            "{\"line\":3,\"error\":\"the id is empty\",\"input\":\",second\"}\n");
}

TEST_F(NoxLoad, DoesNotWriteOverItsInput) {
  const std::string input = write("mix.jsonl", records(0, 3));
  const std::string other = file("mix-too.jsonl");
  ASSERT_EQ(link(input.c_str(), other.c_str()), 0);
  for (const char* const option : {"--reject", "--resume"}) {
    for (const std::string& path : {input, other}) {
      const Outcome outcome = nox({"load", "L", input, option, path});
      EXPECT_EQ(outcome.status, 2);
      EXPECT_THAT(outcome.err, HasSubstr(path + " is what is to be loaded"));
      EXPECT_EQ(contentOf("mix.jsonl"), records(0, 3));
    }
  }
  EXPECT_EQ(nox({"load", "L", input, "--reject", file("one"), "--resume", file("one")}).status, 2);
  EXPECT_EQ(count(), "0 records counted\n");
}

TEST_F(NoxLoad, KeepsOldRejectsWhereItCannotBegin) {
  const std::string rejects = write("old-rejects", "old\n");
  const Outcome nowhere = nox({"load", "L", file("nowhere.jsonl"), "--reject", rejects});
  EXPECT_EQ(nowhere.status, 1);
  EXPECT_THAT(nowhere.err, Not(HasSubstr("loaded")));
  EXPECT_EQ(nox({"load", "L", write("x.txt", ""), "--reject", rejects}).status, 2);
  EXPECT_EQ(nox({"load", "L", write("x.csv", "ID,NONSENSE\n"), "--reject", rejects}).status, 1);
  EXPECT_EQ(contentOf("old-rejects"), "old\n");
  done({"load", "L", write("x.jsonl", records(0, 1)), "--reject", rejects});
  EXPECT_EQ(contentOf("old-rejects"), "") << "a load that has begun has rejects of its own";
}

TEST_F(NoxLoad, RejectsNoRecordsForWantOfAFile) {
  const std::string rejects = write("old-rejects", "old\n");
  const Outcome outcome =
      nox({"load", "NOFILE", "--from-format", "jsonl", "--reject", rejects}, records(0, 3));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("NOFILE"));
  EXPECT_THAT(outcome.err, Not(HasSubstr("rejected")));
  EXPECT_EQ(contentOf("old-rejects"), "old\n");
}

TEST_F(NoxLoad, CreatesNoFileForAnInputThatIsNotThere) {
  EXPECT_EQ(nox({"load", "--create", "NEW", file("nowhere.jsonl")}).status, 1);
  EXPECT_THAT(done({"files"}), Not(HasSubstr("NEW")));
}

TEST_F(NoxLoad, GoesOnWhereItWasBrokenOff) {
  const Words words{"load",    "L",  "--from-format", "jsonl",
                    "--batch", "10", "--resume",      file("state")};
  EXPECT_EQ(nox(words, records(0, 25) + "nonsense\n").status, 1);
  EXPECT_THAT(contentOf("state"), StartsWith("20 "));
  const Outcome again = nox(words, records(0, 30));
  EXPECT_EQ(again.status, 0) << again.err;
  EXPECT_THAT(again.err, HasSubstr("10 loaded, 20 were done before"));
  EXPECT_EQ(count(), "30 records counted\n");
  EXPECT_EQ(contentOf("state"), "") << "the file goes with the end of the load";
}

TEST_F(NoxLoad, GoesOnBehindAStateWithTheNumberAlone) {
  const Outcome outcome =
      nox({"load", "L", "--from-format", "jsonl", "--resume", write("old-state", "20\n")},
          records(0, 30));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("10 loaded, 20 were done before"));
}

TEST_F(NoxLoad, RefusesTheStateOfALongerInput) {
  const Outcome outcome =
      nox({"load", "L", "--from-format", "jsonl", "--resume", write("long-state", "999999\n")},
          records(0, 30));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("999999 records were done before, and this has 30"));
  EXPECT_EQ(contentOf("long-state"), "999999\n");
  EXPECT_EQ(count(), "0 records counted\n");
}

TEST_F(NoxLoad, RefusesTheStateOfAnotherInput) {
  const Words words{"load",    "L",  "--from-format", "jsonl",
                    "--batch", "10", "--resume",      file("other-state")};
  EXPECT_EQ(nox(words, records(0, 25) + "nonsense\n").status, 1);
  const std::string state = contentOf("other-state");
  const Outcome outcome = nox(words, records(100, 200));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("belongs to another input"));
  EXPECT_EQ(contentOf("other-state"), state);
  EXPECT_EQ(count(), "20 records counted\n");
  done(words, records(0, 30));
}

TEST_F(NoxLoad, RefusesAStateThatIsNone) {
  for (const char* const text : {"hello", "", "20 ", "20 xyz\n", "20 12 13\n", "-1\n"}) {
    EXPECT_EQ(nox({"load", "L", "--from-format", "jsonl", "--resume", write("no-state", text)},
                  records(0, 30))
                  .status,
              1)
        << text;
  }
}

/// A pipe with a name, in which records come without end until `stop`.
class EndlessInput {
public:
  explicit EndlessInput(std::string path) : path_(std::move(path)) {
    if (mkfifo(path_.c_str(), S_IRUSR | S_IWUSR) != 0) throw std::runtime_error("no pipe");
    // For both directions, so that it needs nobody at the other end, now and later.
    pipe_ = open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (pipe_ < 0) throw std::runtime_error("no pipe");
    writer_ = std::thread([this] { run(); });
  }
  EndlessInput(const EndlessInput&) = delete;
  EndlessInput& operator=(const EndlessInput&) = delete;
  ~EndlessInput() { stop(); }

  void stop() {
    stopped_ = true;
    if (writer_.joinable()) writer_.join();
    if (pipe_ >= 0) close(pipe_);
    pipe_ = -1;
  }

private:
  void run() {
    static constexpr std::string_view kRecord = "{\"id\": \"1\", \"record\": [\"x\"]}\n";
    while (!stopped_) {
      pollfd waited{pipe_, POLLOUT, 0};
      if (poll(&waited, 1, 50) <= 0) continue;
      // So short a piece goes into the pipe as a whole, or not at all.
      const ssize_t n = ::write(pipe_, kRecord.data(), kRecord.size());
      if (n < 0 && errno != EAGAIN) return;
    }
  }

  const std::string path_;
  int pipe_ = -1;
  std::atomic<bool> stopped_{false};
  std::thread writer_;
};

TEST_F(NoxLoad, ShowsABarOnATerminal) {
  EndlessInput input(file("endless"));
  Terminal terminal({"load", "L", file("endless"), "--from-format", "jsonl", "--batch", "1"},
                    environment());
  terminal.waitFor("\rrecords ");
  input.stop();
  terminal.waitFor(" loaded");
  EXPECT_EQ(terminal.wait(), 0) << terminal.shown();
}

TEST_F(NoxLoad, CreatesTheFileWhereItIsAskedTo) {
  EXPECT_EQ(nox({"load", "NEW", "--from-format", "jsonl"}, records(0, 1)).status, 1);
  done({"load", "--create", "NEW", "--from-format", "jsonl"}, records(0, 1));
  done({"load", "--create", "NEW", "--from-format", "jsonl"}, records(1, 2));
  EXPECT_EQ(done({"run", "COUNT", "NEW"}), "2 records counted\n");
  done({"run", "DELETE-FILE NEW (Y"});
}

}  // namespace
}  // namespace nox::command::test
