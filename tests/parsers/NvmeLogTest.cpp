// The log pages of NVMe drives: what is asked, how it is shown, and what is refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

#include "frame/Files.h"
#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "frame/status/Files.h"
#include "frame/status/Selection.h"
#include "support/SettingScene.h"

namespace Morvu {
namespace {

using EraseTesting::CallMethod;
using EraseTesting::NvmeSpec;
using EraseTesting::SataSpec;
using Simulator::Fault;
using ::testing::HasSubstr;
using Testing::SettingScene;

constexpr int kGetLog = 0x02;

struct LogTable {
  std::string id;
  std::string_view name;            // of the table in a reply
  std::vector<std::uint8_t> bytes;  // at the page's beginning
  std::string rows;                 // the file, or its last lines
};

std::vector<std::uint8_t> Counting(std::size_t size) {
  std::vector<std::uint8_t> bytes(size);
  std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
  return bytes;
}

// Entries 2 and 4 of the error log.
std::vector<std::uint8_t> ErrorLog() {
  std::vector<std::uint8_t> page(256);
  const auto entry = Counting(64);
  std::copy(entry.begin(), entry.end(), page.begin() + 64);
  page[192] = 9;
  return page;
}
std::vector<std::uint8_t> Slots() {
  std::vector<std::uint8_t> page(24);
  page[0] = 0x21;
  for (int i = 0; i < 8; ++i) page[8 + i] = static_cast<std::uint8_t>("8DV<c:X>"[i]);
  page[16] = 'A';
  page[17] = ',';
  return page;
}
// 42 entries fill the page; eight bytes of another one follow.
std::vector<std::uint8_t> Attributes(std::size_t count) {
  std::vector<std::uint8_t> page;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint8_t entry[] = {0xAB, 1, 2, 99, 3, 0x34, 0x12, 0, 0, 0, 0xFF, 7};
    page.insert(page.end(), std::begin(entry), std::end(entry));
  }
  return page;
}
std::vector<std::uint8_t> WornHealth() {
  auto page = Counting(192);
  page[0] = 0x15;
  std::fill(page.begin() + 40, page.begin() + 48, std::uint8_t{0});  // 64 bits of data read
  return page;
}

// As a file, and in the reply.
TEST(LogTables, ShowWhatTheDriveTells) {
  // clang-format off
  const LogTable kRows[] = {
    {"1", "Error Information (Log ID = 1)", ErrorLog(),
        "'Field','Value'\nError Info Log Entry,1\nError Count Identifier,578437695752307201\n"
        "Submission Queue ID,2569\nCommand ID,3083\nStatus Field,3597\nParameter Error Location:,\n"
        "- Byte in command that contained the error,15\n"
        "- Bit in command that contained the error,0\nLBA,1817161514131211\n"
        "Namespace,471538201\nVendor Specific Log Page,29\nError Info Log Entry,2\n"
        "Error Count Identifier,9\nSubmission Queue ID,0\nCommand ID,0\nStatus Field,0\n"
        "Parameter Error Location:,\n- Byte in command that contained the error,0\n"
        "- Bit in command that contained the error,0\nLBA,0\nNamespace,0\n"
        "Vendor Specific Log Page,0"},
    {"1", "Error Information (Log ID = 1)", {},
        "'Notification'\nNo error logs found on selected drive."},
    {"2", "SMART / Health Information (Log ID = 2)", WornHealth(),
        "'Field','Value'\nCritical Warnings,0x15\n"
        "Available Spare Space has fallen below the threshold,1\n"
        "Temperature has exceeded a critical threshold,0\nDevice reliability has degraded,1\n"
        "Media is in a read-only mode,0\nVolatile memory backup device has failed,1\n"
        "Temperature (Kelvin),770\n"
        "Available Spare Normalized percentage of the remaining spare capacity available,4\n"
        "Available Spare Threshold Percentage,5\nPercentage Used,6\n"
        "Data Units Read,0x02827262524232221\n"
        "Data Units Written,0x403F3E3D3C3B3A393837363534333231\n"
        "Host Read Commands,0x504F4E4D4C4B4A494847464544434241\n"
        "Host Write Commands,0x605F5E5D5C5B5A595857565554535251\n"
        "Controller Busy Time,0x706F6E6D6C6B6A696867666564636261\n"
        "Power Cycles,0x807F7E7D7C7B7A797877767574737271\n"
        "Power On Hours,0x908F8E8D8C8B8A898887868584838281\n"
        "Unsafe Shutdowns,0xA09F9E9D9C9B9A999897969594939291\n"
        "Media Errors,0xB0AFAEADACABAAA9A8A7A6A5A4A3A2A1\n"
        "Number of Error Info Log Entries,0xC0BFBEBDBCBBBAB9B8B7B6B5B4B3B2B1"},
    {"3", "Firmware Slot Information (Log ID = 3)", Slots(),
        "'Field','Value'\nActive Firmware Slot,33 (slot 1; slot 2 after the next reset)\n"
        "Firmware Rev Slot 1,8DV?c:X>\nFirmware Rev Slot 2,\"A,\"\nFirmware Rev Slot 3,\n"
        "Firmware Rev Slot 4,\nFirmware Rev Slot 5,\nFirmware Rev Slot 6,\nFirmware Rev Slot 7,"},
    {"196", "", Counting(16),
        "'Endurance Manager Statistics','Values'\nVersion,513\nEnabled Bit,3\n"
        "Endurance Throttle Active Bit,4\nTarget Total Drive Life Days,134678021\n"
        "Total NAND Cycle Limit,202050057\nTotal Power On Hours while EM is enabled,269422093"},
    {"197", "Temperature Statistics (Log ID = 197)", Counting(112),
        "Current Temperature,578437695752307201\n"
        "Overtemp shutdown Flag for Last Drive Overheat,1157159078456920585\n"
        "Overtemp shutdown Flag for Life Drive Overheat,1735880461161533969\n"
        "Highest Temperature,2314601843866147353\nLowest Temperature,2893323226570760737\n"
        "Maximum operating temperature,6365651522798441041\n"
        "Minimum operating temperature,7523094288207667809\n"
        "Estimated offset in Celsius,8101815670912281193"},
    {"202", "SMART Attributes (Log ID = 202)", Attributes(1),
        "'ID','Description','Normalized','Raw'\nAB,Program Fail Count,99,0xFF0000001234"},
    {"202", "SMART Attributes (Log ID = 202)", Attributes(43),
        "AB,Program Fail Count,99,0xFF0000001234"},
  };
  // clang-format on
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.id);
    auto spec = NvmeSpec();
    spec.nsids = {3};
    SettingScene scene(spec);
    auto page = row.bytes;
    page.resize(4096);
    scene.drive.SetLog(static_cast<std::uint8_t>(std::stoi(row.id)), page);
    scene.drive.State().nvme.controller[261] |= 1;  // a health log for each namespace
    scene.drive.ClearJournal();
    const auto file = scene.fleet.Folder() + "/log.csv";
    EXPECT_EQ(CallMethod(*scene.device(), "NVMeLogParser", {{"LogID", row.id}, {"file", file}}),
              Status::Completed);
    EXPECT_THAT(ReadFileText(file), ::testing::EndsWith(row.rows + "\n"));
    const auto sent = scene.Commands(kGetLog);
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].Cdw(10), 0x00800000U | std::stoul(row.id));
    EXPECT_EQ(sent[0].NvmeNamespace(), 3U);
    EXPECT_EQ(sent[0].transferLength, 516U);

    XmlMessaging::Message reply;
    EXPECT_EQ(
        CallMethod(*scene.device(), "NVMeLogParser", {{"LogID", row.id}}, NoReporter(), &reply),
        Status::Completed);
    ASSERT_EQ(reply.lists.size(), 1U);
    EXPECT_EQ(reply.lists[0]->GetAttribute("name"), row.name);
    EXPECT_EQ(scene.Line({"-get_log", row.id}).code, Status::Completed);
  }
}

