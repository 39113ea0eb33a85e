// Logs that are read as they are: the commands that read them, what reaches the file, and what
// a header that lies leads to.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VendorLogs.h"
#include "devices/properties/AdapterProperties.h"
#include "devices/properties/ProductProperties.h"
#include "frame/Bytes.h"
#include "frame/Files.h"
#include "frame/status/Commands.h"
#include "frame/status/Files.h"
#include "frame/status/Health.h"
#include "parsers/logs/Log.h"
#include "parsers/logs/ReadLog.h"
#include "support/SettingScene.h"

namespace Morvu {
namespace {

using Bytes = std::vector<std::uint8_t>;
using EraseTesting::CallMethod;
using EraseTesting::NvmeSpec;
using Simulator::Fault;
using Simulator::MakeNlog;
using Simulator::MakeNvmeNlog;
using Simulator::NlogEntry;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr int kReadGplLog = 0x2F, kReadSector = 0xC8, kReadNvmeLog = 0xD2;

Simulator::DriveSpec LogSpec(std::string firmware = "D2010370") {
  auto spec = EraseTesting::SataSpec();
  spec.firmware = std::move(firmware);
  return spec;
}

class LogScene : public Testing::SettingScene {
 public:
  explicit LogScene(const Simulator::DriveSpec& spec) : SettingScene(spec) { drive.ClearJournal(); }

  std::string Path() const { return fleet.Folder() + "/log"; }
  Bytes File() const { return ReadFileBytes(Path()).value_or(Bytes()); }
  // The option, with the file and more words.
  StatusCode Read(const std::string& option, std::vector<std::string> words = {}) {
    words.insert(words.begin(), {option, Path()});
    const auto line = Line(words);
    output = line.output;
    return line.code;
  }
  void Replace(const Bytes& log) {
    if (drive.State().kind == Simulator::Kind::Nvme) {
      drive.SetVendorLog(0, log);
    } else {
      drive.SetLog(0xDF, log);
    }
  }

