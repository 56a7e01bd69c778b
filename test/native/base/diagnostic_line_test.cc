#include "base/diagnostic_line.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "test/native/support/captured_output.h"

namespace {

using base::DiagnosticLine;
using test::linesWrittenBy;
using testing::ElementsAre;
using testing::SizeIs;

class DiagnosticLineTest : public testing::Test {
 protected:
  void SetUp() override {
    // As in a Node.js process: a closed reading end is an error of the write, not a signal.
    signal(SIGPIPE, SIG_IGN);
  }
  void TearDown() override {
    linesWrittenBy([] { DiagnosticLine("").decimal(); });
  }
};

// A non-blocking pipe that replaces the standard output.
class PipedOutput {
 public:
  PipedOutput() {
    std::fflush(stdout);
    EXPECT_EQ(pipe2(pipe_, O_NONBLOCK), 0);
    dup2(pipe_[1], STDOUT_FILENO);
  }
  ~PipedOutput() {
    dup2(original_, STDOUT_FILENO);
    close(original_);
    close(pipe_[0]);
    close(pipe_[1]);
  }

  // Everything that the pipe holds; it is empty afterwards.
  std::string drain() {
    std::string text;
    char buffer[4096];
    for (ssize_t count; (count = read(pipe_[0], buffer, sizeof buffer)) > 0;) {
      text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
  }
  void fill() {
    const std::string filling(4096, '#');
    while (write(pipe_[1], filling.data(), filling.size()) > 0) continue;
  }
  // From here on a write waits for space, which is the default of a pipe.
  void blockWriters() { EXPECT_EQ(fcntl(pipe_[1], F_SETFL, 0), 0); }
  // The content of the pipe as soon as there is any; empty when there never is.
  std::string await() {
    constexpr int kNeverMs = 30'000;
    pollfd end = {pipe_[0], POLLIN, 0};
    poll(&end, 1, kNeverMs);
    return drain();
  }
  std::size_t capacity() const { return static_cast<std::size_t>(fcntl(pipe_[1], F_GETPIPE_SZ)); }

 private:
  const int original_ = dup(STDOUT_FILENO);
  int pipe_[2] = {-1, -1};
};

TEST_F(DiagnosticLineTest, WritesItsPiecesAsOneLineWhenItIsDestroyed) {
  const test::CapturedOutput output;
  {
    DiagnosticLine line("one");
    line.text(" two ").dec(3);
    EXPECT_EQ(output.text(), "");
  }
  EXPECT_EQ(output.text(), "one two 3\n");
}

TEST_F(DiagnosticLineTest, WritesAnEmptyLineWhenThereAreNoPieces) {
  EXPECT_THAT(linesWrittenBy([] { DiagnosticLine{}; }), ElementsAre(""));
}

TEST_F(DiagnosticLineTest, PrintsFixedDecimalsWhateverTheBase) {
  EXPECT_THAT(linesWrittenBy([] {
                DiagnosticLine("a:").dec(-255).hexadecimal().text(" b:").dec(255);
                DiagnosticLine("c:")
                    .dec(std::numeric_limits<std::uint64_t>::max())
                    .text(" d:")
                    .dec(std::numeric_limits<std::int64_t>::min());
              }),
              ElementsAre("a:-255 b:255", "c:18446744073709551615 d:-9223372036854775808"));
}

TEST_F(DiagnosticLineTest, PrintsIntegersInTheBaseThatAnEarlierLineLeft) {
  EXPECT_THAT(linesWrittenBy([] {
                DiagnosticLine("").integer(255);
                DiagnosticLine("").integer(16).hexadecimal().text(" ").integer(255);
                DiagnosticLine("").integer(255);
                DiagnosticLine("").integer(16).decimal().text(" ").integer(255);
                DiagnosticLine("").integer(255);
              }),
              ElementsAre("255", "16 ff", "ff", "10 255", "255"));
}

TEST_F(DiagnosticLineTest, KeepsTheBaseThatItSetWhateverOtherLinesDo) {
  EXPECT_THAT(linesWrittenBy([] {
                DiagnosticLine line("");
                line.hexadecimal();
                DiagnosticLine("").decimal().integer(255);
                line.integer(255);
              }),
              ElementsAre("255", "ff"));
}

TEST_F(DiagnosticLineTest, PrintsNegativeIntegersInHexadecimalAsThirtyTwoBits) {
  EXPECT_THAT(linesWrittenBy([] {
                DiagnosticLine("").integer(-1).hexadecimal().text(" ").integer(-1);
                DiagnosticLine("").integer(std::numeric_limits<std::int32_t>::min());
              }),
              ElementsAre("-1 ffffffff", "80000000"));
}

TEST_F(DiagnosticLineTest, PrintsAddressesInHexadecimalWithoutChangingTheBase) {
  EXPECT_THAT(linesWrittenBy([] {
                DiagnosticLine("").address(reinterpret_cast<void*>(0xabc0)).text(" ").integer(10);
                DiagnosticLine("").address(nullptr).text(" ").integer(10);
              }),
              ElementsAre("0xabc0 10", "0 10"));
}

TEST_F(DiagnosticLineTest, DoesNotUseTextAsAFormatString) {
  const std::string foreign = "100%n %s%s%s %p \\n";
  EXPECT_THAT(linesWrittenBy([&] { DiagnosticLine(foreign).text(foreign); }),
              ElementsAre(foreign + foreign));
}

TEST_F(DiagnosticLineTest, WritesAnyBytesUnchanged) {
  const std::string foreign("\0\x80\xff", 3);
  EXPECT_THAT(linesWrittenBy([&] { DiagnosticLine("<").text(foreign).text(">"); }),
              ElementsAre("<" + foreign + ">"));
}

TEST_F(DiagnosticLineTest, WritesLinesInTheOrderInWhichTheyEnd) {
  EXPECT_THAT(linesWrittenBy([] {
                DiagnosticLine outer("outer");
                DiagnosticLine("inner");
              }),
              ElementsAre("inner", "outer"));
}

TEST_F(DiagnosticLineTest, LosesTheLineOnAClosedOutputAndWritesTheNext) {
  const test::CapturedOutput output;
  const int original = dup(STDOUT_FILENO);
  close(STDOUT_FILENO);
  DiagnosticLine("lost");
  dup2(original, STDOUT_FILENO);
  close(original);
  DiagnosticLine("next");
  EXPECT_EQ(output.text(), "next\n");
}

TEST_F(DiagnosticLineTest, LosesTheLineWhenTheReaderHasClosedThePipeAndWritesTheNext) {
  const test::CapturedOutput output;
  const int original = dup(STDOUT_FILENO);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  dup2(ends[1], STDOUT_FILENO);
  close(ends[0]);
  close(ends[1]);
  DiagnosticLine("lost");
  dup2(original, STDOUT_FILENO);
  close(original);
  DiagnosticLine("next");
  EXPECT_EQ(output.text(), "next\n");
}

TEST_F(DiagnosticLineTest, LosesTheLineOnAFullPipeAndWritesTheNext) {
  std::string taken;
  {
    PipedOutput output;
    output.fill();
    DiagnosticLine("lost");
    output.drain();
    DiagnosticLine("next");
    taken = output.drain();
  }
  EXPECT_EQ(taken, "next\n");
}

TEST_F(DiagnosticLineTest, IsNotBlockedByAFullPipeWithoutAReaderAndWritesTheNext) {
  std::string cut;
  std::string taken;
  {
    PipedOutput output;
    output.fill();
    output.blockWriters();
    for (int i = 0; i < 100; ++i) DiagnosticLine("lost");
    output.drain();
    DiagnosticLine("next");
    taken = output.drain();
    DiagnosticLine(std::string(2 * output.capacity(), 'x'));
    cut = output.drain();
  }
  EXPECT_EQ(taken, "next\n");
  EXPECT_EQ(cut, std::string(cut.size(), 'x'));
  EXPECT_GE(cut.size(), PIPE_BUF);
}

TEST_F(DiagnosticLineTest, WaitsForTheReaderOfABlockingPipe) {
  // Far more than the pipe holds.
  constexpr int kLines = 2000;
  const std::string line(3000, 'x');
  std::string taken;
  {
    PipedOutput output;
    output.blockWriters();
    const std::size_t expected = kLines * (line.size() + 1);
    std::thread reader([&] {
      for (std::string piece = "-"; !piece.empty() && taken.size() < expected;) {
        piece = output.await();
        taken += piece;
      }
    });
    for (int i = 0; i < kLines; ++i) DiagnosticLine{line};
    reader.join();
  }
  EXPECT_EQ(std::count(taken.begin(), taken.end(), '\n'), kLines);
}

TEST_F(DiagnosticLineTest, StartsANewLineAfterOneThatThePipeTruncated) {
  std::string cut;
  std::string next;
  std::string last;
  std::size_t capacity = 0;
  {
    PipedOutput output;
    capacity = output.capacity();
    DiagnosticLine(std::string(2 * capacity, 'x'));
    cut = output.drain();
    DiagnosticLine("next");
    next = output.drain();
    DiagnosticLine("last");
    last = output.drain();
  }
  EXPECT_EQ(cut, std::string(capacity, 'x'));
  EXPECT_EQ(next, "\nnext\n");
  EXPECT_EQ(last, "last\n");
}

// The system writes a line of this length in several parts, so that those of two threads could mix.
TEST_F(DiagnosticLineTest, KeepsTheLinesOfSeveralThreadsWhole) {
  constexpr int kThreads = 4;
  constexpr int kLinesOfEach = 50;
  constexpr std::size_t kLength = 100'000;
  const int original = dup(STDOUT_FILENO);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  dup2(ends[1], STDOUT_FILENO);
  close(ends[1]);
  std::string taken;
  std::thread reader([&] {
    std::vector<char> buffer(65'536);
    for (ssize_t count; (count = read(ends[0], buffer.data(), buffer.size())) > 0;) {
      taken.append(buffer.data(), static_cast<std::size_t>(count));
    }
  });
  std::vector<std::thread> writers;
  writers.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    writers.emplace_back([i] {
      const std::string text(kLength, static_cast<char>('a' + i));
      for (int line = 0; line < kLinesOfEach; ++line) DiagnosticLine{text};
    });
  }
  for (std::thread& writer : writers) writer.join();
  dup2(original, STDOUT_FILENO);
  close(original);
  reader.join();
  close(ends[0]);

  ASSERT_THAT(taken, SizeIs(std::size_t{kThreads} * kLinesOfEach * (kLength + 1)));
  for (std::size_t start = 0; start < taken.size(); start += kLength + 1) {
    EXPECT_EQ(taken.substr(start, kLength + 1), std::string(kLength, taken[start]) + "\n")
        << "at " << start;
  }
}

}  // namespace
