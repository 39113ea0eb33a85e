// docs/messages.md shows real exchanges. This test has them again, request by request,
// and compares. To write the replies anew, and then read the difference:
//
//   MORVU_UPDATE_GOLDEN=1 build/x86_64/tests/library_tests --gtest_filter='MessagesDocument*'
//
// What it reads are the document's fenced blocks:
//
//   xml request              run to its end; "xml reply" behind it holds the reply
//   xml reply LINES          the same, cut after so many lines
//   xml request background   a job on a thread of its own
//   xml request silent       run to its end, without a reply
//   xml message              the next message of the last such job
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "Host.h"
#include "TestFleet.h"

namespace MorvuHost {
namespace {

using Lines = std::vector<std::string>;

Lines ReadLines(const std::string& path) {
  Lines lines;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// An element a line, its children one step to the right; a text beside its element.
Lines Indent(const std::string& xml) {
  Lines lines;
  std::size_t depth = 0;
  for (auto at = xml.find('<'); at != xml.npos; at = xml.find('<', at)) {
    auto end = xml.find('>', at) + 1;
    const bool closes = xml[at + 1] == '/';
    const bool isWhole = xml[end - 2] == '/' || xml[at + 1] == '?';
    const bool hasText = !closes && !isWhole && xml[end] != '<';
    if (hasText) end = xml.find('>', end) + 1;
    if (closes) --depth;
    lines.push_back(std::string(2 * depth, ' ') + xml.substr(at, end - at));
    if (!closes && !isWhole && !hasText) ++depth;
    at = end;
  }
  return lines;
}

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  for (auto at = text.find(from); at != text.npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// Runs a document's exchanges, and keeps what differs from run to run out of them.
class Exchanges {
 public:
  // The lines that a block of this kind should hold; those that it has for requests.
  Lines Run(const std::string& kind, const Lines& block) {
    std::istringstream words(kind);
    std::string xml, what, how;
    words >> xml >> what >> how;
    if (what == "request") {
      Send(block, how);
      return block;
    }
    if (what == "message") shown_ = host_.Await(background_);
    auto lines = Indent(Normal(shown_.Text()));
    const auto limit = how.empty() ? lines.size() : std::stoul(how);
    if (lines.size() > limit) {
      lines.resize(limit);
      lines.push_back("...");
    }
    return lines;
  }

 private:
  static Simulator::TestFleet& AddDrives(Simulator::TestFleet& fleet) {
    auto sata = fleet.Add({.model = "MORVU SSDSC2BB480G4",
                           .serial = "BTWL402600K4480QGN",
                           .firmware = "D2010350",
                           .sectors = 937703088});
    sata.AddPartition(1 << 30, "/srv");
    sata.State().ata.security.frozen = 1;
    fleet.Add({.kind = Simulator::Kind::Nvme,
               .model = "MORVU SSDPE2MD800G4",
               .serial = "CVFT4030004F800CGN",
               .firmware = "8DV10151",
               .sectors = 1562824368});
    return fleet;
  }

  void Send(const Lines& block, const std::string& how) {
    std::string request;
    for (const auto& line : block) request += line + "\n";
    for (const auto& [real, shown] : identifiers_) request = Replace(request, shown, real);
    std::uint64_t job = 0;
    if (how == "silent") {
      job = host_.Send(request, true);
      EXPECT_TRUE(host_.Receive(job).IsEmpty());
    } else if (how == "background") {
      job = background_ = host_.Send(request);
    } else {
      job = host_.Send(request, true);
      shown_ = host_.Receive(job);
    }
    identifiers_[std::to_string(job)] = std::to_string(136120944 + 1024 * ++jobs_);
  }

  std::string Normal(std::string text) const {
    static const std::regex start(R"re((name="StartTime"[^>]*>)2[^<]*)re");
    static const std::regex elapsed(R"re((name="ElapsedTime"[^>]*>)0[^<]*)re");
    for (const auto& [real, shown] : identifiers_) text = Replace(text, real, shown);
    text = std::regex_replace(text, start, "$0120260102030405.123456+000");
    return std::regex_replace(text, elapsed, "$0100000000000000.250000+000");
  }

  Simulator::TestFleet fleet_;
  Simulator::TestFleet& drives_ = AddDrives(fleet_);
  Host host_;
  std::map<std::string, std::string> identifiers_;  // a real one to the one that is shown
  int jobs_ = 0;
  std::uint64_t background_ = 0;
  Reply shown_;
};

TEST(MessagesDocument, ShowsWhatTheLibraryAnswers) {
  const std::string path = MORVU_MESSAGES_DOCUMENT;
  const auto document = ReadLines(path);
  ASSERT_FALSE(document.empty());
  Exchanges exchanges;
  Lines written;
  int blocks = 0;
  for (std::size_t i = 0; i < document.size(); ++i) {
    written.push_back(document[i]);
    if (!document[i].starts_with("```xml ")) continue;
    Lines block;
    while (document.at(++i) != "```") block.push_back(document[i]);
    const auto expected = exchanges.Run(document[i - block.size() - 1].substr(3), block);
    if (std::getenv("MORVU_UPDATE_GOLDEN") == nullptr) {
      EXPECT_EQ(expected, block) << path << ", line " << i + 1
                                 << ": see the head of this test for how to write it anew";
    }
    written.insert(written.end(), expected.begin(), expected.end());
    written.push_back("```");
    ++blocks;
  }
  EXPECT_GT(blocks, 20);
  if (std::getenv("MORVU_UPDATE_GOLDEN") == nullptr) return;
  std::ofstream out(path);
  for (const auto& line : written) out << line << "\n";
  GTEST_SKIP() << "wrote " << path;
}

}  // namespace
}  // namespace MorvuHost
