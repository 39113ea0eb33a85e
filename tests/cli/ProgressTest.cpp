// The line that shows how far a long run is: what it holds, and that nobody else's line is cut.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "Terminal.h"
#include "support/EraseScene.h"

namespace Morvu {
namespace {

using namespace std::chrono_literals;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;

constexpr char kErase[] = "\r\x1b[K";

TEST(ProgressLine, IsRenewedInPlaceAndGoneAtTheEnd) {
  std::ostringstream out;
  ProgressLine line(out, 0ms);
  {
    const ProgressLine::Run run(line, "erase");
    line.SetPercent(7);
    line.SetPercent(140);
  }
  for (const auto* text : {"erase  0:0", "erase  7 %  0:0", "erase  100 %  0:0"}) {
    EXPECT_THAT(out.str(), HasSubstr(std::string(kErase) + text));
  }
  EXPECT_THAT(out.str(), EndsWith(kErase));
}

// A short run does not flicker; a run that is over shows nothing more.
TEST(ProgressLine, ShowsNothingBeforeTheDelayNorAfterTheRun) {
  std::ostringstream out;
  ProgressLine line(out, 1h);
  {
    const ProgressLine::Run run(line, "erase");
    line.SetPercent(7);
  }
  line.SetPercent(8);
  EXPECT_EQ(out.str(), "");
}

TEST(ProgressLine, BelongsToTheOutermostRun) {
  std::ostringstream out;
  ProgressLine line(out, 0ms);
  const ProgressLine::Run run(line, "outer");
  { const ProgressLine::Run inner(line, "inner"); }
  line.SetPercent(50);
  const ProgressLine::Gap gap(line);
  EXPECT_THAT(out.str(), HasSubstr("outer  50 %"));
}

TEST(ProgressLine, MakesRoomForTheLinesOfOthers) {
  std::ostringstream terminal;
  ProgressLine line(terminal, 0ms);
  const ProgressLine::Run run(line, "erase");
  line.SetPercent(50);
  {
    const ProgressLine::Gap gap(line);
    EXPECT_TRUE(gap.IsInRun());
    EXPECT_THAT(terminal.str(), EndsWith(kErase));
  }
}

std::atomic<int> questions = 0;
bool AskWhetherToDraw() { return ++questions > 1; }

// By its own thread, while a command takes its time.
TEST(ProgressLine, IsRenewedWithoutAReport) {
  std::ostringstream out;
  questions = 0;
  ProgressLine line(out, 0ms, &AskWhetherToDraw);
  const ProgressLine::Run run(line, "erase");
  while (questions < 3) std::this_thread::sleep_for(10ms);
  const ProgressLine::Gap gap(line);
  EXPECT_THAT(out.str(), MatchesRegex("\r.\\[Kerase  0:0.*"));
}

// ---- Terminals and pipes ----

// Standard error leads elsewhere; what is written there is collected.
class OtherError {
 public:
  explicit OtherError(bool isTerminal) : before_(dup(STDERR_FILENO)) {
    int ends[2];
    const int failed = isTerminal ? openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr)
                                  : pipe2(ends, O_CLOEXEC);
    EXPECT_EQ(failed, 0);
    reader_ = ends[0];
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
  }
  ~OtherError() { close(reader_); }
  OtherError(const OtherError&) = delete;
  OtherError& operator=(const OtherError&) = delete;

  // What was written; standard error is the old one again.
  std::string Collect() {
    std::string text;
    fcntl(reader_, F_SETFL, O_NONBLOCK);
    char block[4096];
    for (ssize_t got; (got = read(reader_, block, sizeof block)) > 0;) {
      text.append(block, static_cast<std::size_t>(got));
    }
    dup2(before_, STDERR_FILENO);
    close(before_);
    return text;
  }

 private:
  int before_;
  int reader_ = -1;
};

class Variable {
 public:
  Variable(const char* name, const char* value) : name_(name) {
    if (const char* before = std::getenv(name)) before_ = before;
    value != nullptr ? setenv(name, value, 1) : unsetenv(name);
  }
  ~Variable() { before_ ? setenv(name_, before_->c_str(), 1) : unsetenv(name_); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  const char* name_;
  std::optional<std::string> before_;
};

std::string EraseOnto(bool isTerminal, const char* kind) {
  OtherError error(isTerminal);
  const Variable term("TERM", kind);
  Simulator::TestFleet fleet;
  fleet.Add(EraseTesting::SataSpec());
  std::istringstream in;
  std::ostringstream out;
  const auto progress = MorvuTool::MakeProgressLine(0ms);
  EXPECT_EQ(Testing::RunToolLine({"-drive_index", "0", "-secure_erase", "-force"},
                                 {in, out, false, *progress})
                .code,
            0);
  return error.Collect();
}

TEST(Terminal, ShowsTheLine) {
  const auto text = EraseOnto(true, "xterm");
  EXPECT_THAT(text, HasSubstr("secure_erase  40 %  0:0"));
  EXPECT_THAT(text, EndsWith(kErase));
}

TEST(Terminal, ShowsNothingInAPipeNorWhereItIsDumb) {
  EXPECT_THAT(EraseOnto(false, "xterm"), IsEmpty());
  EXPECT_THAT(EraseOnto(true, "dumb"), IsEmpty());
}

TEST(Terminal, TakesColoursUnlessItIsToldNotTo) {
  int main = -1, terminal = -1;
  ASSERT_EQ(openpty(&main, &terminal, nullptr, nullptr, nullptr), 0);
  const int before = dup(STDOUT_FILENO);
  dup2(terminal, STDOUT_FILENO);
  const auto takes = [](const char* kind, const char* without) {
    const Variable term("TERM", kind), noColour("NO_COLOR", without);
    return MorvuTool::TakesColours();
  };
  const bool plain = takes("xterm", nullptr), unset = takes(nullptr, ""), dumb = takes("dumb", ""),
             forbidden = takes("xterm", "1");
  dup2(before, STDOUT_FILENO);
  for (const int handle : {main, terminal, before}) close(handle);
  EXPECT_TRUE(plain);
  EXPECT_TRUE(unset);
  EXPECT_FALSE(dumb);
  EXPECT_FALSE(forbidden);
}

}  // namespace
}  // namespace Morvu