  std::string output;
};

// ---- Which page ----

TEST(DeviceLogs, StandAtThePagesOfTheirProductAndRevision) {
  struct Page {
    std::string_view product, firmware;
    int event, nlog;
  };
  // clang-format off
  constexpr Page kPages[] = {
      {"Cobbenrath",      "D2010310", 0xD1, 0xD1}, {"Cobbenrath",      "D2010311", 0xD1, 0xDF},
      {"Cobbenrath",      "D2010360", 0xD1, 0xDF}, {"Cobbenrath",      "D2010361", 0xDE, 0xDF},
      {"Cobbenrath Lisk", "D201",     0xD1, 0xD1}, {"Cobbenrath Lisk", "D2010361", 0xDE, 0xDF},
      {"Vorsham",         "D2010253", 0xD1, 0xD1}, {"VORSHAM3",        "D2010267", 0xD1, 0xDF},
      {"Vorsham3",        "D2010268", 0xDE, 0xDF}, {"Marrow Fell",     "D2019999", 0xD1, 0xDF},
      {"Cobbenrath HD",   "D2010013", 0xDE, 0xDF}, {"Cobbenrath M2",   "D2010014", 0xB9, 0xBA},
      {"OxbrennSE L95",   "D2010014", 0xB9, 0xBA}, {"Oxbrenn 10",      "",         0xDE, 0xDF},
      {"Oxbrenn 3",       "D2010014", 0xB9, 0xBA}, {"Quessel",         "",         0xDE, 0xDF},
  };
  // clang-format on
  for (const auto& page : kPages) {
    EXPECT_EQ(ReadLog::EventLog_ATA(page.product, page.firmware).address, page.event)
        << page.product << page.firmware;
    EXPECT_EQ(ReadLog::Nlog_ATA(page.product, page.firmware).address, page.nlog)
        << page.product << page.firmware;
  }
}

TEST(DeviceLogs, AreRefusedInOrder) {
  namespace Properties = DeviceManagement::Properties;
  LogScene scene(LogSpec());
  auto& drive = *scene.device();
  const auto codes = [&] {
    return std::pair(ReadLog::ReadLog(&drive, 0, 0, 1).GetErrorCode().Value(),
                     ReadLog::ReadLog_Nlog(&drive).GetErrorCode().Value());
  };
  EXPECT_EQ(codes(), std::pair(1, 1));
  drive.AddProperty(Properties::ErrorString, "ASSERT");
  EXPECT_EQ(codes(), std::pair(1, 252));
  drive.AddProperty(Properties::Product, "Quessel");
  EXPECT_EQ(codes(), std::pair(1, 118));
  drive.AddProperty(Properties::Morvu, false);
  EXPECT_EQ(codes(), std::pair(45, 45));
  drive.AddProperty(Properties::RAID, true);
  EXPECT_EQ(codes(), std::pair(97, 97));
  drive.AddProperty(Properties::MorvuRAID, true);
  EXPECT_EQ(codes(), std::pair(1, 118));
  scene.drive.Inject(Fault::Vanish());
  EXPECT_EQ(codes(), std::pair(4, 4));
}

// ---- The Event Log ----

// Of a drive with sectors of 4,096 bytes too: a log counts in blocks of 512.
TEST(EventLog, OfASataDriveIsReadBlockByBlock) {
  for (const std::uint32_t sectorSize : {512, 4096}) {
    auto spec = LogSpec();
    spec.sectorSize = sectorSize;
    LogScene scene(spec);
    EXPECT_EQ(scene.Read("-read_eventlog"), Status::Completed) << scene.output;
    const auto file = scene.File();
    ASSERT_EQ(file.size(), 0x660000U);
    for (std::uint32_t block = 0; block < file.size() / 512; ++block) {
      ASSERT_EQ(ReadLittle32(file, block * 512), block);
    }
    const auto reads = scene.Commands(kReadGplLog);
    ASSERT_EQ(reads.size(), 103U);
    EXPECT_EQ(reads.front().Lba(), 0U);
    for (std::size_t i = 1; i < reads.size(); ++i) {
      ASSERT_EQ(reads[i].Lba(), 0xDEU);
      ASSERT_EQ(reads[i].Count(), 0x80);
      ASSERT_EQ(reads[i].transferLength, 0x10000U);
    }
  }
}

TEST(EventLog, OfAnNvmeDriveIsAsLongAsItsHeaderTells) {
  LogScene scene(NvmeSpec());
  EXPECT_EQ(scene.Read("-read_eventlog"), Status::Completed);
  EXPECT_EQ(scene.File(), Simulator::BuiltInNvmeEventLog());
  std::vector<std::uint32_t> sizes, offsets;
  for (const auto& read : scene.Commands(kReadNvmeLog)) {
    EXPECT_EQ(read.NvmeNamespace(), 1U);
    EXPECT_EQ(read.Cdw(12), 1U);
    sizes.push_back(read.Cdw(10));
    offsets.push_back(read.Cdw(13));
  }
  EXPECT_THAT(sizes, ElementsAre(0x400, 0x400, 0x400, 452));
  EXPECT_THAT(offsets, ElementsAre(0, 0, 0x400, 0x800));
}

TEST(EventLog, WithASizeThatCannotBeIsRefusedAndWritesNoFile) {
  for (const std::uint32_t words : {0U, (64U << 20) / 4 + 1, 0xFFFFFFFFU}) {
    LogScene scene(NvmeSpec());
    Bytes log(4096);
    WriteLittle32(words, 8, log);
    scene.drive.SetVendorLog(1, log);
    EXPECT_TRUE(SaveBinary(scene.Path(), Bytes{7}, false));
    EXPECT_EQ(scene.Read("-read_eventlog"), Status::FailureInLog);
    EXPECT_EQ(scene.File(), Bytes{7});
    EXPECT_EQ(scene.Commands(kReadNvmeLog).size(), 1U);
  }
}

// ---- The NLog ----

constexpr NlogEntry kAll[] = {{0, 3},   {1, 2},  {2, 1},  {3, 0},   {4, 200},
                              {5, 300}, {12, 1}, {13, 1}, {16, 5},  {17, 9},
                              {18, 0},  {19, 1}, {20, 1}, {21, 30}, {22, 7}};
constexpr NlogEntry kKept[] = {{0, 3}, {5, 300}, {12, 1}, {17, 9}, {18, 0}, {20, 1}, {22, 7}};
constexpr NlogEntry kNoneKept[] = {{1, 40}, {21, 0}};

TEST(Nlog, KeepsTheEntriesThatAreWanted) {
  struct Image {
    Bytes log, kept;
  };
  // The last one ends in a block that the size in its header does not reach.
  constexpr NlogEntry kLate[] = {{5, 115}};
  const Image images[] = {{MakeNlog(kAll), MakeNlog(kKept)},
                          {MakeNlog(kNoneKept), MakeNlog({})},
                          {MakeNlog({}), MakeNlog({})},
                          {MakeNlog(kLate), MakeNlog(kLate)}};
  ASSERT_EQ((images[3].log.size() - 1) / 512, (images[3].log.size() - 20 - 1) / 512 + 1);
  for (const auto& image : images) {
    LogScene scene(LogSpec());
    scene.Replace(image.log);
    EXPECT_EQ(scene.Read("-read_nlog"), Status::Completed) << scene.output;
    EXPECT_EQ(scene.File(), image.kept);
  }
  const Bytes inner[] = {MakeNlog(kAll), MakeNlog(kNoneKept)};
  const Bytes innerKept[] = {MakeNlog(kKept), MakeNlog({})};
  for (const std::size_t count : {1, 2}) {
    LogScene scene(NvmeSpec());
    scene.Replace(MakeNvmeNlog(std::span(inner).first(count)));
    EXPECT_EQ(scene.Read("-read_nlog"), Status::Completed) << scene.output;
    EXPECT_EQ(scene.File(), MakeNvmeNlog(std::span(innerKept).first(count)));
    EXPECT_EQ(scene.Commands(kReadNvmeLog).at(1).Cdw(13), 0x400U);
  }
  // The second image may stand in front of the first.
  const Bytes turned[] = {inner[1], inner[0]};
  auto image = MakeNvmeNlog(turned);
  for (const std::size_t word : {4, 6}) {
    std::swap_ranges(&image[word * 4], &image[word * 4 + 4], &image[word * 4 + 4]);
  }
  image.resize(ReadLog::FilterNlog_NVMe(image).size);
  EXPECT_EQ(image, MakeNvmeNlog(innerKept));
}

// A word of the image is another.
struct Lie {
  bool isNvme;
  std::size_t word;
  std::uint32_t value;
  StatusCode code;
  bool hasFile;  // with the image as the drive gave it
};

constexpr std::uint32_t kInner = 4096 / 4;  // where the first image of the NVMe form begins
const std::uint32_t kSecond = kInner + static_cast<std::uint32_t>(MakeNlog(kAll).size()) / 4;
constexpr StatusCode kBad = Status::UnexpectedNlog, kGood = Status::Completed;
TEST(NlogLies, EndWithACodeAndTheWholeImageOrNone) {
  // clang-format off
  const Lie kRows[] = {
    // NumNlogs, TotalBytes, HeaderBytes, BufSize of the first entry
    {false, 1,  0xFFFFFFFF, kBad, true},  {false, 1, 64, kBad, true},
    {false, 2,  0xFFFFFFFF, kBad, false}, {false, 2, 31, kBad, false},
    {false, 3,  56, kGood, true},         {false, 16, 0x3FFFFFFF, kBad, true},
    {false, 16, 0x40000003, kBad, true},
    // first and last position, number of images, their sizes and positions
    {true, 1, 0xFFFFFFFF, kBad, false}, {true, 2, kInner - 1, kBad, false},
    {true, 2, 0xFFFFFFFF, kBad, false}, {true, 3, 0, kGood, true},
    {true, 3, 3, kGood, true},          {true, 4, 0x40000000, kBad, true},
    {true, 5, 0xFFFFFFFF, kBad, true},  {true, 6, 0, kBad, true},
    {true, 6, 0xFFFFFFFF, kBad, true},  {true, 7, kInner + 1, kBad, true},
    {true, 7, kSecond + 1, kBad, true}, {true, kInner + 1, 0xFFFFFFFF, kBad, true},
  };
  // clang-format on
  for (const auto& row : kRows) {
    SCOPED_TRACE(::testing::Message()
                 << (row.isNvme ? "NVMe" : "ATA") << " word " << row.word << " = " << row.value);
    const auto& lie = row;
    LogScene scene(lie.isNvme ? NvmeSpec() : LogSpec());
    const Bytes inner[] = {MakeNlog(kAll), MakeNlog(kKept)};
    auto image = lie.isNvme ? MakeNvmeNlog(inner) : MakeNlog(kAll);
    WriteLittle32(lie.value, lie.word * 4, image);
    scene.Replace(image);
    EXPECT_TRUE(SaveBinary(scene.Path(), Bytes{7}, false));
    EXPECT_EQ(scene.Read("-read_nlog"), lie.code) << scene.output;
    auto file = scene.File();
    if (!lie.hasFile) image = {7};
    if (lie.hasFile && !lie.isNvme) image.resize((image.size() + 511) / 512 * 512);
    EXPECT_EQ(file, image);
  }
}

// ---- Any log ----

TEST(Gpl, TakesDecimalAndHexadecimalWithinTheirLimits) {
  struct Words {
    std::vector<std::string> words;
    std::string_view error;  // empty: a good run
    std::uint64_t lba = 0;
    std::uint32_t count = 1;
  };
  const Words kLines[] = {
      {{}, ""},
      {{"0x30", "1"}, "", 0x130},
      {{"48", "0X0", "0x2"}, "", 0x30, 2},
      {{"x"}, "Error: The log address should be a decimal or hex value."},
      {{"0x"}, "Error: The log address should be a decimal or hex value."},
      {{"256"}, "Error: The max allowed value for log address is 255 (0xFF)."},
      {{"0x1000000000000000000000"}, "Error: The max allowed value for log address is 255"},
      {{"0", "1 "}, "Error: The page number should be a decimal or hex value."},
      {{"0", "65536"}, "Error: The max allowed value for page number is 65535 (0xFFFF)."},
      {{"0", "0", "0"}, "Error: The number of sectors must be at least 0x01 and no more than"},
      {{"0", "0", "0x10000"}, "Error: The number of sectors must be at least 0x01 and no more"},
      {{"0", "0", "one"}, "Error: The number of sectors must be at least 0x01 and no more than"},
  };
  for (const auto& line : kLines) {
    LogScene scene(LogSpec());
    EXPECT_EQ(scene.Read("-read_gpl", line.words),
              line.error.empty() ? Status::Completed : Status::InvalidArguments)
        << scene.output;
    const auto reads = scene.Commands(kReadGplLog);
    EXPECT_EQ(reads.empty(), !line.error.empty());
    EXPECT_THAT(scene.output, HasSubstr(line.error));
    if (reads.empty()) continue;
    EXPECT_EQ(reads.back().Lba(), line.lba);
    EXPECT_EQ(reads.back().Count(), static_cast<int>(line.count));
    EXPECT_EQ(scene.File().size(), line.count * 512);
    EXPECT_EQ(ReadLittle16(scene.File(), 0), line.lba == 0x130 ? 0x0040 : 1);
  }
  LogScene scene(LogSpec());
  EXPECT_EQ(scene.Line({"-read_gpl", ""}).code, Status::InvalidArguments);
  using EraseTesting::MethodParameters;
  for (const auto& [name, value] : {std::pair{"LogAddress", "256"}, {"Sectors", "65536"}}) {
    EXPECT_EQ(CallMethod(*scene.device(), "ReadLog", MethodParameters{{name, value}}),
              Status::InvalidArguments);
  }
  EXPECT_TRUE(scene.Commands(kReadGplLog).empty());
}

TEST(Gpl, WarnsOfMoreBlocksThanACommandNames) {
  LogScene scene(LogSpec());
  EXPECT_EQ(scene.Read("-read_gpl", {"0xDE", "3", "300"}), Status::Completed);
  EXPECT_THAT(scene.output, HasSubstr("WARNING!"));
  const auto reads = scene.Commands(kReadGplLog);
  ASSERT_EQ(reads.size(), 3U);
  EXPECT_EQ(reads[1].Count(), 255);
  EXPECT_EQ(reads[2].Count(), 45);
  for (const auto i : {1, 2}) EXPECT_EQ(reads[i].Lba(), 0x3DEU);
  EXPECT_EQ(scene.Read("-read_gpl", {"0xDE", "3", "255"}), Status::Completed);
  EXPECT_THAT(scene.output, Not(HasSubstr("WARNING!")));
}

TEST(Gpl, OfAnNvmeDriveIsOneOfFourLogs) {
  LogScene scene(NvmeSpec());
  EXPECT_EQ(scene.Read("-read_gpl", {"5", "0", "20"}), Status::Completed);
  EXPECT_THAT(scene.output, HasSubstr("log 1 was read"));
  auto expected = Simulator::BuiltInNvmeEventLog();
  expected.resize(20 * 512);
  EXPECT_EQ(scene.File(), expected);
}

// A drive whose last command failed may fail the first read behind it.
TEST(Gpl, ClearsAnErrorBeforeItReads) {
  LogScene scene(LogSpec());
  scene.drive.Inject(Fault::Fail().OnOpcode(kReadGplLog).Times(1));
  ASSERT_EQ(scene.Read("-read_gpl", {"0x11"}), Status::Completed);
  std::vector<int> opcodes;
  for (const auto& command : scene.drive.Journal()) {
    const auto opcode = command.Opcode();
    if (opcode == kReadGplLog || opcode == kReadSector) opcodes.push_back(opcode);
  }
  // The scan has read a sector before.
  EXPECT_THAT(opcodes,
              ElementsAre(kReadSector, kReadGplLog, kReadSector, kReadGplLog, kReadGplLog));
}

// ---- Where it goes ----

TEST(DeviceLogs, AreSavedWholeOrNotAtAll) {
  LogScene scene(LogSpec());
  EXPECT_EQ(scene.Line({"-read_gpl", "/dev/full"}).code, Status::FileNotWritten);
  EXPECT_TRUE(SaveBinary(scene.Path(), Bytes{7}, false));
  scene.drive.Inject(Fault::Fail().OnOpcode(kReadGplLog).OnCommand(2));
  EXPECT_NE(scene.Read("-read_eventlog"), Status::Completed);
  EXPECT_EQ(scene.File(), Bytes{7});
  scene.drive.ClearFaults();
  // By a symbolic link, and by message.
  const auto link = scene.fleet.Folder() + "/link";
  std::filesystem::create_symlink(scene.Path(), link);
  EXPECT_EQ(CallMethod(*scene.device(), "ReadLog", {{"file", link}}), Status::Completed);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(scene.File().size(), 512U);
  EXPECT_EQ(CallMethod(*scene.device(), "ReadLog", {{"file", "/dev/full"}}),
            Status::FileNotWritten);
}

TEST(DeviceLogs, ReachAHostInTheReply) {
  LogScene scene(LogSpec());
  XmlMessaging::Message reply;
  EXPECT_EQ(CallMethod(*scene.device(), "ReadLog", {{"LogAddress", "0xDE"}}, NoReporter(), &reply),
            Status::Completed);
  ASSERT_EQ(reply.properties.size(), 1U);
  const auto& data = *reply.properties.front();
  EXPECT_EQ(data.GetAttribute("name"), "data");
  EXPECT_EQ(data.GetAttribute("type"), "binary");
  EXPECT_EQ(data.GetAttribute("key"), "GPL");
  EXPECT_EQ(data.value.size(), 684U);
  EXPECT_EQ(data.value.substr(0, 8), "AAAAAAAA");
  EXPECT_EQ(data.value.substr(676), "AP////8=");
}

}  // namespace
}  // namespace Morvu
