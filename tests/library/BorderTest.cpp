// The exported functions with every argument and in every order a host may come up with.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <set>
#include <thread>

#include "Host.h"

namespace MorvuHost {
namespace {

int32_t Send(std::string_view text, bool synchronous = true) {
  std::uint64_t job = 0;
  return Library().SendXMLMessage(text.data(), static_cast<std::uint32_t>(text.size()), &job,
                                  synchronous);
}

std::set<std::string> OutputLines(const std::string& command) {
  std::set<std::string> lines;
  FILE* pipe = popen(command.c_str(), "r");
  char line[512];
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    lines.insert(std::string(line).substr(0, std::string_view(line).find('\n')));
  }
  pclose(pipe);
  return lines;
}

TEST(LibraryFile, ExportsTheElevenFunctionsAndNothingElse) {
  const std::set<std::string> eleven = {
      "Load",           "Unload",          "GetVer",           "EnableLSIAdapter",
      "EnableLogger",   "DisableLogger",   "RegisterEvent",    "DisableLSIAdapter",
      "SendXMLMessage", "UnregisterEvent", "ReceiveXMLMessage"};
  EXPECT_EQ(eleven, OutputLines("nm -D --defined-only -g " MORVU_LIBRARY_FILE
                                " | sed -n 's/.* [TWDBRVu] //p' | sed 's/@.*//'"));
}

TEST(LibraryFile, BearsItsVersionInItsNames) {
  EXPECT_EQ("libMorvu.SSDFeatures.so.1.2.0",
            std::filesystem::path(MORVU_LIBRARY_FILE).filename().string());
  EXPECT_EQ(
      std::set<std::string>{"libMorvu.SSDFeatures.so.1.2.0"},
      OutputLines("readelf -d " MORVU_LIBRARY_FILE " | sed -n 's/.*SONAME.*\\[\\(.*\\)\\]/\\1/p'"));
}

TEST(Border, AnswersItsVersionAtAnyTime) {
  EXPECT_EQ(10200400u, Library().GetVer());
  { Host host; }
  EXPECT_EQ(10200400u, Library().GetVer());
}

TEST(Border, RefusesRequestsWhileItIsNotLoaded) {
  EXPECT_EQ(178, Send(kListJobs));
  EXPECT_EQ(178, Library().SendXMLMessage(nullptr, 0, nullptr, true));
  Library().Unload();
  Library().EnableLSIAdapter();
  Library().DisableLSIAdapter();
  {
    Host host;
    EXPECT_EQ(0, Library().Load());
    EXPECT_EQ(0, Send(kListJobs));
  }
  EXPECT_EQ(178, Send(kListJobs));
}

TEST(Border, RefusesNullPointers) {
  Host host;
  std::uint64_t job = 77;
  std::uint32_t size = 0;
  EXPECT_EQ(73, Library().SendXMLMessage(nullptr, 9, &job, true));
  EXPECT_EQ(73, Library().SendXMLMessage(kListJobs.data(), 9, nullptr, true));
  EXPECT_EQ(77u, job);
  EXPECT_EQ(73, Library().ReceiveXMLMessage(1, nullptr, nullptr));
  EXPECT_EQ(243, Library().ReceiveXMLMessage(1, nullptr, &size));
  EXPECT_EQ(9, Library().EnableLogger(nullptr, 5, 1, true));
  Library().RegisterEvent(nullptr);
  Library().UnregisterEvent(nullptr);
  EXPECT_EQ(0, Send(kListJobs));
}

std::string Nested(int depth) {
  std::string text = "<Message subject='MorvuJob'>";
  for (int i = 0; i < depth; ++i) text += "<Object>";
  for (int i = 0; i < depth; ++i) text += "</Object>";
  return text + "</Message>";
}

TEST(Border, TellsTextsThatNameNoSubject) {
  using namespace std::string_literals;
  Host host;
  const std::string texts[] = {
      "",
      "<",
      "garbage",
      "<?xml version='1.0'?>",
      "<Message/>",
      "<Message subject=''/>",
      "<Message subject='morvujob'/>",
      "<Message subject='No such thing'/>",
      "<Foo subject='MorvuJob'/>",
      "<Foo><Message subject='MorvuJob'/></Foo>",
      "<Message subject='MorvuJob'>",
      "\0<Message subject='MorvuJob'/>"s,
      std::string(10 << 20, '<'),
      std::string(10 << 20, '\xFF'),
      Nested(100'000),
  };
  for (const auto& text : texts) EXPECT_EQ(244, Send(text)) << text.substr(0, 60);
}

TEST(Border, RoutesByTheFirstNameThatIsNotEmpty) {
  Host host;
  for (const auto* request : {
           "<Message subject='MorvuJob' cimClass='nothing'/>",
           "<Message subject='' cimClass='MorvuJob' cimMethod='nothing'/>",
           "<Message cimMethod='MorvuJob'/>",
           "<!-- a comment --><Other/><Message subject='MorvuJob'><Bar/></Message>",
       }) {
    EXPECT_EQ("MorvuJob", host.Call(request).Attribute("cimClass")) << request;
  }
}

TEST(Border, ReadsNoFurtherThanTheLengthOrTheFirstNul) {
  using namespace std::string_literals;
  Host host;
  const auto cut = std::string(kListJobs) + "<garbage";
  std::uint64_t job = 0;
  EXPECT_EQ(0, Library().SendXMLMessage(cut.data(), kListJobs.size(), &job, true));
  EXPECT_EQ(0, Send(std::string(kListJobs) + "\0<garbage"s));
  EXPECT_EQ(244, Library().SendXMLMessage(cut.data(), 0, &job, true));
}

TEST(Border, DeliversAMessageOnceAndKeepsItUntilThen) {
  Host host;
  const auto job = host.Send(kListJobs, true);
  std::uint32_t size = 0;
  EXPECT_EQ(141, Library().ReceiveXMLMessage(job, nullptr, &size));
  const auto needed = size;
  std::string buffer(needed, '*');
  size = needed - 1;
  EXPECT_EQ(141, Library().ReceiveXMLMessage(job, buffer.data(), &size));
  EXPECT_EQ(needed, size);
  size = needed + 5;
  EXPECT_EQ(73, Library().ReceiveXMLMessage(job, nullptr, &size));
  EXPECT_EQ(needed, size);
  EXPECT_EQ(std::string(needed, '*'), buffer);
  EXPECT_EQ(0, Library().ReceiveXMLMessage(job, buffer.data(), &size));
  EXPECT_EQ(needed, size);
  EXPECT_EQ(needed - 1, buffer.find('\0'));
  EXPECT_EQ(243, Library().ReceiveXMLMessage(job, buffer.data(), &size));
}

TEST(Border, DropsWhatWaitsWhenItIsUnloaded) {
  std::uint64_t job = 0;
  {
    Host host;
    job = host.Send(kListJobs, true);
  }
  std::uint32_t size = 0;
  EXPECT_EQ(243, Library().ReceiveXMLMessage(job, nullptr, &size));
}

TEST(Border, LoadsAndUnloadsManyTimes) {
  for (int i = 0; i < 100; ++i) {
    Host host;
    EXPECT_EQ("MorvuJob", host.Call(kListJobs).Attribute("cimClass"));
  }
}

TEST(Border, LogsToAFileThatCanBeOne) {
  const auto folder = std::filesystem::temp_directory_path();
  const auto path = (folder / ("morvu_border_" + std::to_string(getpid()) + ".log")).string();
  const auto enable = [](const std::string& text, std::uint32_t level = 5) {
    return Library().EnableLogger(text.data(), static_cast<std::uint32_t>(text.size()), level,
                                  true);
  };
  EXPECT_EQ(0, enable(path, 99));
  EXPECT_TRUE(std::filesystem::exists(path));
  EXPECT_EQ(9, enable(""));
  EXPECT_EQ(9, enable(folder.string()));
  EXPECT_EQ(9, enable("/no/such/folder/log"));
  EXPECT_EQ(9, Library().EnableLogger(path.data(), 0, 1, true));
  Library().DisableLogger();
  Library().DisableLogger();
  std::filesystem::remove(path);
}

// ---- Callbacks ----

std::atomic<int> calls = 0;
std::atomic<std::uint64_t> lastJob = 0;
void Count(std::uint64_t job) {
  ++calls;
  lastJob = job;
}

int32_t received = -1;
void ReceiveInside(std::uint64_t job) {
  char buffer[65536];
  std::uint32_t size = sizeof buffer;
  received = Library().ReceiveXMLMessage(job, buffer, &size);
}

void MisuseInside(std::uint64_t) {
  static int depth = 0;
  if (depth > 0) return;
  ++depth;
  Library().UnregisterEvent(&MisuseInside);
  Library().Unload();
  EXPECT_EQ(0, Send(kListJobs));
  --depth;
}

TEST(Callbacks, AreCalledAsOftenAsTheyAreRegistered) {
  Library().RegisterEvent(&Count);
  Library().RegisterEvent(&Count);
  {
    Host host;
    calls = 0;
    const auto job = host.Send(kListJobs, true);
    EXPECT_EQ(2, calls);
    EXPECT_EQ(job, lastJob);
  }
  Library().UnregisterEvent(&Count);
  {
    Host host;  // what is registered outlives Unload
    calls = 0;
    host.Send(kListJobs, true);
    EXPECT_EQ(1, calls);
    Library().UnregisterEvent(&Count);
    Library().UnregisterEvent(&Count);
    host.Send(kListJobs, true);
    EXPECT_EQ(1, calls);
  }
}

// Not every language's true is the byte 1; a job must neither run twice nor not at all.
TEST(Callbacks, AreCalledOnceWhateverByteIsTrue) {
  using WithByte = std::int32_t (*)(const char*, std::uint32_t, std::uint64_t*, unsigned char);
  // As a host sees it that finds the function by its name.
  const auto send = reinterpret_cast<WithByte>(reinterpret_cast<void*>(Library().SendXMLMessage));
  Host host;
  Library().RegisterEvent(&Count);
  for (const unsigned char byte : {1, 2, 0x80, 0xFF}) {
    calls = 0;
    std::uint64_t job = 0;
    EXPECT_EQ(0, send(kListJobs.data(), static_cast<std::uint32_t>(kListJobs.size()), &job, byte));
    EXPECT_EQ(1, calls) << int{byte};  // before the call returned
    EXPECT_FALSE(host.Receive(job).IsEmpty());
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // time for a second run
    EXPECT_EQ(1, calls) << int{byte};
  }
  Library().UnregisterEvent(&Count);
}

TEST(Callbacks, MayReceive) {
  Host host;
  Library().RegisterEvent(&ReceiveInside);
  const auto job = host.Send(kListJobs, true);
  Library().UnregisterEvent(&ReceiveInside);
  EXPECT_EQ(0, received);
  EXPECT_TRUE(host.Receive(job).IsEmpty());
}

TEST(Callbacks, AreSurvivedWhenTheyBreakTheRules) {
  Host host;
  Library().RegisterEvent(&MisuseInside);
  const auto job = host.Send(kListJobs, true);
  EXPECT_EQ(job, std::stoull(host.Receive(job).Attribute("identifier")));
}

}  // namespace
}  // namespace MorvuHost
