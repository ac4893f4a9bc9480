#include "client/command/output/output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace nox::command {
namespace {

TEST(Output, SaysWhenTheDiskIsFull) {
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  {
    Output output(full);
    output.write("text");
    try {
      output.flush();
      ADD_FAILURE() << "nothing was thrown";
    } catch (const OutputError& error) {
      EXPECT_FALSE(error.closed());
      EXPECT_STREQ(error.what(), "cannot write the output: No space left on device");
    }
  }
  close(full);
}

TEST(Output, TellsAReaderThatHasGone) {
  const auto previous = signal(SIGPIPE, SIG_IGN);
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  close(ends[0]);
  {
    Output output(ends[1]);
    output.write("text");
    try {
      output.flush();
      ADD_FAILURE() << "nothing was thrown";
    } catch (const OutputError& error) {
      EXPECT_TRUE(error.closed());
    }
  }
  close(ends[1]);
  signal(SIGPIPE, previous);
}

TEST(Output, WritesMoreThanItsBlockInOrder) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  ASSERT_GE(fcntl(ends[1], F_SETPIPE_SZ, 1 << 20), 1 << 20);
  std::string expected;
  {
    Output output(ends[1]);
    for (int i = 0; i < 50'000; ++i) {
      const std::string text = std::to_string(i) + "\n";
      output.write(text);
      expected += text;
    }
  }
  close(ends[1]);
  std::string text;
  std::array<char, 4096> piece{};
  for (ssize_t n = 0; (n = read(ends[0], piece.data(), piece.size())) > 0;) {
    text.append(piece.data(), static_cast<std::size_t>(n));
  }
  close(ends[0]);
  EXPECT_EQ(text, expected);
}

class OutputFile : public ::testing::Test {
protected:
  void SetUp() override {
    const int file = mkstemp(path_.data());
    ASSERT_GE(file, 0);
    ASSERT_EQ(write(file, "before", 6), 6);
    close(file);
  }
  void TearDown() override { unlink(path_.c_str()); }
  std::string content() const {
    std::ifstream in(path_);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  std::string path_ = "/tmp/output_test.XXXXXX";
};

TEST_F(OutputFile, KeepsWhatItHoldsUntilSomethingIsWritten) {
  {
    Output output(path_);
    output.flush();
  }
  EXPECT_EQ(content(), "before");
  {
    Output output(path_);
    output.write("new");
    output.flush();
    output.write("er");
  }
  EXPECT_EQ(content(), "newer");
}

TEST_F(OutputFile, IsEmptiedWhenNothingIsAllThereIsToWrite) {
  Output output(path_);
  output.finish();
  EXPECT_EQ(content(), "");
}

TEST_F(OutputFile, InAFolderThatIsNotThereIsRefusedAtOnce) {
  EXPECT_THROW(Output output(path_ + "/none"), OutputError);
}

TEST(Output, KnowsThatAPipeIsNoTerminal) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  const Output output(ends[1]);
  EXPECT_FALSE(output.isTerminal());
  EXPECT_EQ(output.width(), 0);
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
}  // namespace nox::command
