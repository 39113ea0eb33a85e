// Identification on simulated drives: what a drive answers, and the properties.
#include <gmock/gmock.h>

#include <cstring>

#include "TestFleet.h"
#include "devices/commands/CommandPath_NVME.h"
#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/identification/DeviceIdentification.h"
#include "devices/model/Drive.h"
#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"
#include "devices/properties/FirmwareProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/properties/LinkProperties.h"
#include "devices/properties/NamespaceProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/properties/SecurityProperties.h"
#include "devices/properties/SettingProperties.h"
#include "support/LogLines.h"

namespace Morvu::DeviceManagement {
namespace {

using Simulator::DriveSpec;
using Simulator::Fault;
using Simulator::Garbage;
using Simulator::Kind;
using ::testing::ElementsAre;

struct Identification : ::testing::Test {
  // A drive of the fleet and the device that stands for it.
  void Add(const DriveSpec& spec) {
    drive = fleet.Add(spec);
    device.AddProperty(Properties::DevicePath, drive.Node());
    ASSERT_TRUE(device.Initialize());
    drive.ClearJournal();
  }
  void SetWord(int word, std::uint16_t value) { drive.State().ata.identify[word] = value; }
  bool Identify() { return IdentifyDevice(&device); }
  std::string Text(const PropertyEntry& entry) const {
    const auto* property = device.GetProperties().Find(entry);
    return property == nullptr ? "(none)" : property->ToText();
  }

  Simulator::TestFleet fleet;
  Simulator::SimulatedDrive drive;
  Drive device;
};

// ---- Any device ----

TEST_F(Identification, WithoutACommandSetIsWhatTheSystemTold) {
  EXPECT_FALSE(IdentifyDevice(nullptr));
  device.AddProperty(Properties::ModelNumber, "MORVU SSDSC2BB480G4");
  EXPECT_TRUE(Identify());
  EXPECT_EQ("Cobbenrath", Text(Properties::Product));
  EXPECT_EQ("512", Text(Properties::SectorSize));
  EXPECT_EQ("False", Text(Properties::RAIDMember));
  device.AddProperty(Properties::RAIDMember, true);
  Identify();
  EXPECT_EQ("True", Text(Properties::RAIDMember));
}

// ---- ATA ----

TEST_F(Identification, OfAnAtaDriveReadsWhatNoHostIsShown) {
  Add({.model = "MORVU SSDSC2BB480G4"});
  EXPECT_TRUE(Identify());
  const std::pair<const PropertyEntry*, const char*> kExpected[] = {
      {&Properties::HDD, "False"},
      {&Properties::TrimSize, "8"},
      {&Properties::SMARTSelfTestSupported, "True"},
      {&Properties::SecuritySupported, "True"},
      {&Properties::SanitizeSupported, "True"},
      {&Properties::Product, "Cobbenrath"},
      {&Properties::OEM, "Generic"},
      {&Properties::ProductProtocol, "ATA"},
      {&Properties::DownloadMicrocodePossible, "True"},
      {&Properties::LSI, "(none)"},
  };
  for (const auto& [entry, value] : kExpected) EXPECT_EQ(value, Text(*entry)) << entry->name;
}

TEST_F(Identification, LogsAWrongChecksum) {
  constexpr std::string_view kLine = "The checksum of the identify data is wrong.";
  Add({});
  const Testing::LogLines log;
  EXPECT_TRUE(Identify());
  EXPECT_EQ(std::string::npos, log.GetText().find(kLine));
  drive.Inject(Fault::ShortData(511).OnOpcode(0xEC));  // all but the checksum
  EXPECT_TRUE(Identify());
  EXPECT_NE(std::string::npos, log.GetText().find(kLine));
}

TEST_F(Identification, OfAWholeModelForgetsWhatTheCutOneTold) {
  Add({.model = "MORVU SSDSC2BB48 OF TOMORROW"});
  device.AddProperty(Properties::ModelNumber, "MORVU SSDSC2BB48");
  device.AddProperty(Properties::Product, "Cobbenrath");
  EXPECT_TRUE(Identify());
  EXPECT_EQ("True", Text(Properties::Morvu));
  EXPECT_EQ("(none)", Text(Properties::Product));
}

TEST_F(Identification, OfAnAtaDriveWakesItFirst) {
  Add({});
  Identify();
  EXPECT_THAT(drive.Opcodes(), ElementsAre(0xC8, 0xEC));
  drive.ClearJournal();
  drive.Inject(Fault::AtaError().OnOpcode(0xC8));
  EXPECT_TRUE(Identify());
  EXPECT_THAT(drive.Opcodes(), ElementsAre(0xC8, 0xE5, 0xEC));
}

TEST_F(Identification, OfAnAtaDriveBehindCsmiDoesNotWakeIt) {
  Add({});
  device.AddProperty(Properties::CSMI, true);
  EXPECT_TRUE(Identify());
  EXPECT_THAT(drive.Opcodes(), ElementsAre(0xEC));
}

// Each bit by itself: set alone it makes its property true, cleared alone false.
TEST_F(Identification, ReadsEachAtaBit) {
  struct Row {
    const PropertyEntry* entry;
    int word, bit;
  };
  const Row kRows[] = {
      {&Properties::TrimSupported, 169, 0},
      {&Properties::DIPMSupported, 78, 3},
      {&Properties::WriteCacheSupported, 82, 5},
      {&Properties::SSCEnabled, 129, 1},
      {&Properties::TCGSupported, 48, 0},
      {&Properties::DigitalFenceSupported, 157, 0},
      {&Properties::RemoteSecureEraseSupported, 157, 1},
      {&Properties::SataGen1, 76, 1},
      {&Properties::SataGen2, 76, 2},
      {&Properties::SataGen3, 76, 3},
      {&Properties::IEEE1667Supported, 69, 7},
  };
  Add({.model = "MORVU SSDSC2BB480G4"});
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.entry->name);
    const auto bit = static_cast<std::uint16_t>(1u << row.bit);
    SetWord(row.word, bit);
    Identify();
    EXPECT_EQ("True", Text(*row.entry));
    SetWord(row.word, static_cast<std::uint16_t>(~bit));
    Identify();
    EXPECT_EQ("False", Text(*row.entry));
  }
}

