// Signals in the middle of what must not stay half done: they are held until the drive is as
// it should be, and then the tool dies by the signal that it was sent, so that a loop in a
// shell ends as well. Each run is a process of its own.
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "frame/Files.h"
#include "support/EraseScene.h"
#include "support/FirmwareModules.h"
#include "support/JsonDocuments.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using namespace Testing;
using Simulator::Fault;

struct SignaledRun {
  int status;  // of wait
  std::string output;
};

// How the tool is run, and the command from which on the signal may not end it.
struct SignaledLine {
  const char* name;
  Simulator::DriveSpec (*spec)();
  std::vector<std::string> words;
  int firstChange;
  int firstFeature = -1;  // of that command
  bool erases = true;
};
void PrintTo(const SignaledLine& line, std::ostream* out) { *out << line.name; }

constexpr char kImage[] = "IMAGE";  // stands for the path of a firmware image

const SignaledLine kLines[] = {
    {"SecureErase", &SataSpec, {"-secure_erase", "-force"}, 0xF1},
    {"Sanitize", &SataSpec, {"-sanitize", "block", "-force"}, 0xB4, 0x12},
    {"FormatSata", &SataSpec, {"-format", "-force"}, 0xF1},
    {"FormatNvme", &NvmeSpec, {"-format", "1", "-force"}, 0x80},
    // SMART is off while the image is sent.
    {"Firmware", &SataSpec, {"-firmware_update", kImage, "-force"}, 0xB0, 0xD9, false},
    // The document stands whole before the tool ends.
    {"SecureEraseInJson", &SataSpec, {"-secure_erase", "-force", "-json"}, 0xF1},
    {"FirmwareOfSeveralInJson",
     &SataSpec,
     {"-drives", "all", "-firmware_update", kImage, "-force", "-json"},
     0xB0,
     0xD9,
     false},
};

class LineProcess : public EraseScene {
 public:
  explicit LineProcess(const SignaledLine& line) : EraseScene(line.spec()) {
    words_ = line.words;
    if (words_.front() != "-drives") {
      words_.insert(words_.begin(), {"-drive_serial", drive.State().serial});
    }
    const auto path = fleet.Folder() + "/image.bin";
    EXPECT_TRUE(SaveBinary(path, MakeSimulatedImage("NEW2", 140'000), false));
    std::ranges::replace(words_, std::string(kImage), path);
  }
  StatusCode Run(ProgressReporter& = NoReporter()) override { return RunLine(words_).code; }

  // The signal comes while the tool waits for the n-th command, from 1.
  SignaledRun RunSignaled(int signal, std::uint32_t n) {
    drive.Inject(Fault::Signal(signal).OnCommand(n));
    const auto path = fleet.Folder() + "/printed";
    const pid_t child = fork();
    if (child == 0) RunChild(path);
    int status = 0;
    waitpid(child, &status, WUNTRACED);
    if (WIFSTOPPED(status)) {
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
    }
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return {status, text.str()};
  }

 private:
  [[noreturn]] void RunChild(const std::string& path) {
    // A group with a parent outside of it: one without is not stopped by SIGTSTP.
    setpgid(0, 0);
    const rlimit none{};
    setrlimit(RLIMIT_CORE, &none);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGPIPE, SIGXFSZ}) {
      ::signal(signal, SIG_DFL);
    }
    std::istringstream in;
    std::ofstream out(path);
    (void)RunToolLine(words_, CLIStreams{in, out});
    _exit(0);
  }

  std::vector<std::string> words_;
};

bool IsFirstChange(const SignaledLine& line, const Simulator::JournalEntry& command) {
  return command.Opcode() == line.firstChange &&
         (line.firstFeature < 0 || (command.Features() & 0xFF) == line.firstFeature);
}

// The commands of a good run, and where the first that changes the drive stands, from 1.
struct GoodRun {
  std::vector<Simulator::JournalEntry> commands;
  std::uint32_t firstChange = 0;
};

GoodRun RunGood(const SignaledLine& line) {
  LineProcess scene(line);
  EXPECT_EQ(scene.Run(), 0);
  GoodRun run{scene.drive.Journal()};
  const auto found = std::ranges::find_if(
      run.commands, [&](const auto& command) { return IsFirstChange(line, command); });
  EXPECT_NE(found, run.commands.end());
  run.firstChange = static_cast<std::uint32_t>(found - run.commands.begin()) + 1;
  return run;
}

class Signals : public ::testing::TestWithParam<SignaledLine> {
 protected:
  void SetUp() override {
    if (MORVU_IS_EMULATED) {
      GTEST_SKIP() << "QEMU's user-mode emulator does not deliver signals to a forked process with "
                      "threads as the kernel does";
    }
  }

  void TearDown() override {
    if (GetParam().words.back() == "-json" && !IsSkipped()) documents_.ExpectValid();
  }

  void Check(LineProcess& scene, const SignaledRun& run, int signal) {
    const bool stops = signal == SIGTSTP;
    EXPECT_EQ(stops ? WIFSTOPPED(run.status) : WIFSIGNALED(run.status), true) << run.status;
    EXPECT_EQ(stops ? WSTOPSIG(run.status) : WTERMSIG(run.status), signal);
    EXPECT_FALSE(scene.drive.State().ata.security.enabled);
    const bool isSata = scene.drive.State().kind == Simulator::Kind::Ata;
    EXPECT_EQ(scene.drive.State().ata.smartEnabled != 0, isSata);
    // How it ended is told before.
    const auto& words = GetParam().words;
    if (words.back() == "-json") documents_.Add(GetParam().name, run.output);
    const bool isDone = run.output.find("Completed successfully.") != run.output.npos;
    const bool isCanceled = run.output.find("Canceled.") != run.output.npos;
    EXPECT_NE(isDone, isCanceled) << run.output;
    const bool asksToStop = !stops && signal != SIGPIPE && signal != SIGXFSZ;
    EXPECT_TRUE(isDone || asksToStop) << run.output;
    // A sanitize goes on by itself, and may be over when it is asked to stop.
    const auto& sanitize = scene.drive.State().ata.sanitize;
    if ((isDone || sanitize.completed != 0) && GetParam().erases) {
      EXPECT_TRUE(scene.IsErased());
    } else if (sanitize.running == 0) {
      EXPECT_TRUE(scene.IsUntouched());
    }
  }

 private:
  JsonDocuments documents_;  // of the lines that ask for them
};
INSTANTIATE_TEST_SUITE_P(All, Signals, ::testing::ValuesIn(kLines),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(Signals, EachEndsTheToolBehindItsWork) {
  const auto good = RunGood(GetParam());
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGPIPE, SIGXFSZ}) {
    SCOPED_TRACE(strsignal(signal));
    LineProcess scene(GetParam());
    Check(scene, scene.RunSignaled(signal, good.firstChange), signal);
  }
}

TEST_P(Signals, NoCommandIsAMomentAtWhichOneDoesHarm) {
  const auto good = RunGood(GetParam());
  ASSERT_LT(good.firstChange, good.commands.size());
  for (auto n = good.firstChange; n <= good.commands.size(); ++n) {
    SCOPED_TRACE(good.commands[n - 1].Text());
    LineProcess scene(GetParam());
    Check(scene, scene.RunSignaled(SIGTERM, n), SIGTERM);
  }
}

}  // namespace
}  // namespace Morvu
