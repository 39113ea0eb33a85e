#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "frame/Logger.h"
#include "frame/status/Files.h"

namespace Morvu {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

class Logging : public ::testing::Test {
 protected:
  Logging() { std::filesystem::create_directory(folder_); }
  ~Logging() override {
    DisableLog();
    std::filesystem::remove_all(folder_);
  }

  std::vector<std::string> Lines(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

  const std::string folder_ =
      (std::filesystem::temp_directory_path() / ("morvu_log_" + std::to_string(getpid()))).string();
  const std::string path_ = folder_ + "/log";
};

void LogAtEachLevel() {
  for (std::uint32_t level = 1; level <= 5; ++level) {
    Log("Format", "Execute", 142, level, "Executing...");
  }
}

TEST_F(Logging, WritesALineWithItsTimeLevelAndPlace) {
  ASSERT_EQ(0, EnableLog(path_, 9, true));
  LogAtEachLevel();
  constexpr auto kTime = "\\[[0-2][0-9]:[0-5][0-9]:[0-6][0-9]:00\\] ";
  const auto line = [&](const std::string& name) {
    return MatchesRegex(kTime + name + ": Format\\(142\\): Execute: Executing\\.\\.\\.");
  };
  EXPECT_THAT(Lines(path_), ElementsAre(line("ERROR  "), line("WARNING"), line("INFO   "),
                                        line("DEBUG  "), line("")));
}

TEST_F(Logging, WritesUpToItsLevel) {
  LogAtEachLevel();  // no logger
  ASSERT_EQ(0, EnableLog(path_, 1, true));
  LogAtEachLevel();
  EXPECT_EQ(1u, Lines(path_).size());
  ASSERT_EQ(0, EnableLog(path_, 0, false));
  LogAtEachLevel();
  EXPECT_EQ(1u, Lines(path_).size());
}

TEST_F(Logging, MakesNoTextThatIsNotWritten) {
  int made = 0;
  const auto text = [&] { return std::to_string(++made); };
  MORVU_LOG(kLogInfo, "Test", text());
  ASSERT_EQ(0, EnableLog(path_, 2, true));
  MORVU_LOG(kLogInfo, "Test", text());
  EXPECT_EQ(0, made);
  MORVU_LOG(kLogWarning, "Test", text());
  EXPECT_EQ(1, made);
}

TEST_F(Logging, AppendsOrStartsAfresh) {
  for (const bool restart : {true, false, true}) {
    ASSERT_EQ(0, EnableLog(path_, 5, restart));
    Log("F", "f", 1, 1, "x");
    EXPECT_EQ(restart ? 1u : 2u, Lines(path_).size());
  }
}

TEST_F(Logging, GoesOnWhenANewPathCannotBeUsed) {
  ASSERT_EQ(0, EnableLog(path_, 5, true));
  // What could cost a host its time or a disk its data is no log.
  const auto pipe = folder_ + "/pipe";
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  for (const auto& path :
       {std::string(), folder_, folder_ + "/", folder_ + "/no/log", folder_ + "/.", folder_ + "/..",
        path_ + "/log", pipe, std::string("/dev/zero"), folder_ + "/" + std::string(300, 'x')}) {
    EXPECT_EQ(Status::FileNotOpened, EnableLog(path, 5, true)) << path;
  }
  Log("F", "f", 1, 1, "x");
  EXPECT_EQ(1u, Lines(path_).size());
  EXPECT_EQ(0, EnableLog("/dev/null", 5, true));
}

TEST_F(Logging, TakesTheNewFileInPlaceOfTheOld) {
  ASSERT_EQ(0, EnableLog(path_, 5, true));
  ASSERT_EQ(0, EnableLog(path_ + "2", 5, true));
  Log("F", "f", 1, 1, "x");
  EXPECT_THAT(Lines(path_), IsEmpty());
  EXPECT_EQ(1u, Lines(path_ + "2").size());
}

TEST_F(Logging, KeepsTheLinesOfThreadsApart) {
  ASSERT_EQ(0, EnableLog(path_, 5, true));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int k = 0; k < 50; ++k) Log("F", "f", 1, 1, std::string(200, 'x'));
    });
  }
  for (auto& thread : threads) thread.join();
  const auto lines = Lines(path_);
  EXPECT_EQ(200u, lines.size());
  for (const auto& line : lines) EXPECT_EQ(lines[0].size(), line.size());
}

TEST_F(Logging, OutlivesTheReaderOfItsPipe) {
  const auto pipe = folder_ + "/pipe";
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_EQ(0, EnableLog(pipe, 5, true));
  Log("F", "f", 1, 1, "read");
  char text[100] = "";
  EXPECT_GT(read(reader, text, sizeof text - 1), 0);
  EXPECT_THAT(std::string(text), EndsWith(": F(1): f: read\n"));
  for (int i = 0; i < 2000; ++i) Log("F", "f", 1, 1, std::string(100, 'x'));  // more than it holds
  close(reader);
  Log("F", "f", 1, 1, "nobody reads");
  // A reader may go between the opening and the writing, which a system signals.
  std::atomic<bool> stop = false;
  std::thread readers([&] {
    while (!stop) close(open(pipe.c_str(), O_RDONLY | O_NONBLOCK));
  });
  for (int i = 0; i < 20'000; ++i) Log("F", "f", 1, 1, "x");
  stop = true;
  readers.join();
}

TEST_F(Logging, IsSwitchedWhileThreadsLog) {
  std::atomic<bool> stop = false;
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!stop) MORVU_LOG(kLogError, "f", "x");
    });
  }
  for (int i = 0; i < 300; ++i) {
    EXPECT_EQ(0, EnableLog(path_ + std::to_string(i % 2), 5, true));
    if (i % 3 == 0) DisableLog();
  }
  stop = true;
  for (auto& thread : threads) thread.join();
}

TEST(SourceNames, AreWithoutFolderAndEndings) {
  EXPECT_EQ("Adapter_LSI", SourceBaseName("src/devices/Adapter_LSI.linux.cpp"));
  EXPECT_EQ("main", SourceBaseName("main"));
}

}  // namespace
}  // namespace Morvu
