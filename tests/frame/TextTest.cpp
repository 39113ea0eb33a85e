// Texts, numbers and bytes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <locale>
#include <sstream>

#include "TestFleet.h"
#include "frame/Bytes.h"
#include "frame/Files.h"
#include "frame/Platform.h"
#include "frame/Text.h"

namespace Morvu {
namespace {

struct Markup {
  std::string_view text, stripped, written;
};

const Markup kMarkups[] = {
    {"plain", "plain", "plain"},
    {"<c:RED>x</c>", "x", "x"},
    {"a<c:RED>b</c>c", "abc", "abc"},
    {"<c:RED>a</c><c:NOCOLOUR>b</c>", "ab", "ab"},
    {"<c:RED>no end", "<c:RED>no end", "<c:RED>no end"},
    {"no begin</c>", "no begin</c>", "no begin</c>"},
    {"</c><c:RED>x", "</c>x", "</c>x"},
    {"<C:red>x</C>y", "xy", "xy"},
    // What only looks like a mark is text, and takes none away.
    {"<c:RED a, b</c> c", "<c:RED a, b</c> c", "<c:RED a, b</c> c"},
    {"a <c: <c:RED>b</c> <c:", "a <c: b <c:", "a <c: b <c:"},
    {"1 <c:2> 3</c> <c:x y> z", "1  3 <c:x y> z", "1  3 <c:x y> z"},
    {"<c:RED>a</c><c:RED", "a<c:RED", "a<c:RED"},
    {"TRANS_Drive", "TRANS_Drive", "Drive"},
    {"<c:RED>trans_Drive</c>", "trans_Drive", "Drive"},
    {"TRANS_a trans_b TRANS_TRANS_c TRANS", "TRANS_a trans_b TRANS_TRANS_c TRANS", "a b c TRANS"},
    {"", "", ""},
};
TEST(MarkedUp, LosesItsMarks) {
  for (const auto& row : kMarkups) {
    EXPECT_EQ(row.stripped, StripMarkup(row.text));
    std::ostringstream out;
    WriteMarkedUp(out, row.text);
    EXPECT_EQ(row.written, out.str());
  }
}

TEST(Markups, NameTheirColour) {
  EXPECT_EQ("RED", GetColourName("a<c:RED>b</c><c:BLUE>c</c>"));
  EXPECT_EQ("", GetColourName("none"));
  EXPECT_EQ("", GetColourName("<c:RED"));
}

TEST(Numbers, AreWrittenWithZeros) {
  EXPECT_EQ("07", ToDecimalText(std::uint64_t{7}, 2));
  EXPECT_EQ("7", ToDecimalText(std::uint64_t{7}));
  EXPECT_EQ("-07", ToDecimalText(std::int64_t{-7}, 2));
  EXPECT_EQ("-9223372036854775808", ToDecimalText(INT64_MIN));
  EXPECT_EQ("00FF", ToHexNumber(255, 4));
  EXPECT_EQ("0", ToHexNumber(0));
  const std::uint8_t bytes[] = {0x0A, 0xFF};
  EXPECT_EQ("0AFF", ToHex(bytes));
}

TEST(Numbers, AreReadWholeOrNotAtAll) {
  EXPECT_EQ(42u, ParseDecimal("42"));
  EXPECT_EQ(7u, ParseDecimal("007"));
  EXPECT_EQ(UINT64_MAX, ParseDecimal("18446744073709551615"));
  EXPECT_EQ(-5, ParseSigned("-5"));
  EXPECT_EQ(INT64_MIN, ParseSigned("-9223372036854775808"));
  EXPECT_EQ(255u, ParseHex("fF"));
  for (const auto* text : {"", " 42", "42 ", "+42", "-5", "x42", "42x", "18446744073709551616",
                           "123456789012345678901"}) {
    EXPECT_FALSE(ParseDecimal(text)) << text;
  }
  for (const auto* text : {"", "-", "--5", "9223372036854775808"}) {
    EXPECT_FALSE(ParseSigned(text)) << text;
  }
  for (const auto* text : {"", "0xFF", "-F", "10000000000000000"}) {
    EXPECT_FALSE(ParseHex(text)) << text;
  }
  EXPECT_TRUE(IsDecimal("123456789012345678901"));
  for (const auto* text : {"", "-1", "1 "}) EXPECT_FALSE(IsDecimal(text)) << text;
}

TEST(Texts, AreCompared) {
  EXPECT_TRUE(IEquals("SerialNumber", "serialnumber"));
  EXPECT_FALSE(IEquals("a", "ab"));
  EXPECT_TRUE(IContains("MORVU SSD", "ssd"));
  EXPECT_TRUE(IContains("x", ""));
  EXPECT_EQ("b.b", ReplaceAll("aa.aa", "aa", "b"));
  EXPECT_EQ("aa", ReplaceAll("aa", "", "b"));
  EXPECT_EQ("True", BoolText(true));
}

// A host's locale, in which the capital of "i" is no ASCII letter.
struct TurkishCase : std::ctype<char> {
  char do_toupper(char c) const override {
    return c == 'i' ? '\xDD' : std::ctype<char>::do_toupper(c);
  }
  char do_tolower(char c) const override {
    return c == 'I' ? '\xFD' : std::ctype<char>::do_tolower(c);
  }
};

TEST(Texts, AreComparedTheSameInEveryLocale) {
  const auto old = std::locale::global(std::locale(std::locale(), new TurkishCase));
  EXPECT_TRUE(IEquals("FIRMWARE", "Firmware"));
  EXPECT_TRUE(IContains("FIRMWARE", "irm"));
  EXPECT_EQ("x", StripMarkup("<c:I>x</C>"));
  std::locale::global(old);
}

TEST(Bytes, AreNotReadBehindTheEnd) {
  const std::uint8_t bytes[] = {0x01, 0x02, 0x03, 0x04};
  EXPECT_EQ(0x0201u, ReadLittle16(bytes, 0));
  EXPECT_EQ(0x04030201u, ReadLittle32(bytes, 0));
  EXPECT_EQ(0u, ReadLittle32(bytes, 1));
  EXPECT_EQ(0u, ReadLittle64(bytes, 0));
  EXPECT_EQ(0u, ReadLittle16(bytes, SIZE_MAX));
  std::uint8_t target[4] = {};
  WriteLittle32(0x11223344, 1, target);
  EXPECT_EQ(0, target[1]);
  WriteLittle16(0x1122, 2, target);
  EXPECT_EQ(0x22, target[2]);
  EXPECT_EQ(0x44332211u, SwapEndian32(0x11223344));
}

TEST(Text, OfOthersIsMadePrintable) {
  const std::pair<std::string_view, std::string_view> kTexts[] = {
      {"MORVU SSD", "MORVU SSD"},
      {"a\x1b[31mb\ac\n\x7f", "a [31mb c  "},
      {"\xC2\x9Bx", "??x"},
      {"<c:RED>a</c>", "?c:RED>a?/c>"},
      {"<C:red><C:", "?C:red>?C:"},
      {"a < b", "a < b"},
      {"TRANS_trans_1", "TRANS?trans?1"},
      {std::string_view("a\0b", 3), "a b"},
  };
  for (const auto& [text, printable] : kTexts) {
    EXPECT_EQ(printable, Printable(text));
    EXPECT_EQ(printable, StripMarkup(Printable(text)));
  }
}

TEST(Bytes, OfAtaStringsChangePlaces) {
  std::uint8_t text[] = {'B', 'A', 0x00, '{', 'z', '!'};
  SwapBytePairs(text);
  EXPECT_EQ("AB  !z", std::string(text, text + sizeof text));
}

// What a tool that is typed as another's is told: `-smart /dev/sda`.
TEST(Files, WriteToNoDrive) {
  Simulator::TestFleet fleet;
  auto drive = fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA1"});
  const auto before = drive.ReadMedium(0, 4096);
  for (const auto* node : {"/dev/sda", "/dev/sg0"}) {
    EXPECT_FALSE(SaveFile(node, "text", false)) << node;
    EXPECT_FALSE(SaveFile(node, "text", true)) << node;
  }
  EXPECT_EQ(before, drive.ReadMedium(0, 4096));
}

TEST(Files, AppearWholeWhereTheyAreWanted) {
  const auto folder = testing::TempDir() + "files-" + std::to_string(getpid());
  std::filesystem::create_directories(folder);
  const auto file = folder + "/file", link = folder + "/link";
  ASSERT_TRUE(SaveFile(file, "one", false));
  std::filesystem::permissions(file, std::filesystem::perms{0640});
  std::filesystem::create_symlink("file", link);
  ASSERT_TRUE(SaveFile(link, "two", false));
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ("two\n", ReadFileText(file));
  EXPECT_EQ(std::filesystem::perms{0640}, std::filesystem::status(file).permissions());
  ASSERT_TRUE(SaveFile(file, "three", true));
  EXPECT_EQ("two\nthree\n", ReadFileText(link));

  // A limit on files' sizes, as a full disk.
  rlimit old{};
  getrlimit(RLIMIT_FSIZE, &old);
  const rlimit small{4096, old.rlim_max};
  const auto before = signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  EXPECT_FALSE(SaveFile(file, std::string(8192, 'x'), false));
  setrlimit(RLIMIT_FSIZE, &old);
  signal(SIGXFSZ, before);
  EXPECT_EQ("two\nthree\n", ReadFileText(file));
  EXPECT_EQ(2, std::distance(std::filesystem::directory_iterator(folder), {}));
  std::filesystem::remove_all(folder);
}

// A disk is full when the last bytes go out: not in the writing, but in the closing.
TEST(Files, TellThatTheDiskIsFull) {
  EXPECT_FALSE(SaveFile("/dev/full", "text", false));
  const std::uint8_t bytes[] = {1, 2, 3};
  EXPECT_FALSE(SaveBinary("/dev/full", bytes, true));
}

TEST(Platform, RunsCommandsAndKnowsItsPlace) {
  std::vector<std::string> lines = {"before"};
  EXPECT_TRUE(RunCommand("printf 'a\\n\\nb'; exit 3", lines));
  EXPECT_EQ((std::vector<std::string>{"before", "a", "", "b"}), lines);
  EXPECT_EQ('/', GetExecutableDirectory().back());
  EXPECT_EQ(nullptr, LoadLibrary("/no/such/library.so"));
}

// Interrupts whatever this thread waits for, a thousand times a second.
class Interruptions {
 public:
  Interruptions() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, &old_);
    const itimerval each{{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &each, nullptr);
  }
  ~Interruptions() {
    const itimerval none{};
    setitimer(ITIMER_REAL, &none, nullptr);
    sigaction(SIGALRM, &old_, nullptr);
  }

