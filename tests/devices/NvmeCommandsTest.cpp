// Every NVMe command, field for field as it reaches the node.
#include <gmock/gmock.h>

#include "NodeCommands.h"
#include "frame/status/NvmeStatus.h"
#include "frame/status/Testing.h"

namespace Morvu::DeviceManagement {
namespace {

using Simulator::Fault;
using Simulator::Kind;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

#define SEND(call) [](CommandSet_NVME& set, [[maybe_unused]] ByteSpan data) { return set.call; }

struct Fields {
  std::uint8_t opcode;
  std::uint32_t nsid, cdw2, cdw10, cdw11, cdw12, cdw13, cdw14, cdw15;
};

struct Row {
  const char* name;
  StatusCode (*send)(CommandSet_NVME& set, ByteSpan data);
  std::uint8_t code;
  std::uint32_t length;
  Fields fields;
};
constexpr Row kRows[] = {
#include "NvmeCommandRows.inc"
};
static_assert(std::size(kRows) == 35);

// The time-outs that commands bring with them; all others have the kernel's.
struct TimeoutRow {
  std::uint8_t opcode;
  std::uint32_t milliseconds;
};
constexpr TimeoutRow kTimeouts[] = {{0x10, 200'000}, {0x11, 200'000}, {0x80, 7'200'000}};

std::uint32_t TimeoutOf(const Row& row) {
  const bool isReservation = row.fields.cdw2 != 0;  // the NVM commands have opcodes of their own
  const auto timeout = std::ranges::find(kTimeouts, row.fields.opcode, &TimeoutRow::opcode);
  return timeout == std::end(kTimeouts) || isReservation ? 0 : timeout->milliseconds;
}

// The kernel's record (<linux/nvme_ioctl.h>), little-endian.
Bytes ToRecord(const Row& row, const std::uint8_t* data) {
  const auto& fields = row.fields;
  Bytes record(72);
  record[0] = fields.opcode;
  WriteLittle32(fields.nsid, 4, record);
  WriteLittle32(fields.cdw2, 8, record);
  if (row.length != 0) WriteLittle64(reinterpret_cast<std::uintptr_t>(data), 24, record);
  WriteLittle32(row.length, 36, record);
  WriteLittle32(fields.cdw10, 40, record);
  WriteLittle32(fields.cdw11, 44, record);
  WriteLittle32(fields.cdw12, 48, record);
  WriteLittle32(fields.cdw13, 52, record);
  WriteLittle32(fields.cdw14, 56, record);
  WriteLittle32(fields.cdw15, 60, record);
  WriteLittle32(TimeoutOf(row), 64, record);
  return record;
}

struct NvmeCommands : ::testing::Test, NvmeNode {
  NvmeCommands() : NvmeNode({.kind = Kind::Nvme, .model = "MORVU SSDPE2MD800G4"}) {}
};

TEST_F(NvmeCommands, ReachTheNodeAsTheStandardHasThem) {
  drive.Inject(Fault::NvmeStatus(0x002));
  const auto data = LargeBuffer();
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(FromNvmeStatus(0x002), row.send(set, data));
    const auto entry = TakeCommand();
    EXPECT_EQ(Simulator::Ioctl::NvmeAdmin, entry.ioctl);
    EXPECT_THAT(entry.command, ElementsAreArray(ToRecord(row, data.data())));
  }
}

// Keeps what a set hands to its path.
class KeepingPath : public CommandPath {
 public:
  KeepingPath() : CommandPath("", Transport::Nvme, "Kept", std::chrono::seconds(60)) {}
  bool TestDevice() override { return true; }
  std::unique_ptr<CommandPath> Clone() const override { return nullptr; }

  std::uint8_t flags = 0xFF;
  std::size_t recordLength = 0, dataLength = 0;

 protected:
  Outcome SendOpcodeCore(const Command& command) override {
    flags = command.flags;
    recordLength = command.record.size();
    dataLength = command.data.size();
    Outcome outcome;
    outcome.reached = Reached::Done;
    return outcome;
  }
};

TEST_F(NvmeCommands, TellThePathTheirDirection) {
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    KeepingPath keeping;
    CommandSet_NVME keepingSet(properties, keeping);
    EXPECT_EQ(Status::Completed, row.send(keepingSet, LargeBuffer()));
    EXPECT_EQ(row.code, keeping.flags);
    EXPECT_EQ(72u, keeping.recordLength);
    EXPECT_EQ(row.length, keeping.dataLength);
  }
}

TEST_F(NvmeCommands, AreNotSentWithABufferThatIsTooShort) {
  Bytes data(4095);
  EXPECT_EQ(Status::BufferTooSmall, set.nvmeIdentify(1, 0, data));
  EXPECT_EQ(Status::BufferTooSmall, set.Send(NvmeRow::SetFeatures, {.dwords = 0x40000001}, data));
  EXPECT_TRUE(drive.Journal().empty());
}

// A field that is one less than its count cannot say "nothing", nor more than it holds.
TEST_F(NvmeCommands, AreNotSentWithACountThatTheirFieldCannotHold) {
  const auto data = LargeBuffer();
  EXPECT_EQ(Status::CountOutOfRange, set.nvmeGetLogPage(2, 0, 0, data));
  EXPECT_EQ(Status::CountOutOfRange, set.nvmeGetLogPage(2, 4097, 0, data));
  EXPECT_EQ(Status::CountOutOfRange, set.nvmeFirmwareImageDownload(0, 0, data));
  EXPECT_EQ(Status::CountOutOfRange, set.Send(NvmeRow::WriteZeroes, {.nsid = 1, .blocks = 65537}));
  EXPECT_TRUE(drive.Journal().empty());
  EXPECT_EQ(Status::Completed, set.nvmeGetLogPage(2, 128, 0, data));
}

// Dwords of the completion queue entry, as its image has them.
std::vector<std::uint32_t> CompletionOf(const CommandPath& path) {
  std::vector<std::uint32_t> dwords;
  for (std::size_t i = 0; i < 16; i += 4) {
    dwords.push_back(ReadLittle32(path.GetReceivedBuffer(), i));
  }
  return dwords;
}

TEST_F(NvmeCommands, TheCompletionTellsResultAndStatus) {
  EXPECT_EQ(Status::Completed, set.nvmeGetFeatures(0x04, 0, 0, {}));
  EXPECT_EQ(0x0157u, path.GetOutcome().nvmeResult);
  EXPECT_THAT(CompletionOf(path), ElementsAre(0x0157u, 0u, 0u, 0u));
  drive.Inject(Fault::NvmeStatus(0x10A).Times(1));
  EXPECT_EQ(FromNvmeStatus(0x10A), set.nvmeFormatNVM({.nsid = 1, .lbaFormat = 15}));
  EXPECT_THAT(CompletionOf(path), ElementsAre(0u, 0u, 0u, 0x10Au << 17));
}

TEST_F(NvmeCommands, AFailedCallIsNegativeAndIsToldInTheCompletion) {
  drive.Inject(Fault::IoctlError(EIO).Times(1));
  EXPECT_EQ(-EIO, set.Send(NvmeRow::Flush, {.nsid = 1}));
  EXPECT_EQ(-EIO, path.GetLastOsError());
  EXPECT_THAT(CompletionOf(path), ElementsAre(0u, 0u, 0u, (0x800u - EIO) << 17));
  EXPECT_EQ(Status::Completed, set.nvmeGetFeatures(0x04, 0, 0, {}));
  EXPECT_EQ(0, path.GetLastOsError());
}

}  // namespace
}  // namespace Morvu::DeviceManagement
