// The tables of identify data: what is asked of the drive, how it is shown, and where it goes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/property_tree/ptree.hpp>

#include "devices/properties/AdapterProperties.h"
#include "frame/Files.h"
#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "frame/status/Files.h"
#include "parsers/identify/IdentifyParser.h"
#include "support/SettingScene.h"

namespace Morvu {
namespace {

using EraseTesting::CallMethod;
using EraseTesting::NvmeSpec;
using EraseTesting::SataSpec;
using Simulator::Fault;
using Simulator::Garbage;
using ::testing::HasSubstr;
using ::testing::Not;
using Testing::SettingScene;
using ::testing::StartsWith;
namespace Properties = DeviceManagement::Properties;

constexpr int kAtaIdentify = 0xEC, kNvmeIdentify = 0x06;

std::string TableOf(SettingScene& scene, IdentifyTarget target = IdentifyTarget::Drive) {
  IdentifyParser parser(scene.device(), NoReporter(), target);
  if (parser.GetErrorCode() == Status::ReadyToRun) parser.Execute();
  EXPECT_EQ(parser.GetErrorCode(), Status::Completed);
  return parser.GetTable().ToSeparated("~") + "\n";
}

// ---- Rows ----

struct WordRow {
  std::vector<std::pair<int, std::uint16_t>> words;
  std::string row;
};
TEST(IdentifyWords, AreShownAsTheStandardLaysThemOut) {
  // clang-format off
  const WordRow kRows[] = {
    {{{0, 0x7F87}}, "0~General Configuration~7F87\n~    Bit 15 - ATA Device Identifier~0\n"
        "~    Bit 14:8 - Retired~7F\n~    Bit 7:6 - Obsolete~2\n~    Bit 5:3 - Retired~0\n"
        "~    Bit 2 - Response Incomplete~1\n~    Bit 1 - Retired~1\n~    Bit 0 - Reserved~1\n"
        "1~Obsolete~3FFF"},
    {{{7, 0x1234}, {8, 0xABCD}}, "7-8~Reserved For CFA~ABCD1234"},
    {{{70, 1}, {74, 0xBEEF}}, "70-74~Reserved~0001000000000000BEEF"},
    {{{69, 0xC000}}, "~    Bit 14 - Deterministic Data In Trimmed LBA Ranges Supported~1"},
    {{{222, 0x1080}}, "~    Bit 15:12 - Transport Type~1\n~    Bit 11:8 - Reserved~0\n"
        "~    Bit 7 - SATA 3.2~1"},
    {{{206, 0x0020}}, "~    Bit 5 - SCT Data Tables Supported~1"},
    {{{108, 0x5000}, {109, 1}, {110, 2}, {111, 3}}, "108-111~World Wide Name~5000000100020003"},
    {{{234, 1}, {235, 0xFFFF}},
        "234~Minimum Number Of Blocks Per DOWNLOAD MICROCODE Mode 3~0001\n"
        "235~Maximum Number Of Blocks Per DOWNLOAD MICROCODE Mode 3~FFFF"},
  };
  // clang-format on
  for (const auto& row : kRows) {
    SettingScene scene(SataSpec());
    for (const auto& [word, value] : row.words) {
      scene.drive.State().ata.identify[word] = value;
    }
    EXPECT_THAT(TableOf(scene), HasSubstr("\n" + row.row + "\n"));
  }
}

struct ByteRow {
  IdentifyTarget target;
  std::vector<std::pair<int, int>> bytes;  // of the controller's data
  std::string row;
};
constexpr auto kOfController = IdentifyTarget::Controller, kOfDrive = IdentifyTarget::Drive;
TEST(IdentifyBytes, AreShownAsTheStandardLaysThemOut) {
  // clang-format off
  const ByteRow kRows[] = {
    {kOfController, {{0, 0x86}, {1, 0x80}, {3, 1}, {72, 7}},
        "0-1~PCI Vendor ID (VID)~0x8086\n2-3~PCI Subsystem Vendor ID (SSVID)~0x100\n"
        "4-23~Serial Number~CVFT1234\n24-63~Model Number~MORVU SSDPEDMD400G4\n"
        "64-71~Firmware Revision~SIM10001\n72~Recommended Arbitration Burst (RAB)~0x07"},
    {kOfController, {{263, 1}, {2080, 0x34}, {2081, 0x12}, {2094, 0x1F}},
        "2080-2111~Power State 1 Descriptor~\n~    Bit 125-255: Reserved~\n"
        "~    Bit 120-124: Relative Write Latency~0x0\n~    Bit 117-119: Reserved~\n"
        "~    Bit 112-116: Relative Write Throughput~0x1F\n~    Bit 109-111: Reserved~\n"
        "~    Bit 104-108: Relative Read Latency~0x0\n~    Bit 101-103: Reserved~\n"
        "~    Bit 96-100: Relative Read Throughput~0x0\n~    Bit 64-95: Exit Latency~0x0\n"
        "~    Bit 32-63: Entry Latency~0x0\n~    Bit 16-31: Reserved~0x0\n"
        "~    Bit 0-15: Maximum Power~0x1234\n3075~Stripe Size~"
        "0x0 (Driver assisted striping not supported by FW)"},
    // There is room for 32.
    {kOfController, {{263, 255}}, "263~Number of Power States Support (NPSS)~0xFF"},
    {kOfController, {{263, 255}, {3040, 9}}, "~    Bit 0-15: Maximum Power~0x9\n"
        "3075~Stripe Size~0x0 (Driver assisted striping not supported by FW)"},
    {kOfController, {{3075, 5}}, "3075~Stripe Size~0x5 (128 KiB of user data)"},
    {kOfController, {{3075, 9}}, "3075~Stripe Size~0x9 (Unknown)"},
    {kOfController, {{3077, ' '}}, "3076-3095~Standardized Failure Mode String~Healthy"},
    // A row stays a row, and colours nothing.
    {kOfController, {{3076, '~'}, {3077, '\n'}, {3078, '\''}, {3079, ','}, {3080, 0xFF}, {3081, 'x'}},
        "3076-3095~Standardized Failure Mode String~\"~ ', x\""},
    {kOfDrive, {}, "0-7~Namespace Size~0x00000200\n8-15~Namespace Capacity~0x00000200"},
    {kOfDrive, {}, "29~End-to-end Data Protection Type Settings (DPS)~0xA\n"
        "~    Bit 4-7: Reserved~0x0\n~    Bit 3: Protection Information Transfer~"
        "0x1 (Transferred as the first eight bytes of metadata.)\n~    Bit 2-0: Protection Type "
        "Information~0x2 (Protection Information is enabled, Type 2)"},
    {kOfDrive, {}, "140-143~ LBA Format 3 Support~0xC0008\n~    Bit 31-26: Reserved~0x0\n"
        "~    Bit 25-24: Relative Performance~0x0 (Best performance)\n"
        "~    Bit 23-16: LBA Data Size~0xC\n~    Bit 15-0: Metadata Size~0x8"},
    {kOfDrive, {}, "192-195~ LBA Format 16 Support~0x0\n~    Bit 31-26: Reserved~0x0\n"
        "~    Bit 25-24: Relative Performance~0x0 (Best performance)\n"
        "~    Bit 23-16: LBA Data Size~0x0\n~    Bit 15-0: Metadata Size~0x0"},
  };
  // clang-format on
  for (const auto& row : kRows) {
    SettingScene scene(NvmeSpec());
    auto& nvme = scene.drive.State().nvme;
    for (const auto& [at, byte] : row.bytes) {
      nvme.controller[at] = static_cast<std::uint8_t>(byte);
    }
    nvme.namespaces[0].endToEnd = 0x1F;
    nvme.namespaces[0].protection = 0x0A;
    EXPECT_THAT(TableOf(scene, row.target), HasSubstr("\n" + row.row + "\n"));
  }
}

// ---- Reading ----

// Namespace 3 has the first node; a controller is asked for without one.
TEST(Identify, NamesTheNamespaceOfTheDrive) {
  auto spec = NvmeSpec();
  spec.nsids = {3};
  SettingScene scene(spec);
  scene.drive.ClearJournal();
  TableOf(scene);
  TableOf(scene, IdentifyTarget::Controller);
  const auto sent = scene.Commands(kNvmeIdentify);
  ASSERT_GE(sent.size(), 2U);
  EXPECT_EQ(sent.end()[-2].Cdw(10), 0U);
  EXPECT_EQ(sent.end()[-2].NvmeNamespace(), 3U);
  EXPECT_EQ(sent.back().Cdw(10), 1U);
  EXPECT_EQ(sent.back().NvmeNamespace(), 0U);
}

TEST(Identify, RefusesTheNamespaceOfAControllerAlone) {
  auto spec = NvmeSpec();
  spec.namespaces = 0;
  SettingScene scene(spec);
  XmlMessaging::Message reply;
  EXPECT_EQ(CallMethod(*scene.device(), "IdentifyParser", {}, NoReporter(), &reply),
            Status::NotSupportedByDrive);
  ASSERT_EQ(reply.lists.size(), 1U);
  EXPECT_EQ(reply.lists[0]->GetAttribute("name"), "Controller");
}

struct FailedRead {
  Simulator::DriveSpec spec;
  Fault fault;
  bool isFirstSaved = false;  // the controller's table
};
// The drive's values are read anew before its table is: the second command.
TEST(IdentifyFailures, EndWithTheirCodeAndWithoutTheTable) {
  const FailedRead kRows[] = {
      {SataSpec(), Fault::AtaError().OnOpcode(kAtaIdentify).OnCommand(2)},
      {SataSpec(), Fault::GarbageData(Garbage::Zeros).OnOpcode(kAtaIdentify).OnCommand(2)},
      {NvmeSpec(), Fault::NvmeStatus(0x002).OnOpcode(kNvmeIdentify).OnFeature(1)},
      {NvmeSpec(), Fault::NvmeStatus(0x002).OnOpcode(kNvmeIdentify).OnFeature(0).OnCommand(2),
       true},
  };
  for (const auto& row : kRows) {
    SettingScene scene(row.spec);
    scene.drive.Inject(row.fault);
    const auto file = scene.fleet.Folder() + "/identify.csv";
    EXPECT_EQ(CallMethod(*scene.device(), "IdentifyParser", {{"file", file}}),
              Status::IdentifyFailed);
    EXPECT_EQ(GetFileSize(file).has_value(), row.isFirstSaved);
    EXPECT_THAT(ReadFileText(file), Not(HasSubstr("Namespace Size")));
  }
}

TEST(Identify, OptionRefusesWhatItCannotShow) {
  {
    SettingScene scene(SataSpec());
    EXPECT_EQ(scene.Line({"-identify", "-controller"}).code, Status::NotSupportedByDrive);
    EXPECT_EQ(scene.Line({"-identify", "a", "b"}).code, Status::InvalidArguments);
  }
  SettingScene sas({.kind = Simulator::Kind::Scsi, .model = "SSD400SAS", .serial = "SAS1"});
  EXPECT_EQ(sas.Line({"-identify"}).code, Status::NotSupportedByDrive);
}

// Behind the SATA layer nothing but the drive's checksum tells it.
TEST(Identify, WarnsOfDataThatCameShort) {
  for (const std::uint32_t length : {100U, 300U, 511U}) {
    SettingScene scene(SataSpec());
    scene.drive.Inject(Fault::ShortData(length).OnOpcode(kAtaIdentify));
    XmlMessaging::Message reply;
    EXPECT_EQ(CallMethod(*scene.device(), "IdentifyParser", {}, NoReporter(), &reply),
              Status::Completed);
    ASSERT_EQ(reply.properties.size(), 1U) << length;
    EXPECT_EQ(reply.properties[0]->GetAttribute("name"), "Warning");
  }
}

// ---- Where the table goes ----

TEST(Identify, MethodGivesControllerAndDevice) {
  SettingScene scene(NvmeSpec());
  XmlMessaging::Message reply;
  EXPECT_EQ(CallMethod(*scene.device(), "IdentifyParser", {}, NoReporter(), &reply),
            Status::Completed);
  ASSERT_EQ(reply.lists.size(), 2U);
  EXPECT_EQ(reply.lists[0]->GetAttribute("name"), "Controller");
  EXPECT_EQ(reply.lists[1]->GetAttribute("name"), "Device");
  const auto& row = *reply.lists[1]->objects.at(1);
  EXPECT_EQ(row.GetAttribute("key"), "CVFT1234");
  EXPECT_EQ(row.properties.at(1)->GetAttribute("name"), "Description");
  EXPECT_EQ(row.properties.at(1)->value, "Namespace Capacity");
}

TEST(Identify, MethodSavesBothTablesInOneFile) {
  SettingScene scene(NvmeSpec());
  const auto file = scene.fleet.Folder() + "/identify.csv";
  ASSERT_TRUE(SaveFile(file, "an older file", false));
  const auto call = [&](const std::string& path) {
    return CallMethod(*scene.device(), "IdentifyParser", {{"file", path}});
  };
  EXPECT_EQ(call(file), Status::Completed);
  const auto text = ReadFileText(file);
  EXPECT_THAT(text, StartsWith("'Byte','Description','Hex Value'\n0-1,PCI Vendor ID"));
  EXPECT_THAT(text, HasSubstr("\n'Byte','Description','Hex Value'\n0-7,Namespace Size,"));
  EXPECT_EQ(call(scene.fleet.Folder()), Status::FileNotWritten);
  // At the prompt the failure is told, and the run has still read what it was to read.
  const auto line = scene.Line({"-identify", scene.fleet.Folder()});
  EXPECT_THAT(line.output, HasSubstr("Failed to save data to: " + scene.fleet.Folder()));
}

TEST(Identify, WritesWordsAndTheirFieldsToATree) {
  SettingScene scene(SataSpec());
  IdentifyParser parser(scene.device());
  boost::property_tree::ptree before, after;
  parser.WriteData(before);
  EXPECT_TRUE(before.empty());
  ASSERT_TRUE(parser.Execute());
  parser.WriteData(after);
  EXPECT_EQ(after.get<std::string>("drive.serial"), "BTWL1234");
  const auto& word = after.get_child("identify_data").front().second;
  EXPECT_EQ(word.get<std::string>("words"), "0");
  EXPECT_EQ(word.get<std::string>("description"), "General Configuration");
  EXPECT_EQ(word.get_child("breakdown").size(), 7U);
  EXPECT_EQ(word.get<std::string>("breakdown.field.description"),
            "    Bit 15 - ATA Device Identifier");
}

}  // namespace
}  // namespace Morvu
