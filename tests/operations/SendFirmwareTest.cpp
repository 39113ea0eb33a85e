// What a firmware update sends: the download commands byte by byte, in order.
#include <gtest/gtest.h>

#include <algorithm>

#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"
#include "devices/properties/FirmwareProperties.h"
#include "devices/properties/ProductProperties.h"
#include "frame/status/Drives.h"
#include "frame/status/Firmware.h"
#include "frame/status/Requests.h"
#include "support/FirmwareScene.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace Testing;
using DeviceManagement::Device;
using Simulator::JournalEntry;
namespace Properties = DeviceManagement::Properties;

// The entries of some opcodes, in the order in which they were sent.
std::vector<JournalEntry> Pick(const std::vector<JournalEntry>& journal,
                               std::initializer_list<int> opcodes) {
  std::vector<JournalEntry> picked;
  for (const auto& entry : journal) {
    if (std::ranges::find(opcodes, entry.Opcode()) != opcodes.end()) picked.push_back(entry);
  }
  return picked;
}

// The digest of `size` bytes of the image from `offset` on, zeros behind its end.
std::uint64_t PieceDigest(const ByteVector& image, std::size_t offset, std::size_t size) {
  ByteVector piece(size);
  const auto end = std::min(image.size(), offset + size);
  std::copy(image.begin() + static_cast<std::ptrdiff_t>(offset),
            image.begin() + static_cast<std::ptrdiff_t>(end), piece.begin());
  return Simulator::Digest(piece.data(), piece.size());
}

// ---- ATA ----

struct AtaCase {
  const char* name;
  std::size_t size;  // of the image
  std::vector<std::uint32_t> blocks;
  std::vector<const PropertyEntry*> set = {};  // what is true of the drive
  const char* driver = "";
};

class AtaDownloadTest : public testing::TestWithParam<AtaCase> {};

TEST_P(AtaDownloadTest, SendsTheImageInSegments) {
  FirmwareScene scene(SataSpec(), GetParam().size);
  scene.shape = [](Device& device) {
    for (const auto* entry : GetParam().set) device.AddProperty(*entry, true);
    device.AddProperty(Properties::DriverManufacturer, GetParam().driver);
  };
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, Status::Completed);

  const auto downloads = Pick(run.commands, {0x92});
  ASSERT_EQ(downloads.size(), GetParam().blocks.size());
  std::uint32_t offset = 0;
  for (std::size_t i = 0; i < downloads.size(); ++i) {
    SCOPED_TRACE(downloads[i].Text());
    const auto blocks = GetParam().blocks[i];
    EXPECT_EQ(downloads[i].Features(), 0x03);
    EXPECT_EQ(downloads[i].Count(), blocks & 0xFF);
    EXPECT_EQ(downloads[i].Lba(), blocks >> 8 | offset << 8);
    EXPECT_EQ(downloads[i].Device(), 0x40);
    EXPECT_FALSE(downloads[i].IsExtended());
    EXPECT_EQ(downloads[i].direction, Simulator::Direction::ToDevice);
    EXPECT_EQ(downloads[i].transferLength, blocks * 512);
    EXPECT_EQ(downloads[i].dataDigest, PieceDigest(scene.image, offset * 512, blocks * 512));
    EXPECT_EQ(downloads[i].timeoutMs, 10'000u);
    offset += blocks;
  }
  EXPECT_EQ(scene.GetRevision(), kNewRevision);
  EXPECT_TRUE(scene.IsMediumUntouched());
}

INSTANTIATE_TEST_SUITE_P(
    Images, AtaDownloadTest,
    testing::Values(
        AtaCase{"OneBlock", 512, {1}}, AtaCase{"PartOfABlock", 29, {1}},
        AtaCase{"OneChunk", 256 * 512, {256}}, AtaCase{"OneBlockMore", 257 * 512, {256, 1}},
        AtaCase{"OneByteMore", 256 * 512 + 1, {256, 1}},
        AtaCase{"ThreeChunks", 600 * 512 - 7, {256, 256, 88}},
        AtaCase{"IdeMode", 3 * 512 - 1, {1, 1, 1}, {&Properties::ControllerIDEMode}},
        AtaCase{"RaidAdapter",
                511 * 512,
                {255, 255, 1},
                {&Properties::RAIDMember, &Properties::ControllerIDEMode},
                "LSI API"},
        AtaCase{"AdapterWithoutRaid", 257 * 512, {256, 1}, {}, "LSI API"},
        AtaCase{"AdapterInIdeMode", 1024, {1, 1}, {&Properties::ControllerIDEMode}, "LSI API"},
        AtaCase{"RaidMemberElsewhere", 257 * 512, {256, 1}, {&Properties::RAIDMember}, "Other"}),
    [](const auto& test) { return test.param.name; });

