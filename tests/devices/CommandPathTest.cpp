// Command paths: which one a node gets, what comes back, what a failure is.
#include <gmock/gmock.h>
#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstring>

#include "CountAllocations.h"
#include "NodeCommands.h"
#include "devices/properties/BasicProperties.h"
#include "frame/status/Commands.h"
#include "support/LogLines.h"

namespace Morvu::DeviceManagement {
namespace {

using Simulator::DriveSpec;
using Simulator::Fault;
using Simulator::Kind;
using Simulator::SenseFormat;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr bool kNarrow = sizeof(void*) == 4;
static_assert(sizeof(sg_io_hdr) == (kNarrow ? 64 : 88));
static_assert(sizeof(nvme_user_io) == (kNarrow ? 44 : 48));
static_assert(sizeof(nvme_admin_cmd) == 72);
static_assert(SG_IO == 0x2285);
static_assert(NVME_IOCTL_ADMIN_CMD == 0xC0484E41);
static_assert(NVME_IOCTL_SUBMIT_IO == (kNarrow ? 0x402C4E42 : 0x40304E42));

PropertyList OnNode(std::string_view node) {
  PropertyList properties;
  properties.Add(DeviceProperty(Properties::DevicePath, node));
  return properties;
}

// ---- Opening, closing, selecting ----

TEST(CommandPath, OfANodeThatIsNotThereIsClosed) {
  Simulator::TestFleet fleet;
  for (const auto* node : {"/dev/sg9", ""}) {
    CommandPath_Plain path(node);
    EXPECT_FALSE(path.IsOpen());
    EXPECT_EQ(Status::NoCommunication, path.Open());
    EXPECT_EQ(Status::Completed, path.Close());
    EXPECT_FALSE(path.TestDevice());
    EXPECT_EQ(5s, path.GetTimeout());
  }
}

TEST(CommandPath, PlainHasNoTransport) {
  Simulator::TestFleet fleet;
  const auto drive = fleet.Add({});
  CommandPath_Plain path(drive.Node());
  const TaskFile nop{};
  EXPECT_TRUE(path.IsOpen());
  EXPECT_EQ(Status::NotImplemented, path.SendOpcode({.record = nop, .flags = kNoData}));
  EXPECT_EQ(Status::Completed, path.Close());
  EXPECT_FALSE(path.IsOpen());
  EXPECT_TRUE(drive.Journal().empty());
}

TEST(CommandPath, TellsThatTheNodeCouldNotBeClosed) {
  Simulator::TestFleet fleet;
  CommandPath_Plain path(fleet.Add({}).Node());
  ASSERT_EQ(0, close(path.GetHandle()));
  EXPECT_EQ(Status::CloseFailed, path.Close());
  EXPECT_FALSE(path.IsOpen());
}

struct Selection {
  DriveSpec spec;
  std::string_view protocol, description;
  std::chrono::seconds timeout;
};

TEST(CommandPath, IsSelectedByWhatAnswers) {
  const Selection kSelections[] = {
      {{.kind = Kind::Ata}, "ATA", "ATA over SCSI", 5s},
      {{.kind = Kind::Ata, .senseFormat = SenseFormat::FixedSat3}, "ATA", "ATA over SCSI", 5s},
      {{.kind = Kind::Ata, .senseFormat = SenseFormat::FixedOldKernel}, "ATA", "ATA over SCSI", 5s},
      {{.kind = Kind::Scsi}, "SCSI", "SCSI", 5s},
      {{.kind = Kind::Nvme}, "NVMe", "NVMe", 60s},
  };
  for (const auto& selection : kSelections) {
    SCOPED_TRACE(selection.description);
    Simulator::TestFleet fleet;
    const auto drive = fleet.Add(selection.spec);
    auto path = CreateCommandPath(OnNode(drive.Node()));
    ASSERT_NE(nullptr, path);
    EXPECT_EQ(selection.protocol, path->GetProtocol());
    EXPECT_EQ(selection.description, path->GetDescription());
    EXPECT_EQ(selection.timeout, path->GetTimeout());

    path->SetTimeout(77s);
    path->SetDeviceFault(true);
    const auto clone = path->Clone();
    EXPECT_TRUE(clone->IsOpen());
    EXPECT_NE(path->GetHandle(), clone->GetHandle());
    EXPECT_EQ(selection.protocol, clone->GetProtocol());
    EXPECT_TRUE(clone->GetDeviceFault());
    EXPECT_EQ(selection.timeout, clone->GetTimeout());
    EXPECT_TRUE(clone->TestDevice());
  }
}

TEST(CommandPath, IsNotMadeWhereNothingAnswers) {
  Simulator::TestFleet fleet;
  auto drive = fleet.Add({.kind = Kind::Scsi});
  drive.Inject(Fault::Vanish());
  EXPECT_EQ(nullptr, CreateCommandPath(OnNode(drive.Node())));
  EXPECT_EQ(nullptr, CreateCommandPath(PropertyList()));
  const auto plain = CreateBasePath(OnNode(drive.Node()), true);
  ASSERT_NE(nullptr, plain);
  EXPECT_EQ("None", plain->GetProtocol());
}

// ---- Whether a device answers ----

TEST(TestDevice, AskedOfAnAtaDriveIsARefusedNop) {
  AtaNode node;
  EXPECT_TRUE(node.path.TestDevice());
  EXPECT_THAT(node.TakeCommand().command,
              ElementsAre(0xA1, 0x08, 0x2E, 0, 0, 0, 0, 0, 0, 0x00, 0, 0));
}

TEST(TestDevice, OfAnAtaDriveLooksAtStatusAndError) {
  struct Case {
    std::uint16_t status;
    std::uint8_t error;
    bool answers;
  };
  constexpr Case kCases[] = {
      {0x41, 0x00, true}, {0x51, 0x00, true},  {0x71, 0x00, true},  {0x51, 0x04, true},
      {0x50, 0x04, true}, {0x50, 0x00, false}, {0x40, 0x00, false}, {0x61, 0x00, false},
      {0x41, 0x10, true}, {0xD0, 0x00, false},
  };
  for (const auto& row : kCases) {
    AtaNode node;
    node.drive.Inject(Fault::AtaError(static_cast<std::uint8_t>(row.status), row.error));
    EXPECT_EQ(row.answers, node.path.TestDevice()) << row.status << ' ' << int{row.error};
  }
}

TEST(TestDevice, OfAScsiDriveIsARequestSense) {
  ScsiNode node;
  EXPECT_TRUE(node.path.TestDevice());
  const auto entry = node.TakeCommand();
  EXPECT_THAT(entry.command, ElementsAre(0x03, 0, 0, 0, 0xFF, 0));
  EXPECT_EQ(512u, entry.transferLength);
}

TEST(TestDevice, OfAScsiDriveTakesFixedSenseOnly) {
  ScsiNode node;
  node.drive.Inject(Fault::ScsiError(0x02, 0x06, 0x29).Times(1));  // UNIT ATTENTION
  EXPECT_TRUE(node.path.TestDevice());
  node.drive.Inject(Fault::ScsiError(0x08).Times(1));  // BUSY
  EXPECT_FALSE(node.path.TestDevice());
  node.drive.Inject(Fault::IoctlError(ENODEV).Times(1));
  EXPECT_FALSE(node.path.TestDevice());
  node.drive.Inject(Fault::HostError(0x03).Times(1));
  EXPECT_FALSE(node.path.TestDevice());
  EXPECT_TRUE(node.path.TestDevice());
}

TEST(TestDevice, OfAnotherKindOfDriveFails) {
  EXPECT_FALSE(AtaNode({.kind = Kind::Scsi}).path.TestDevice());
  EXPECT_FALSE(AtaNode({.kind = Kind::Nvme}).path.TestDevice());
  EXPECT_FALSE(ScsiNode({.kind = Kind::Nvme}).path.TestDevice());
  EXPECT_FALSE(NvmeNode({.kind = Kind::Ata}).path.TestDevice());
}

TEST(TestDevice, OfAnNvmeDriveIsAnIdentify) {
  NvmeNode node;
  EXPECT_TRUE(node.path.TestDevice());
  const auto entry = node.TakeCommand();
  EXPECT_EQ(0x06, entry.Opcode());
  EXPECT_EQ(1u, entry.Cdw(10));
  EXPECT_EQ(4096u, entry.transferLength);
  (void)node.path.Close();
  EXPECT_FALSE(node.path.TestDevice());
  EXPECT_TRUE(node.drive.Journal().empty());
}

// ---- What comes back from an ATA drive ----

class AtaAnswers : public ::testing::TestWithParam<SenseFormat> {
 protected:
  AtaAnswers() : node({.sectors = 0x1234567, .senseFormat = GetParam()}) {}

