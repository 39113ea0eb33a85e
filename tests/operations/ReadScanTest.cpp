// Read scans of each kind of drive, looked at where the reads reach it.
#include <gmock/gmock.h>

#include <algorithm>

#include "devices/commands/CommandPath_ATA_SCSI.h"
#include "devices/model/DriveHold.h"
#include "devices/properties/BasicProperties.h"
#include "frame/RandomNumbers.h"
#include "operations/testing/ReadScan.h"
#include "support/EraseScene.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using namespace Testing;
using Simulator::Fault;
using Simulator::Kind;
using Simulator::SenseFormat;
using testing::HasSubstr;
namespace Properties = DeviceManagement::Properties;

struct Span {
  std::uint64_t lba, count;
  auto operator<=>(const Span&) const = default;
};

// The reads of a drive, in blocks; those of the transfers by the disk must pass the page cache.
std::vector<Span> ListReads(const std::vector<Simulator::JournalEntry>& journal, std::uint32_t size,
                            bool goodOnes = true) {
  std::vector<Span> reads;
  for (const auto& command : journal) {
    if (goodOnes && !command.Succeeded()) continue;
    if (command.IsRaw()) {
      EXPECT_TRUE(command.IsDirect());
      EXPECT_EQ(command.Opcode(), 'R');
      reads.push_back({command.RawOffset() / size, command.transferLength / size});
    } else if (command.AtaOpcode() == 0xC8 || command.AtaOpcode() == 0x25) {
      const bool isWide = command.AtaOpcode() == 0x25;
      const auto device = std::uint64_t{command.Device()} & 0x0F;
      reads.push_back(
          {isWide ? command.Lba() : command.Lba() | device << 24, command.transferLength / size});
      EXPECT_GE(command.timeoutMs, 30'000u);
    }
  }
  return reads;
}

Simulator::DriveSpec With(Simulator::DriveSpec spec, std::uint64_t sectors,
                          std::uint32_t size = 512) {
  spec.sectors = sectors;
  spec.sectorSize = size;
  return spec;
}

struct FullScan : MethodScene {
  explicit FullScan(const Simulator::DriveSpec& spec)
      : MethodScene(spec, "ReadScan", {{"full", "True"}}) {
    shape = [](auto& device) { device.AddProperty(Properties::Morvu, true); };
  }
};

// A plan on a drive of any size, whose medium is sparse.
struct PlanScene : DriveScene {
  PlanScene(const Simulator::DriveSpec& spec, const ReadScanPlan& made)
      : DriveScene(spec), plan(made) {}
  void Prepare() override {
    DriveScene::Prepare();
    device()->AddProperty(Properties::Morvu, true);
  }
  StatusCode Run(ProgressReporter& reporter) override {
    ReadScan scan(device(), plan, reporter);
    if (scan.GetErrorCode() == Status::ReadyToRun) scan.Execute();
    findings = scan.GetFindings();
    return scan.GetErrorCode();
  }
  ReadScanPlan plan;
  ReadScan::Findings findings;
};
using PlanKind = ReadScanPlan::Kind;

TEST(ReadScan, AFullScanReadsEachBlockOnceToTheLastOne) {
  const Simulator::DriveSpec kSpecs[] = {With(SataSpec(), 1000),      With(SataSpec(), 2),
                                         With(SataSpec(), 600, 4096), With(SasSpec(), 1000),
                                         With(SasSpec(), 257, 4096),  With(NvmeSpec(), 1000)};
  for (const auto& spec : kSpecs) {
    SCOPED_TRACE(spec.serial + " " + std::to_string(spec.sectors));
    FullScan scene(spec);
    const auto run = RunScene(scene, nullptr, 0);
    EXPECT_EQ(run.code, 0);
    std::uint64_t next = 0;
    for (const auto& read : ListReads(run.commands, spec.sectorSize)) {
      EXPECT_EQ(read.lba, next);
      EXPECT_LE(read.count, 256u);
      next = read.lba + read.count;
    }
    EXPECT_EQ(next, spec.sectors);
    EXPECT_EQ(GetText(scene.reply, "BlocksRead"), std::to_string(spec.sectors));
    EXPECT_EQ(GetText(scene.reply, "FirstLBA"), "0");
    EXPECT_EQ(GetText(scene.reply, "LastLBA"), std::to_string(spec.sectors - 1));
    EXPECT_EQ(GetText(scene.reply, "FailingLBA"), "none");
    EXPECT_TRUE(std::ranges::is_sorted(run.percents));
    EXPECT_EQ(run.percents.back(), 100);
    EXPECT_TRUE(scene.IsUntouched());
  }
}

TEST(ReadScan, NamesTheFirstBadBlockWhateverTheLayerTells) {
  const std::vector<Simulator::DriveSpec> specs = [] {
    std::vector<Simulator::DriveSpec> made = {With(SataSpec(), 1000, 4096), SasSpec(), NvmeSpec(),
                                              With(SasSpec(), 1000, 4096)};
    for (const auto format :
         {SenseFormat::Descriptor, SenseFormat::FixedSat3, SenseFormat::FixedOldKernel}) {
      auto spec = With(SataSpec(), 1000);
      spec.senseFormat = format;
      made.push_back(spec);
    }
    return made;
  }();
  for (const auto& spec : specs) {
    FullScan scene(spec);
    scene.Prepare();
    for (const std::uint64_t bad : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{256},
                                    std::uint64_t{300}, spec.sectors - 1}) {
      SCOPED_TRACE(spec.serial + " " + std::to_string(static_cast<int>(spec.senseFormat)) + " " +
                   std::to_string(bad));
      scene.drive.ClearFaults();
      scene.drive.AddBadSectors(bad, std::min<std::uint64_t>(3, spec.sectors - bad));
      scene.reply.properties.clear();
      EXPECT_EQ(scene.Run(NoReporter()), 82);
      EXPECT_EQ(GetText(scene.reply, "FailingLBA"), std::to_string(bad));
    }
  }
}