// Opcode, and for SMART the subcommand.
std::vector<int> Steps(const std::vector<JournalEntry>& journal) {
  std::vector<int> steps;
  for (const auto& entry : Pick(journal, {0x92, 0xB0, 0xE0})) {
    if (entry.Opcode() == 0xB0 && entry.Features() != 0xD8 && entry.Features() != 0xD9) continue;
    steps.push_back(entry.Opcode() == 0xB0 ? entry.Features() : entry.Opcode());
  }
  return steps;
}

TEST(SendFirmwareAta, QuietsTheDriveRoundTheTransfer) {
  FirmwareScene scene(SataSpec());
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(Steps(run.commands), (std::vector<int>{0xD9, 0xE0, 0x92, 0x92, 0xE0, 0xD8}));
  EXPECT_EQ(run.percents, (std::vector<std::int32_t>{5, 8, 10, 70, 75, 85, 87, 90, 93, 100}));
  for (const auto& entry : Pick(run.commands, {0xE0})) EXPECT_EQ(entry.timeoutMs, 20'000u);
  EXPECT_TRUE(scene.drive.State().ata.smartEnabled);
  EXPECT_EQ(scene.device()->GetString(Properties::Firmware), kNewRevision);
}

TEST(SendFirmwareAta, SmartThatWasOffComesOn) {
  FirmwareScene scene(SataSpec());
  scene.drive.State().ata.smartEnabled = 0;
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(Steps(run.commands), (std::vector<int>{0xD8, 0xE0, 0x92, 0x92, 0xE0, 0xD8}));
}

TEST(SendFirmwareAta, BehindAnAdapterItOnlyDownloads) {
  for (const auto* entry : {&Properties::LSI, &Properties::RAIDMember}) {
    FirmwareScene scene(SataSpec());
    scene.shape = [&](Device& device) { device.AddProperty(*entry, true); };
    const auto run = RunScene(scene, nullptr, 0);
    EXPECT_EQ(run.code, Status::Completed);
    EXPECT_EQ(Steps(run.commands), (std::vector<int>{0x92, 0x92}));
    EXPECT_EQ(run.percents, (std::vector<std::int32_t>{5, 8, 10, 70, 75, 85, 90, 93, 100}));
  }
}

TEST(SendFirmwareAta, WaitsBeforeTheDriveIsAskedAgain) {
  FirmwareScene scene(SataSpec());
  scene.Prepare();
  const auto before = scene.fleet.Now();
  EXPECT_EQ(scene.Run(NoReporter()), Status::Completed);
  EXPECT_GE(scene.fleet.Now() - before, 5'000u);
}

TEST(SendFirmwareAta, ImpossibleDownloadsAreRefused) {
  FirmwareScene scene(SataSpec());
  scene.shape = [](Device& device) {
    device.AddProperty(Properties::DownloadMicrocodePossible, false);
  };
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, Status::ControllerIdeMode);
  EXPECT_TRUE(Steps(run.commands).empty());
}

TEST(SendFirmwareAta, BlocksAreNoSectors) {
  FirmwareScene scene(SataSpec(), 257 * 512);
  scene.shape = [](Device& device) { device.AddProperty(Properties::SectorSize, 4096u); };
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, Status::Completed);
  const auto downloads = Pick(run.commands, {0x92});
  ASSERT_EQ(downloads.size(), 2u);
  EXPECT_EQ(downloads[0].transferLength, 256u * 512);
  EXPECT_EQ(downloads[1].Lba(), 256u << 8);
  EXPECT_EQ(scene.GetRevision(), kNewRevision);
}

// ---- ATA Dunmere ----