TEST_F(Identification, FollowsTheDrivesState) {
  Add({});
  auto& ata = drive.State().ata;
  ata.security.enabled = ata.security.locked = ata.security.frozen = 1;
  ata.smartEnabled = ata.writeCache = 0;
  ata.dipm = 1;
  ata.selfTest.supported = 0;
  ata.sanitize.blockErase = 0;
  Identify();
  EXPECT_EQ("True", Text(Properties::SecurityEnabled));
  EXPECT_EQ("True", Text(Properties::SecurityLocked));
  EXPECT_EQ("True", Text(Properties::SecurityFrozen));
  EXPECT_EQ("False", Text(Properties::SMARTEnabled));
  EXPECT_EQ("False", Text(Properties::WriteCacheEnabled));
  EXPECT_EQ("True", Text(Properties::DIPMEnabled));
  EXPECT_EQ("False", Text(Properties::SMARTSelfTestSupported));
  EXPECT_EQ("True", Text(Properties::SanitizeSupported));
  EXPECT_EQ("True", Text(Properties::SanitizeCryptoScrambleSupported));
  EXPECT_EQ("False", Text(Properties::SanitizeBlockEraseSupported));
}

TEST_F(Identification, ReadsTheAtaWords) {
  Add({});
  SetWord(105, 0x1234);
  SetWord(138, 0x8765);
  SetWord(217, 7200);
  for (int i = 0; i < 4; ++i) SetWord(108 + i, static_cast<std::uint16_t>(0x5001 + 0x1111 * i));
  Identify();
  EXPECT_EQ("4660", Text(Properties::TrimSize));
  EXPECT_EQ("34661", Text(Properties::PhyConfig));
  EXPECT_EQ("True", Text(Properties::HDD));
  EXPECT_EQ(0x5001611272238334u, device.GetUInt(Properties::WWID));
}

TEST_F(Identification, NamesTheNegotiatedSpeed) {
  Add({});
  const char* last = "(none)";
  SetWord(77, 0);
  for (const auto* speed : {"", "1.5 Gbs", "3.0 Gbs", "6.0 Gbs", "", "", "", ""}) {
    Identify();
    if (*speed != '\0') last = speed;  // an unknown one leaves what was known
    EXPECT_EQ(last, Text(Properties::SataNegotiatedSpeed));
    SetWord(77, static_cast<std::uint16_t>(drive.State().ata.identify[77] + 2));
  }
}