TEST(ReadScan, NamesABadBlockBehind28BitsAndWhatCannotBeTold) {
  constexpr std::uint64_t kEdge = 0x1000'0000;
  for (const auto format :
       {SenseFormat::Descriptor, SenseFormat::FixedSat3, SenseFormat::FixedOldKernel}) {
    for (const auto bad : {kEdge - 1, kEdge, kEdge + 0x1234'5678}) {
      auto spec = With(SataSpec(), kEdge * 4);
      spec.senseFormat = format;
      PlanScene scene(spec, {.kind = PlanKind::Custom, .first = bad - 100, .last = bad + 300});
      scene.drive.AddBadSectors(bad);
      const auto run = RunScene(scene, nullptr, 0);
      EXPECT_EQ(run.code, 82);
      ASSERT_TRUE(scene.findings.failed);
      EXPECT_EQ(scene.findings.failed->first, bad);
      EXPECT_EQ(scene.findings.failed->second, bad);
    }
  }
  // Where the registers hold no address, or one outside of the read, block by block is read.
  for (const auto& error : {Fault::AtaError(0x51, 0x04), Fault::AtaError(0x51, 0x40, 999'999)}) {
    PlanScene scene(With(SataSpec(), 5000), {.kind = PlanKind::Custom, .first = 10, .last = 2000});
    scene.drive.AddBadSectors(77);
    auto fault = error;
    fault.OnOpcode(0xC8).OnCommand(2).Times(1);
    const auto run = RunScene(scene, &fault, 0);
    EXPECT_EQ(run.code, 82);
    EXPECT_EQ(scene.findings.failed, std::make_pair(std::uint64_t{77}, std::uint64_t{77}));
    EXPECT_LE(run.commands.size(), 80u);
  }
  // No block fails by itself: the whole read is named.
  PlanScene scene(With(SataSpec(), 5000), {.kind = PlanKind::Custom, .first = 10, .last = 2000});
  auto fault = Fault::AtaError(0x51, 0x04).OnOpcode(0xC8).OnCommand(2).Times(1);
  EXPECT_EQ(RunScene(scene, &fault, 0).code, 82);
  EXPECT_EQ(scene.findings.failed, std::make_pair(std::uint64_t{10}, std::uint64_t{265}));
}

// The INFORMATION field of a layer that hands no registers on.
TEST(ReadScan, TakesTheAddressOfAMediumErrorsSense) {
  const std::vector<std::uint8_t> fixed = {0xF0, 0, 3, 0,    0, 0, 99, 10, 0,
                                           0,    0, 0, 0x11, 4, 0, 0,  0,  0};
  const std::vector<std::uint8_t> descriptor = {0x72, 3, 0x11, 0, 0, 0, 0, 12, 0, 10,
                                                0x80, 0, 0,    0, 0, 0, 0, 0,  0, 99};
  for (const auto& sense : {fixed, descriptor}) {
    PlanScene scene(With(SataSpec(), 5000), {.kind = PlanKind::Custom, .first = 10, .last = 2000});
    auto fault = Fault::RawSense(0x02, sense).OnOpcode(0xC8).OnCommand(2).Times(1);
    EXPECT_EQ(RunScene(scene, &fault, 0).code, 82);
    EXPECT_EQ(scene.findings.failed, std::make_pair(std::uint64_t{99}, std::uint64_t{99}));
  }
}

TEST(ReadScan, ALostReadIsReadAgainInSmallerPiecesWithoutGapOrOverlap) {
  struct Row {
    Simulator::DriveSpec spec;
    Fault fault;
  };
  const std::uint8_t kParity[] = {0x70, 0, 0x0B, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x47, 3, 0, 0, 0, 0};
  const Row kRows[] = {
      {With(SataSpec(), 1000), Fault::HostError(0x07)},
      {With(SataSpec(), 1000), Fault::AtaError(0x51, 0x84)},
      {With(SataSpec(), 1000), Fault::RawSense(0x02, kParity)},
      {With(SataSpec(), 1000), Fault::IoctlError(EIO)},
      {With(SataSpec(), 1000), Fault::Hang()},
      {With(SasSpec(), 1000), Fault::IoctlError(EIO)},
      {With(SasSpec(), 1000), Fault::ShortData(512)},
      {With(NvmeSpec(), 1000), Fault::Hang()},
  };
  for (const auto& row : kRows) {
    const bool isAta = row.spec.kind == Kind::Ata;
    // The third read of the range, and of the next ones the first again: 256 blocks, 127, one.
    for (const bool isTwice : {false, true}) {
      SCOPED_TRACE(row.spec.serial + " " + std::to_string(&row - kRows) +
                   (isTwice ? " twice" : ""));
      PlanScene scene(row.spec, {.kind = PlanKind::Custom, .first = 0, .last = 900});
      const auto set = [&](Fault fault, std::uint32_t n, std::uint32_t times) {
        if (isAta) {
          fault.OnOpcode(0xC8);
        } else {
          fault.OnOpcode('R', Simulator::CommandClass::Raw);
        }
        scene.drive.Inject(fault.OnCommand(n).Times(times));
      };
      scene.Prepare();
      scene.drive.ClearJournal();
      set(row.fault, 4, isTwice ? 2 : 1);
      RecordingReporter reporter;
      const auto code = scene.Run(reporter);
      auto reads = ListReads(scene.drive.Journal(), 512);
      if (isTwice) {
        EXPECT_EQ(code, 3);
        EXPECT_EQ(scene.findings.failed, std::make_pair(std::uint64_t{512}, std::uint64_t{638}));
        continue;
      }
      EXPECT_EQ(code, 0);
      // A short read has no error in the journal: the piece that was read again covers it.
      std::erase_if(reads, [&](const Span& read) { return read == Span{512, 256}; });
      const std::vector<Span> expected = {{0, 1},     {0, 256},   {256, 256}, {512, 127},
                                          {639, 127}, {766, 127}, {893, 7}};
      EXPECT_EQ(reads, expected);
    }
  }
}

// One scan's lost read slows no other scan.
TEST(ReadScan, EachScanBeginsWithItsOwnCount) {
  PlanScene scene(With(SataSpec(), 1000), {.kind = PlanKind::Custom, .first = 0, .last = 512});
  scene.Prepare();
  for (const std::size_t expected : {std::size_t{6}, std::size_t{3}}) {
    scene.drive.ClearJournal();
    if (expected == 6)
      scene.drive.Inject(Fault::HostError(0x07).OnOpcode(0xC8).OnCommand(2).Times(1));
    EXPECT_EQ(scene.Run(NoReporter()), 0);
    EXPECT_EQ(ListReads(scene.drive.Journal(), 512).size(), expected);
  }
}

TEST(ReadScan, ARandomScanStaysOnTheDriveAndItsSeedRepeatsIt) {
  std::vector<Span> first;
  for (int i = 0; i < 2; ++i) {
    PlanScene scene(With(SataSpec(), 700), {.count = 5000, .seed = 42});
    const auto run = RunScene(scene, nullptr, 0);
    EXPECT_EQ(run.code, 0);
    auto reads = ListReads(run.commands, 512);
    std::uint64_t blocks = 0;
    for (const auto& read : reads) {
      EXPECT_TRUE(read.count >= 1 && read.lba + read.count <= 700) << read.lba;
      blocks += read.count;
    }
    EXPECT_EQ(blocks, 5001u);  // and block 0
    if (i == 0) first = reads;
    EXPECT_EQ(reads, first);
  }
  RandomNumbers numbers(1);
  std::array<int, 3> seen{};
  for (int i = 0; i < 3000; ++i) ++seen[numbers.Below(3)];
  EXPECT_TRUE(std::ranges::all_of(seen, [](int times) { return times > 900; }));
}

TEST(ReadScan, WhatReadsNothingIsNoSuccess) {
  struct Row {
    std::vector<std::string> words;
    int code;
    const char* line;
    std::size_t reads;
  };
  const Row kRows[] = {
      {{"full", "fast"}, 73, "Non-numerical values", 0},
      {{"10", "10"}, 73, "ending LBA must be greater", 0},
      {{"1", "2", "3"}, 73, "Too many arguments", 0},
      {{"quick"}, 73, "neither fast, full nor", 0},
      {{"18446744073709551616"}, 73, "neither fast, full nor", 0},
      {{"0", "18446744073709551616"}, 73, "Non-numerical", 0},
      {{"0"}, 73, "Nothing was read: the number of LBAs is 0", 0},
      {{"512", "600"}, 73, "the drive's last LBA is 511", 0},
      {{"500", "9999999"}, 0, "ends with the drive's last LBA, 511", 2},
      {{"10"}, 0, "Read 10 LBAs", 2},
      {{"5", "7"}, 0, "Read 2 LBAs, LBA 5 to 6", 2},
  };
  for (const auto& row : kRows) {
    auto words = row.words;
    words.insert(words.begin(), "-read_scan");
    LineScene scene(SataSpec(), words);
    EXPECT_EQ(scene.Run(), row.code);
    EXPECT_THAT(scene.outcome.output, HasSubstr(row.line));
    auto journal = scene.drive.Journal();
    std::erase_if(journal, [](const auto& command) { return command.timeoutMs < 30'000; });
    const auto reads = ListReads(journal, 512).size();
    EXPECT_EQ(row.reads, std::min<std::size_t>(reads, 2)) << reads;
  }
  LineScene bad(SataSpec(), {"-read_scan", "full"});
  bad.drive.AddBadSectors(300);
  EXPECT_EQ(bad.Run(), 82);
  EXPECT_THAT(bad.outcome.output, HasSubstr("Failed reading LBA 300."));
}

TEST(ReadScan, TellsWhyADriveReadsNothing) {
  LineScene locked(SataSpec(), {"-read_scan", "full"});
  locked.drive.State().ata.security.enabled = 1;
  locked.drive.State().ata.security.locked = 1;
  EXPECT_EQ(locked.Run(), 82);
  EXPECT_THAT(locked.outcome.output, HasSubstr("Failed reading LBA 0."));
  EXPECT_THAT(locked.outcome.output, HasSubstr("locked by a password"));
}

TEST(ReadScan, TellsOfASanitizeInProgress) {
  for (const auto& spec : {SasSpec(), NvmeSpec()}) {
    LineScene scene(spec, {"-read_scan", "full"});
    scene.drive.Inject(Fault::IoctlError(EIO).OnOpcode('R', Simulator::CommandClass::Raw));
    const bool isSas = spec.kind == Kind::Scsi;
    for (const bool isSanitizing : {true, false}) {
      if (!isSanitizing) {
        scene.drive.ClearFaults();
        scene.drive.Inject(Fault::IoctlError(EIO).OnOpcode('R', Simulator::CommandClass::Raw));
      } else if (isSas) {
        scene.drive.Inject(Fault::ScsiError(0x02, 0x02, 0x04, 0x1B).OnOpcode(0x00));
      }
      if (!isSas) scene.drive.SetLog(0x81, {0, 0, static_cast<std::uint8_t>(isSanitizing ? 2 : 1)});
      EXPECT_EQ(scene.Run(), isSanitizing ? 82 : 3) << spec.serial << scene.outcome.output;
      EXPECT_EQ(isSanitizing, scene.outcome.output.find("sanitize is in") != std::string::npos);
    }
  }
}

// Sees what others may do while the scan goes on.
struct Onlooker : SilentReporter {
  explicit Onlooker(MethodScene& made) : scene(made) {}
  void SetPercent(std::int32_t) override {
    if (hasLooked) return;
    hasLooked = true;
    const auto before = scene.fleet.Now();
    EXPECT_EQ(CallMethod(*scene.device(), "SecureErase", {{"force", "True"}}), 180);
    EXPECT_EQ(CallMethod(*scene.device(), "DriveSelfTest", {{"SelfTest", "short"}}), 180);
    EXPECT_LT(scene.fleet.Now() - before, 1000u) << "at once, without the patience of a lock";
    EXPECT_EQ(CallMethod(*scene.device(), "SmartParser"), 0);
    EXPECT_EQ(CallMethod(*scene.device(), "ReadScan", {{"full", "True"}}), 0);
  }
  MethodScene& scene;
  bool hasLooked = false;
};

TEST(ReadScan, KeepsSequencesOffAndLetsOthersRead) {
  FullScan scene(SataSpec());
  scene.Prepare();
  Onlooker onlooker(scene);
  EXPECT_EQ(scene.Run(onlooker), 0);
  EXPECT_TRUE(onlooker.hasLooked);
  EXPECT_TRUE(scene.IsUntouched());
  const DeviceManagement::DriveHold hold(*scene.device(),
                                         DeviceManagement::DriveHold::Kind::Sequence);
  EXPECT_EQ(scene.Run(NoReporter()), 180);
}

}  // namespace
}  // namespace Morvu