TEST(SendFirmwareDunmere, SendsItsFirstBlockOnceMore) {
  for (const std::size_t size : {std::size_t{100}, std::size_t{140'000}}) {
    FirmwareScene scene(DunmereSpec(), size);
    const auto run = RunScene(scene, nullptr, 0);
    ASSERT_EQ(scene.device()->GetString(Properties::Product), "Dunmere");
    EXPECT_EQ(run.code, Status::Completed);
    const auto last = Pick(run.commands, {0x92, 0xE0, 0xB0}).back();
    EXPECT_EQ(last.Opcode(), 0x92);
    EXPECT_EQ(last.Features(), 0x07);
    EXPECT_EQ(last.Count(), 1);
    EXPECT_EQ(last.Lba(), 0x414Cu << 8);
    EXPECT_EQ(last.transferLength, 512u);
    EXPECT_EQ(last.dataDigest, PieceDigest(scene.image, 0, 512));
    EXPECT_EQ(scene.GetRevision(), kNewRevision);
  }
}

// ---- NVMe ----

class NvmeDownloadTest : public testing::TestWithParam<std::size_t> {};

TEST_P(NvmeDownloadTest, SendsPagesAndActivates) {
  FirmwareScene scene(NvmeSpec(), GetParam());
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, Status::Completed);
  std::size_t offset = 0;
  for (const auto& entry : Pick(run.commands, {0x11})) {
    SCOPED_TRACE(entry.Text());
    const auto dwords = std::min<std::size_t>((GetParam() - offset + 3) / 4, 1024);
    EXPECT_EQ(entry.Cdw(10), dwords - 1);
    EXPECT_EQ(entry.Cdw(11), offset / 4);
    EXPECT_EQ(entry.NvmeNamespace(), 0u);
    EXPECT_EQ(entry.transferLength, dwords * 4);
    EXPECT_EQ(entry.dataDigest, PieceDigest(scene.image, offset, dwords * 4));
    offset += dwords * 4;
  }
  EXPECT_EQ(offset, (GetParam() + 3) / 4 * 4);

  const auto steps = Pick(run.commands, {0x10, 0x11});
  EXPECT_EQ(steps.back().Opcode(), 0x10);
  EXPECT_EQ(steps.back().Cdw(10), 0x09u);
  EXPECT_EQ(std::string(scene.drive.State().firmware), kOldRevision);  // until its reset
  scene.drive.PowerCycle();
  EXPECT_EQ(std::string(scene.drive.State().firmware), kNewRevision);
  EXPECT_TRUE(scene.IsMediumUntouched());
}

INSTANTIATE_TEST_SUITE_P(Images, NvmeDownloadTest,
                         testing::Values(29, 32, 4095, 4096, 4097, 4100, 20'001));

TEST(SendFirmwareNvme, WaitsUntilTheControllerAnswersOrItsTimeIsOver) {
  using Simulator::Fault;
  struct Row {
    Fault fault;  // of the identifies behind the activation
    std::uint32_t times;
    StatusCode code;
    std::uint32_t least, most;  // of the wait, in milliseconds
    std::size_t tries;          // at least
  };
  const Row kRows[] = {
      {Fault::Fail(), 3, Status::Completed, 3'000, 10'000, 4},
      {Fault::Fail(), 0, Status::FirmwareUpdateFailed, 200'000, 400'000, 201},
      // Each lasts as long as the kernel waits, a minute; the wait ends by the clock.
      {Fault::Hang(), 0, Status::FirmwareUpdateFailed, 200'000, 400'000, 1},
  };
  for (auto row : kRows) {
    FirmwareScene scene(NvmeSpec(), 5000);
    scene.Prepare();
    FirmwareUpdate update(scene.device(), false, scene.ImagePath(), NoReporter());
    ASSERT_EQ(update.GetErrorCode(), Status::ReadyToRun);
    // Initialize has asked the drive already; Execute asks once before the transfer.
    scene.drive.ClearJournal();
    ASSERT_TRUE(scene.device()->TestConnection());
    const auto perTest = static_cast<std::uint32_t>(Pick(scene.drive.Journal(), {0x06}).size());
    row.fault.OnOpcode(0x06, Simulator::CommandClass::NvmeAdmin).OnCommand(perTest + 1);
    scene.drive.Inject(row.fault.Times(row.times));
    scene.drive.ClearJournal();
    const auto before = scene.fleet.Now();
    update.Execute();
    EXPECT_EQ(update.GetErrorCode(), row.code);
    EXPECT_GE(scene.fleet.Now() - before, row.least);
    EXPECT_LT(scene.fleet.Now() - before, row.most);
    EXPECT_GE(Pick(scene.drive.Journal(), {0x06}).size(), row.tries);
  }
}

// ---- SCSI ----

class ScsiDownloadTest : public testing::TestWithParam<std::size_t> {};

TEST_P(ScsiDownloadTest, SendsPiecesInOrder) {
  FirmwareScene scene(SasSpec(), GetParam());
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, Status::Completed);
  std::size_t offset = 0;
  for (const auto& entry : Pick(run.commands, {0x3B})) {
    SCOPED_TRACE(entry.Text());
    const auto length = std::min<std::size_t>(GetParam() - offset, 4096);
    ByteVector cdb{0x3B, 0x07, 0, 0, 0, 0, 0, 0, 0, 0};
    WriteBig(offset, 3, 3, cdb);
    WriteBig(length, 6, 3, cdb);
    EXPECT_EQ(ByteVector(entry.command.begin(), entry.command.begin() + 10), cdb);
    EXPECT_EQ(entry.transferLength, 4096u);
    EXPECT_EQ(entry.dataDigest, PieceDigest(scene.image, offset, 4096));
    EXPECT_EQ(entry.timeoutMs, 200'000u);
    offset += length;
  }
  EXPECT_EQ(offset, GetParam());
  EXPECT_EQ(scene.GetRevision(), kNewRevision);
  EXPECT_TRUE(scene.IsMediumUntouched());
}

INSTANTIATE_TEST_SUITE_P(Images, ScsiDownloadTest, testing::Values(29, 4096, 4097, 12'345));

}  // namespace
}  // namespace Morvu