TEST_F(Identification, OfALargeDriveTakesTheWideCount) {
  Add({.sectors = 0xFFFFFFE});
  Identify();
  EXPECT_EQ(0xFFFFFFEu, device.GetUInt(Properties::MaximumLBA));
  drive.State().ata.maxLba = 0x123456789A;
  Identify();
  EXPECT_EQ(0x123456789Bu, device.GetUInt(Properties::MaximumLBA));
}

TEST_F(Identification, ReadsTheAtaSectorSize) {
  struct Case {
    std::uint16_t word106, word117, word118;
    unsigned size;
  };
  constexpr Case kCases[] = {
      {0x5000, 2048, 0, 4096},  {0x5000, 264, 0, 528},    {0x5000, 0x8000, 0, 65536},
      {0xD000, 2048, 0, 512},   {0x1000, 2048, 0, 512},   {0x4000, 2048, 0, 512},
      {0x5000, 0, 0, 512},      {0x5000, 0, 0x8000, 512}, {0x5000, 0xFFFF, 0xFFFF, 512},
      {0x5000, 0x8001, 0, 512},
  };
  Add({});
  for (const auto& row : kCases) {
    SetWord(106, row.word106);
    SetWord(117, row.word117);
    SetWord(118, row.word118);
    EXPECT_TRUE(Identify());
    EXPECT_EQ(row.size, device.GetUInt(Properties::SectorSize)) << row.word106;
  }
}

TEST_F(Identification, OfABootLoaderIsJustItsName) {
  Add({.model = "XMorvuBootloader 1.2"});
  Identify();
  EXPECT_EQ("MorvuBootloader", Text(Properties::ModelNumber));
}

void PutErrorText(Simulator::SimulatedDrive& drive, std::string text) {
  text.resize(20, ' ');
  for (std::size_t i = 0; i < 10; ++i) {
    drive.State().ata.identify[140 + i] = static_cast<std::uint16_t>(
        static_cast<std::uint8_t>(text[2 * i]) << 8 | static_cast<std::uint8_t>(text[2 * i + 1]));
  }
}

TEST_F(Identification, TakesTheDrivesErrorText) {
  Add({});
  PutErrorText(drive, "ASSERT_0042");
  Identify();
  EXPECT_EQ("ASSERT_0042", Text(Properties::ErrorString));
  PutErrorText(drive, "*CONTEXT");
  Identify();
  EXPECT_EQ("", Text(Properties::ErrorString));
}

TEST_F(Identification, OfAForeignDriveHasNoFence) {
  Add({.model = "OTHER SSD"});
  SetWord(157, 3);
  EXPECT_TRUE(Identify());
  EXPECT_EQ("(none)", Text(Properties::Morvu));
  EXPECT_EQ("False", Text(Properties::DigitalFenceSupported));
  EXPECT_EQ("False", Text(Properties::RemoteSecureEraseSupported));
}

TEST_F(Identification, ThatFailsKeepsWhatIsKnown) {
  Add({.model = "MORVU SSDSC2BB480G4", .serial = "BTWL1"});
  ASSERT_TRUE(Identify());
  drive.State().model[0] = 'X';
  drive.Inject(Fault::AtaError().OnOpcode(0xEC));
  EXPECT_FALSE(Identify());
  EXPECT_EQ("MORVU SSDSC2BB480G4", Text(Properties::ModelNumber));
  EXPECT_EQ("Cobbenrath", Text(Properties::Product));
}

TEST_F(Identification, InIdeModeHoldsWithoutAnAnswer) {
  struct Case {
    const char* model;
    bool holds;
  };
  constexpr Case kCases[] = {
      {"MORVU SSDSC2BB480G4", true},     // neither LSI nor named
      {"MORVU SSDSC2CF240F3", false},    // LSI
      {"MORVU SSDSA2TW160G3", false},    // Tarnwell
      {"MORVU SSDZPWB008G2", false},     // Wistle Brook
      {"MORVU SSDZPSB008G1", false},     // Sedgwold Brook
      {"MORVU SSDSA2YW160G2GC", false},  // Yarrowick 2
      {"MORVU SSDSC2TR160G4", true},     // Tarnwell Refresh
  };
  Add({});
  drive.Inject(Fault::AtaError().OnOpcode(0xEC));
  for (const auto& row : kCases) {
    device.GetProperties().Remove(Properties::LSI);
    device.AddProperty(Properties::ModelNumber, row.model);
    device.AddProperty(Properties::ControllerIDEMode, true);
    EXPECT_EQ(row.holds, Identify()) << row.model;
    EXPECT_EQ("(none)", Text(Properties::DownloadMicrocodePossible));
  }
  drive.ClearFaults();
  drive.State().model[0] = '\0';
  EXPECT_TRUE(Identify());
}