// A refusal would stand in the drive's error log.
TEST(NvmeLog, AsksTheControllerWhereItKeepsNoneForANamespace) {
  SettingScene scene(NvmeSpec());
  scene.drive.ClearJournal();
  EXPECT_EQ(CallMethod(*scene.device(), "NVMeLogParser", {{"LogID", "2"}}), Status::Completed);
  const auto sent = scene.Commands(kGetLog);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].NvmeNamespace(), 0xFFFFFFFFU);

  scene.drive.Inject(Fault::NvmeStatus(0x00B).OnOpcode(kGetLog).Times(1));
  EXPECT_EQ(CallMethod(*scene.device(), "NVMeLogParser", {{"LogID", "3"}}), Status::Completed);
  EXPECT_EQ(scene.Commands(kGetLog).back().NvmeNamespace(), 0xFFFFFFFFU);
}

struct RefusedLog {
  std::string id;
  StatusCode code;
};
TEST(RefusedLogs, SendNothingOnEitherFace) {
  const RefusedLog kRows[] = {
      {"0", Status::InvalidLogId},          {"4", Status::InvalidLogId},
      {"258", Status::InvalidLogId},        {"65538", Status::InvalidLogId},
      {"4294967298", Status::InvalidLogId}, {"18446744073709551618", Status::InvalidLogId},
      {"2x", Status::InvalidArguments},     {"0x2", Status::InvalidArguments},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.id);
    SettingScene scene(NvmeSpec());
    scene.drive.ClearJournal();
    const auto file = scene.fleet.Folder() + "/log.csv";
    EXPECT_EQ(scene.Line({"-get_log", row.id}).code, row.code);
    EXPECT_EQ(CallMethod(*scene.device(), "NVMeLogParser", {{"LogID", row.id}, {"file", file}}),
              row.code);
    // The drive's information reads a part of the health log for its verdict.
    for (const auto& sent : scene.Commands(kGetLog)) EXPECT_NE(sent.Cdw(10) >> 16, 0x80U);
    EXPECT_FALSE(GetFileSize(file));
  }
}

TEST(NvmeLog, TellsWhatTheDriveSaidOfALogThatItLacks) {
  SettingScene scene(NvmeSpec());
  scene.drive.Inject(Fault::NvmeStatus(0x109).OnOpcode(kGetLog));
  const auto file = scene.fleet.Folder() + "/log.csv";
  EXPECT_EQ(CallMethod(*scene.device(), "NVMeLogParser", {{"LogID", "2"}, {"file", file}}),
            Status::NotRead);
  EXPECT_FALSE(GetFileSize(file));
  const auto line = scene.Line({"-get_log", "2"});
  EXPECT_EQ(line.code, Status::NotRead);
  EXPECT_THAT(line.output, HasSubstr("NVMe status 0x109"));
  scene.drive.ClearFaults();
  EXPECT_EQ(CallMethod(*scene.device(), "NVMeLogParser",
                       {{"LogID", "2"}, {"file", scene.fleet.Folder()}}),
            Status::FileNotWritten);
}

TEST(NvmeLog, IsOfNvmeDrivesAlone) {
  SettingScene scene(SataSpec());
  EXPECT_EQ(scene.Line({"-get_log", "2"}).code, Status::NotSupportedByDrive);
  EXPECT_EQ(Testing::DescribeMethod("NVMeLogParser", scene.device()), nullptr);
}

}  // namespace
}  // namespace Morvu