 private:
  struct sigaction old_ {};
};

constexpr const char* kSlowLines = "for i in 1 2 3 4 5 6 7 8; do echo line $i; sleep 0.02; done";

TEST(RunCommandTest, LosesNoLineToSignals) {
  const Interruptions interruptions;
  std::vector<std::string> lines;
  EXPECT_TRUE(RunCommand(kSlowLines, lines));
  EXPECT_EQ(8u, lines.size());
  lines.clear();
  const Simulator::TestFleet fleet;
  EXPECT_TRUE(RunCommand(kSlowLines, lines));
  EXPECT_EQ(8u, lines.size());
}

TEST(RunCommandTest, SaysWhatCouldNotRun) {
  std::vector<std::string> lines = {"before"};
  EXPECT_FALSE(RunCommand("/no/such/command 2>/dev/null", lines));
  EXPECT_FALSE(RunCommand("echo lost; kill -9 $$", lines));
  EXPECT_FALSE(RunCommand("/etc/passwd 2>/dev/null", lines));
  EXPECT_EQ(std::vector<std::string>{"before"}, lines);
  EXPECT_TRUE(RunCommand("false", lines));
}

TEST(RunCommandTest, RunsInOneLanguageAndFindsTheAdministratorsTools) {
  const std::string path = getenv("PATH");
  setenv("LC_ALL", "de_DE.UTF-8", 1);
  setenv("PATH", "/nowhere", 1);
  std::vector<std::string> lines;
  EXPECT_TRUE(RunCommand("echo $LC_ALL; ls -d /", lines));
  unsetenv("LC_ALL");
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ((std::vector<std::string>{"C", "/"}), lines);
}

}  // namespace
}  // namespace Morvu