TEST_F(Identification, OfAnAtaDriveWithoutItsCommandSetFails) {
  class SmartSet : public CommandSet {
   public:
    SmartSet(const PropertyList& properties, CommandPath& path)
        : CommandSet(properties, path, Protocol::SmartPt) {}
    std::unique_ptr<CommandSet> Clone(const PropertyList&, CommandPath&) const override {
      return nullptr;
    }
  };
  device.AddCommandSet(std::make_unique<SmartSet>(device.GetProperties(), device.GetPath()));
  EXPECT_FALSE(Identify());
  EXPECT_EQ("True", Text(Properties::DownloadMicrocodePossible));
}

// ---- NVMe ----

struct NvmeIdentification : Identification {
  void Add(DriveSpec spec) {
    spec.kind = Kind::Nvme;
    spec.model = "MORVU SSDPE2MD800G4";
    Identification::Add(spec);
  }
  std::uint8_t& Controller(std::size_t offset) { return drive.State().nvme.controller[offset]; }
};

TEST_F(NvmeIdentification, ReadsErrorSecurityAndProduct) {
  Add({});
  std::memcpy(&Controller(3076), "ASSERT_1", 8);
  Controller(256) |= 1;
  EXPECT_TRUE(Identify());
  const std::pair<const PropertyEntry*, const char*> kExpected[] = {
      {&Properties::ErrorString, "ASSERT_1"},
      {&Properties::TCGSupported, "True"},
      {&Properties::Product, "Caldrome"},
      {&Properties::ProductProtocol, "NVME"},
  };
  for (const auto& [entry, value] : kExpected) EXPECT_EQ(value, Text(*entry)) << entry->name;
}

TEST_F(NvmeIdentification, AsksTheControllerAndTheNamespace) {
  Add({.namespaces = 3});
  Identify();
  device.AddProperty(Properties::Lun, 2);
  Identify();
  const auto journal = drive.Journal();
  ASSERT_EQ(4u, journal.size());
  EXPECT_EQ(1u, journal[0].Cdw(10));
  EXPECT_EQ(0u, journal[1].Cdw(10));
  EXPECT_EQ(1u, journal[1].NvmeNamespace());
  EXPECT_EQ(3u, journal[3].NvmeNamespace());
}

TEST_F(NvmeIdentification, ReadsTheFormat) {
  Add({.sectorSize = 4096});
  auto& space = drive.State().nvme.namespaces[0];
  space.format = 3;
  space.metadata = 1;
  space.protection = 2;
  space.endToEnd = 1;
  Identify();
  EXPECT_EQ("4096", Text(Properties::SectorSize));
  EXPECT_EQ("3", Text(Properties::LBAFormat));
  EXPECT_EQ("1", Text(Properties::MetadataSetting));
  EXPECT_EQ("2", Text(Properties::ProtectionInformation));
}

TEST_F(NvmeIdentification, GoesOnWithoutTheNamespace) {
  Add({});
  drive.Inject(Fault::NvmeStatus(0x00B).OnCommand(2));
  EXPECT_TRUE(Identify());
  EXPECT_EQ("MORVU SSDPE2MD800G4", Text(Properties::ModelNumber));
  EXPECT_EQ("(none)", Text(Properties::MaximumLBA));
  EXPECT_EQ("512", Text(Properties::SectorSize));
}

TEST_F(NvmeIdentification, FailsWithoutTheController) {
  Add({});
  drive.Inject(Fault::NvmeStatus(0x006));
  EXPECT_FALSE(Identify());
  EXPECT_EQ("(none)", Text(Properties::ModelNumber));
}

