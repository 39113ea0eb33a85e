// The line that shows how far a long run is: what it holds, and that nobody else's line is cut.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <thread>

#include "Terminal.h"
#include "frame/Files.h"
#include "support/EraseScene.h"
#include "support/SimulatedImage.h"

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

struct LongRun {
  std::vector<std::string> words;
  bool isNvme = false;
};

// Its percents, without a word of the family for it.
TEST(ProgressLine, IsThereForEachLongRun) {
  const LongRun kRuns[] = {{{"-secure_erase"}},
                           {{"-sanitize", "block"}},
                           {{"-format"}, true},
                           {{"-self_test", "short", "captiveOffline"}},
                           {{"-firmware_update", "IMAGE"}}};
  for (auto run : kRuns) {
    Simulator::TestFleet fleet;
    fleet.Add(run.isNvme ? EraseTesting::NvmeSpec() : EraseTesting::SataSpec());
    const auto image = fleet.Folder() + "/image";
    ASSERT_TRUE(SaveBinary(image, Testing::MakeSimulatedImage("NEW2", 140'000), false));
    const auto name = run.words.front().substr(1);
    std::ranges::replace(run.words, "IMAGE", image);
    run.words.insert(run.words.begin(), {"-drive_index", "0", "-force"});
    std::istringstream in;
    std::ostringstream out, terminal;
    ProgressLine progress(terminal, 0ms);
    EXPECT_EQ(Testing::RunToolLine(run.words, CLIStreams{in, out, false, progress}).code, 0);
    EXPECT_THAT(terminal.str(), HasSubstr("Looking for drives  0:0"));
    EXPECT_THAT(terminal.str(), ::testing::ContainsRegex("\\[K" + name + "  [0-9]+ %  0:0"));
    EXPECT_THAT(terminal.str(), EndsWith(kErase));
    EXPECT_THAT(out.str(), Not(HasSubstr(kErase)));
  }
}

// ---- Terminals and pipes ----

std::string ReadAllThatIsThere(int descriptor) {
  fcntl(descriptor, F_SETFL, O_NONBLOCK);
  std::string text;
  char block[4096];
  for (ssize_t got; (got = read(descriptor, block, sizeof block)) > 0;) {
    text.append(block, static_cast<std::size_t>(got));
  }
  return text;
}

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
    const auto text = ReadAllThatIsThere(reader_);
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

// Standard input and output are a terminal's; what is written there is collected.
class OnTerminal {
 public:
  OnTerminal() {
    (void)std::fflush(stdout);
    int terminal = -1;
    EXPECT_EQ(openpty(&reader_, &terminal, nullptr, nullptr, nullptr), 0);
    for (const int own : {STDIN_FILENO, STDOUT_FILENO}) dup2(terminal, own);
    close(terminal);
  }
  ~OnTerminal() {
    dup2(input_, STDIN_FILENO);
    dup2(output_, STDOUT_FILENO);
    for (const int handle : {input_, output_, reader_}) close(handle);
  }
  OnTerminal(const OnTerminal&) = delete;
  OnTerminal& operator=(const OnTerminal&) = delete;

  std::string Collect() const { return ReadAllThatIsThere(reader_); }

 private:
  int input_ = dup(STDIN_FILENO);
  int output_ = dup(STDOUT_FILENO);
  int reader_ = -1;
};

TEST(Terminal, TakesColoursUnlessItIsToldNotTo) {
  const OnTerminal terminal;
  const auto takes = [](const char* kind, const char* without) {
    const Variable term("TERM", kind), noColour("NO_COLOR", without);
    return MorvuTool::TakesColours();
  };
  EXPECT_TRUE(takes("xterm", nullptr));
  EXPECT_TRUE(takes(nullptr, ""));
  EXPECT_FALSE(takes("dumb", ""));
  EXPECT_FALSE(takes("xterm", "1"));
}

std::string PrintPaged(bool takesInput) {
  const OnTerminal terminal;
  if (!takesInput) close(STDIN_FILENO);
  {
    const MorvuTool::Pager pager;
    std::cout << "help\n";
  }
  std::cout.clear();
  std::cout << "after\n" << std::flush;
  return terminal.Collect();
}

TEST(Pager, ShowsWhatIsPrintedOnAFullTerminal) {
  struct Row {
    const char* kind;
    const char* pager;
    bool takesInput;
    const char* shown;
  };
  constexpr Row kRows[] = {
      {"xterm", "sed s/^/paged:/", true, "paged:help\r\nafter\r\n"},
      {"xterm", "/nowhere/pager", true, "help\r\nafter\r\n"},  // printed as it is
      {"xterm", "true", true, "after\r\n"},                    // left early
      {"dumb", "sed s/^/paged:/", true, "help\r\nafter\r\n"},
      {"xterm", "sed s/^/paged:/", false, "help\r\nafter\r\n"},
  };
  const auto onBrokenPipe = std::signal(SIGPIPE, SIG_DFL);
  for (const auto& row : kRows) {
    const Variable term("TERM", row.kind), pager("PAGER", row.pager);
    EXPECT_EQ(PrintPaged(row.takesInput), row.shown) << row.kind << ' ' << row.pager;
  }
  (void)std::signal(SIGPIPE, onBrokenPipe);
}

}  // namespace
}  // namespace Morvu