  AtaNode node;
  CommandSet_ATA& set = node.set;
};

INSTANTIATE_TEST_SUITE_P(Sense, AtaAnswers,
                         ::testing::Values(SenseFormat::Descriptor, SenseFormat::FixedSat3,
                                           SenseFormat::FixedOldKernel));

TEST_P(AtaAnswers, HoldTheRegisters) {
  EXPECT_EQ(Status::Completed, set.ataReadNativeMaxAddress());
  EXPECT_EQ(0x234566u, set.GetAnswer().lba);
  EXPECT_EQ(0x41, set.GetAnswer().device);
  EXPECT_EQ(0x50, set.GetAnswer().status);
  EXPECT_EQ(Status::Completed, set.ataCheckPowerMode());
  EXPECT_EQ(0xFF, set.GetAnswer().count);
}

// SAT-3's fixed format has no room for the upper halves: without them the drive's answer
// is no number.
TEST_P(AtaAnswers, OfAnExtendedCommandAreWholeOrAreNone) {
  const bool isWhole = GetParam() != SenseFormat::FixedSat3;
  EXPECT_EQ(isWhole ? Status::Completed : Status::AtaCommandFailed,
            set.ataReadNativeMaxAddressExt());
  EXPECT_EQ(isWhole ? 0x1234566u : 0x234566u, set.GetAnswer().lba);
  EXPECT_EQ(isWhole, set.GetAnswer().Has(AtaAnswer::kUpper));
}

TEST_P(AtaAnswers, OfAReadAreGoodWithTheData) {
  Bytes data(512);
  EXPECT_EQ(Status::Completed, set.ataIdentifyDevice(data));
  EXPECT_EQ(0xA5, data[510]);
  EXPECT_EQ(Status::Completed, set.ataReadDma(data, 0, 1));
}

TEST_P(AtaAnswers, OfARefusalTellItsError) {
  node.drive.Inject(Fault::AtaError(0x51, 0x10, 0x000056).Times(1));
  Bytes data(512);
  EXPECT_EQ(Status::AtaCommandFailed, set.ataReadDma(data, 0, 1));
  EXPECT_EQ(0x51, set.GetAnswer().status);
  EXPECT_EQ(0x10, set.GetAnswer().error);
  EXPECT_EQ(0x56u, set.GetAnswer().lba & 0xFF);
}

TEST_P(AtaAnswers, TellADeviceFault) {
  node.drive.Inject(Fault::AtaError(0x71, 0x04).Times(1));
  EXPECT_EQ(Status::AtaCommandFailed, set.Send(AtaRow::FlushCache));
  EXPECT_TRUE(node.path.GetDeviceFault());
  EXPECT_EQ(Status::Completed, set.Send(AtaRow::FlushCache));
  EXPECT_FALSE(node.path.GetDeviceFault());
}

TEST_P(AtaAnswers, OfABusyDriveAreAFailure) {
  node.drive.Inject(Fault::AtaError(0xD0, 0x00).Times(1));
  EXPECT_EQ(Status::AtaCommandFailed, set.Send(AtaRow::FlushCache));
}

TEST_P(AtaAnswers, DoNotTakeStaleDataForAReadThatWasRefused) {
  node.drive.State().staleData = 1;
  Bytes data(512);
  ASSERT_EQ(Status::Completed, set.ataIdentifyDevice(data));
  node.drive.Inject(Fault::AtaError(0x51, 0x04).Times(1));
  Bytes second(512);
  EXPECT_EQ(Status::AtaCommandFailed, set.ataSmartReadData(second));
}

TEST(AtaAnswer, WithoutRegistersLeavesTheImageAsItWent) {
  AtaNode node;
  node.drive.Inject(Fault::ScsiError(0x02, 0x05, 0x24).Times(1));  // the SCSI layer's refusal
  const TaskFile command = {1, 2, 3, 4, 5, 0x40, 0xE7, 0, 9, 10, 11, 12, 13};
  EXPECT_EQ(Status::AtaCommandFailed, node.path.SendOpcode({.record = command, .flags = kNoData}));
  EXPECT_EQ(node.path.GetSentBuffer(), node.path.GetReceivedBuffer());
  EXPECT_EQ(0, node.path.GetOutcome().registers.known);
  EXPECT_EQ(Reached::Layer, node.path.GetOutcome().reached);
  EXPECT_FALSE(node.path.GetDeviceFault());
}

TEST(AtaAnswer, OfACallThatFailedIsTheCallsResult) {
  AtaNode node;
  node.drive.Inject(Fault::IoctlError(EIO).Times(1));
  EXPECT_EQ(-EIO, node.set.Send(AtaRow::FlushCache));
  EXPECT_EQ(-EIO, node.path.GetLastOsError());
  EXPECT_EQ(Status::Completed, node.set.Send(AtaRow::FlushCache));
  EXPECT_EQ(0, node.path.GetLastOsError());
}

TEST(AtaAnswer, RefusedByTheTransportIsNoAtaFailure) {
  AtaNode node;
  const Fault kFaults[] = {
      Fault::ScsiError(0x08), Fault::ScsiError(0x18), Fault::ScsiError(0x22),
      Fault::ScsiError(0x28), Fault::ScsiError(0x30), Fault::ScsiError(0x40),
      Fault::HostError(0x03), Fault::HostError(0x07),
  };
  for (auto fault : kFaults) {
    node.drive.Inject(fault.Times(1));
    EXPECT_EQ(Status::ScsiCommandFailed, node.set.Send(AtaRow::FlushCache));
  }
}

TEST(ScsiAnswer, InvalidOpcodeInDescriptorSenseIsAFailure) {
  ScsiNode node;
  node.drive.State().scsi.descriptorSense = 1;
  const Bytes cdb = {0xC0, 0, 0, 0, 0, 0};
  EXPECT_EQ(Status::ScsiCommandFailed, node.path.SendOpcode({.record = cdb, .flags = kNoData}));
  EXPECT_EQ(0x72, node.path.GetOutcome().sense.format);
  EXPECT_EQ(0x20, node.path.GetOutcome().sense.asc);
}

// ---- What the kernel is told ----

TEST(CommandPath, HandsItsTimeoutToTheKernel) {
  AtaNode node;
  {
    const TimeoutGuard guard(node.path, 3600s);
    (void)node.set.Send(AtaRow::FlushCache);
    EXPECT_EQ(3600000u, node.TakeCommand().timeoutMs);
  }
  (void)node.set.Send(AtaRow::FlushCache);
  EXPECT_EQ(5000u, node.TakeCommand().timeoutMs);
  (void)node.set.ataStandbyImmediate();  // brings its own
  EXPECT_EQ(20000u, node.TakeCommand().timeoutMs);
}

TEST(CommandPath, NvmeLeavesTheTimeoutToTheKernel) {
  NvmeNode node;
  const TimeoutGuard guard(node.path, 3600s);
  (void)node.set.nvmeGetFeatures(0x04, 0, 0, {});
  EXPECT_EQ(0u, node.TakeCommand().timeoutMs);
}

TEST(CommandPath, NvmeSendsIoByItsOwnRecord) {
  NvmeNode node;
  nvme_user_io io{};
  io.opcode = 0x01;
  io.nblocks = 1;
  io.slba = 3;
  Bytes data(1024, 0x5A), record(sizeof io);
  std::memcpy(record.data(), &io, sizeof io);
  EXPECT_EQ(Status::Completed,
            node.path.SendOpcode({.record = record, .flags = kWrite, .data = data}));
  const auto entry = node.TakeCommand();
  EXPECT_EQ(Simulator::Ioctl::NvmeIo, entry.ioctl);
  EXPECT_EQ(3u, entry.Cdw(10));
  EXPECT_EQ(data, node.drive.ReadMedium(3 * 512, 1024));
  EXPECT_EQ(CommandPath::Image{}, node.path.GetReceivedBuffer());
}

TEST(CommandPath, NvmeRefusesARecordOfUnknownLength) {
  NvmeNode node;
  for (const std::size_t length : {0, 16, 43, 64, 71, 80}) {
    const Bytes record(length);
    EXPECT_EQ(Status::BufferTooSmall, node.path.SendOpcode({.record = record}));
  }
  EXPECT_TRUE(node.drive.Journal().empty());
}

// ---- Images and log ----

TEST(CommandPath, KeepsWhatItSentAndWhatCameBack) {
  AtaNode node;
  const TaskFile command = {0, 1, 0, 0, 0, 0x40, 0xE5, 0, 9, 10, 11, 12, 13};
  EXPECT_EQ(Status::Completed, node.path.SendOpcode({.record = command, .flags = kNoData}));
  const auto zeros = [](int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += "~0";
    return text;
  };
  EXPECT_EQ("0~1~0~0~0~64~229~0~9~10~11~12~13" + zeros(51), node.path.GetSentAsText());
  EXPECT_EQ("0~255~0~0~0~64~80~0~9~10~11~12~13" + zeros(51), node.path.GetReceivedAsText());
}

TEST(CommandPath, NvmeKeepsTheQueueEntry) {
  NvmeNode node;
  (void)node.set.Send(
      NvmeRow::SetFeatures,
      {.nsid = 0x11223344, .featureId = 0x04, .value11 = 0xA1A2A3A4, .value12 = 0xB1B2B3B4});
  const ByteView sent(node.path.GetSentBuffer());
  EXPECT_EQ(0x00000009u, ReadLittle32(sent, 0));
  EXPECT_EQ(0x11223344u, ReadLittle32(sent, 4));
  EXPECT_EQ(0x00000004u, ReadLittle32(sent, 40));
  EXPECT_EQ(0xA1A2A3A4u, ReadLittle32(sent, 44));
  EXPECT_EQ(0xB1B2B3B4u, ReadLittle32(sent, 48));
}

TEST(HexDump, ShowsBytesAndText) {
  Bytes bytes;
  for (int i = 0; i < 18; ++i) bytes.push_back(static_cast<std::uint8_t>(0x3A + i));
  bytes[1] = ' ';
  bytes[2] = 0x7E;
  bytes[3] = 0x7F;
  EXPECT_EQ(
      "0000: 3A 20 7E 7F 3E 3F 40 41  42 43 44 45 46 47 48 49  :.~.>?@ABCDEFGHI\n"
      "0010: 4A 4B  JK",
      HexDump(bytes));
  EXPECT_EQ("", HexDump({}));
}

TEST(CommandLog, HasTwoLinesForEachCommand) {
  AtaNode node;
  Testing::LogLines logger;
  SetLogLevel(kLogInfo);
  (void)node.set.ataCheckPowerMode();
  ASSERT_EQ(2u, logger.records.size());
  EXPECT_EQ("CommandPath", logger.records[0].file);
  EXPECT_EQ("LogCommand", logger.records[0].function);
  EXPECT_EQ("Sent:\n" + HexDump(node.path.GetSentBuffer()), logger.records[0].message);
  EXPECT_EQ("Received:\n" + HexDump(node.path.GetReceivedBuffer()), logger.records[1].message);
  EXPECT_THAT(logger.records[0].message, HasSubstr("\n0030: 00 00"));
}

TEST(CommandLog, TellsAnNvmeCommandAsText) {
  NvmeNode node;
  CommandSet_NVME set(node.properties, node.path);
  Testing::LogLines logger;
  SetLogLevel(kLogDebug);
  (void)set.Send(NvmeRow::Flush, {.nsid = 1, .cdw2 = 0xA0B0C0D0});
  ASSERT_EQ(3u, logger.records.size());
  EXPECT_EQ("CommandSet_NVME", logger.records[0].file);
  EXPECT_EQ("nvmeFlush", logger.records[0].function);
  EXPECT_EQ(
      "NVMe Admin Command: \n"
      "  OPCODE    : 0(0x00) \n"
      "  FUSE      : 0(0x0) \n"
      "  NSID      : 1(0x00000001) \n"
      "  CDW2      : 10531008(0x00A0B0C0) \n"
      "  CDW3      : 208(0x000000D0) \n"
      "  MPTR      : 0(0x0000000000000000) \n"
      "  PRP1      : 0(0x0000000000000000) \n"
      "  PRP2      : 0(0x0000000000000000) \n"
      "  CDW10     : 0(0x00000000) \n"
      "  CDW11     : 0(0x00000000) \n"
      "  CDW12     : 0(0x00000000) \n"
      "  CDW13     : 0(0x00000000) \n"
      "  CDW14     : 0(0x00000000) \n"
      "  CDW15     : 0(0x00000000) \n",
      logger.records[0].message);
  logger.records.clear();
  (void)set.Send(NvmeRow::SetFeatures, {.featureId = 0x04});
  EXPECT_EQ(2u, logger.records.size());
}

TEST(CommandLog, TellsAFailedCall) {
  AtaNode node;
  Testing::LogLines logger;
  SetLogLevel(kLogError);
  node.drive.Inject(Fault::IoctlError(EIO).Times(1));
  (void)node.set.Send(AtaRow::FlushCache);
  ASSERT_EQ(1u, logger.records.size());
  EXPECT_EQ("SendOpcodeCore", logger.records[0].function);
  EXPECT_EQ("ioctl failed: -5", logger.records[0].message);
}

// A sound namespace leaves no error in the log.
TEST(CommandLog, OfANodeThatIsLookedForHoldsNoError) {
  Simulator::TestFleet fleet;
  const auto drive = fleet.Add({.kind = Kind::Nvme});
  Testing::LogLines logger;
  SetLogLevel(kLogError);
  EXPECT_NE(nullptr, CreateCommandPath(OnNode(drive.Node())));
  EXPECT_TRUE(logger.records.empty());
}

TEST(CommandPath, AllocatesNothingForACommand) {
  AtaNode ata;
  NvmeNode nvme;
  Bytes data(512);
  (void)ata.set.Send(AtaRow::ReadDmaExt, {.count = 1}, data);  // the simulator opens its medium
  const auto before = CountAllocations();
  EXPECT_EQ(Status::Completed, ata.set.Send(AtaRow::ReadDmaExt, {.count = 1}, data));
  EXPECT_EQ(Status::Completed, ata.set.Send(AtaRow::FlushCache));
  EXPECT_EQ(Status::Completed, nvme.set.nvmeGetFeatures(0x04, 0, 0, {}));
  EXPECT_EQ(before, CountAllocations());
}

}  // namespace
}  // namespace Morvu::DeviceManagement