TEST_F(NvmeIdentification, OfANamespaceThatIsNotActiveHasNoLastLba) {
  Add({});
  ASSERT_TRUE(Identify());
  drive.State().nvme.namespaces[0].exists = 0;
  drive.Inject(Fault::GarbageData(Garbage::Zeros).OnCommand(2));
  EXPECT_TRUE(Identify());
  EXPECT_EQ("(none)", Text(Properties::MaximumLBA));
}

// ---- SCSI ----

TEST_F(Identification, OfAScsiDriveReadsItAll) {
  Add({.kind = Kind::Scsi,
       .model = "SSD400SAS",
       .serial = "SAS00012",
       .firmware = "A001",
       .sectors = 97677846,
       .sectorSize = 4096});
  EXPECT_TRUE(Identify());
  EXPECT_THAT(drive.Opcodes(), ElementsAre(0x12, 0x25));
  EXPECT_EQ("SSD400SAS", Text(Properties::ModelNumber));
  EXPECT_EQ("SAS00012", Text(Properties::SerialNumber));
  EXPECT_EQ("A001", Text(Properties::Firmware));
  EXPECT_EQ("MORVU", Text(Properties::Vendor));
  EXPECT_EQ("97677845", Text(Properties::MaximumLBA));
  EXPECT_EQ("4096", Text(Properties::SectorSize));
  EXPECT_EQ("Ulmersand", Text(Properties::Product));
}

TEST_F(Identification, OfAScsiDriveKeepsTheSectorSizeUntilItIsTold) {
  Add({.kind = Kind::Scsi, .sectorSize = 4096});
  drive.Inject(Fault::ScsiError(0x02, 0x02, 0x04).OnOpcode(0x25));
  EXPECT_FALSE(Identify());
  EXPECT_EQ("512", Text(Properties::SectorSize));
  EXPECT_EQ("(none)", Text(Properties::MaximumLBA));
  EXPECT_EQ("MORVU", Text(Properties::Vendor));
}

// A drive that has something else to tell first is no empty drive.
TEST_F(Identification, OfAScsiDriveGoesOnBehindAUnitAttention) {
  Add({.kind = Kind::Scsi, .sectors = 1000});
  drive.Inject(Fault::ScsiError(0x02, 0x06, 0x29).OnOpcode(0x25).Times(1));
  EXPECT_TRUE(Identify());
  EXPECT_EQ("999", Text(Properties::MaximumLBA));
}

TEST_F(Identification, OfALargeScsiDriveAsksForTheWideCapacity) {
  Add({.kind = Kind::Scsi});
  drive.State().sectors = 0x123456789B;
  EXPECT_TRUE(Identify());
  EXPECT_THAT(drive.Opcodes(), ElementsAre(0x12, 0x25, 0x9E));
  EXPECT_EQ(0x123456789Au, device.GetUInt(Properties::MaximumLBA));
  EXPECT_EQ("512", Text(Properties::SectorSize));
}

// ---- Drives that answer anything ----

class AnyAnswer : public ::testing::TestWithParam<Kind> {};
INSTANTIATE_TEST_SUITE_P(Kinds, AnyAnswer, ::testing::Values(Kind::Ata, Kind::Nvme, Kind::Scsi));

TEST_P(AnyAnswer, GivesPrintableTextsAndASectorSizeThatCanBe) {
  Simulator::TestFleet fleet;
  auto drive = fleet.Add({.kind = GetParam()});
  Drive device;
  device.AddProperty(Properties::DevicePath, drive.Node());
  ASSERT_TRUE(device.Initialize());
  for (int round = 0; round < 40; ++round) {
    const auto garbage = round == 0 ? Garbage::Zeros : round == 1 ? Garbage::Ones : Garbage::Random;
    drive.ClearFaults();
    drive.Inject(Fault::GarbageData(garbage));
    EXPECT_TRUE(UpdateProperties(device));
    const auto sectorSize = device.GetUInt(Properties::SectorSize);
    EXPECT_TRUE(sectorSize >= 512 && sectorSize <= 65536) << sectorSize;
    for (const auto& property : device.GetProperties()) {
      for (const auto c : property.ToText()) EXPECT_TRUE(c >= ' ' && c <= '~');
    }
  }
}

}  // namespace
}  // namespace Morvu::DeviceManagement
