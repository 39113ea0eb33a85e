// Every NVMe operation, field for field as it reaches the node.
#include <gmock/gmock.h>

#include <cstring>

#include "NodeCommands.h"
#include "devices/commands/CommandPath_NVME.h"
#include "devices/commands/CommandSet_NVME.h"

namespace Morvu::DeviceManagement {
namespace {

using Simulator::Fault;
using Simulator::Kind;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

#define SEND(call)                                                \
  [](CommandSet_NVME& set, [[maybe_unused]] NvmeCompletion& done, \
     [[maybe_unused]] ByteSpan data) { return set.call; }

struct Fields {
  std::uint8_t opcode;
  std::uint32_t nsid, cdw2, cdw10, cdw11, cdw12, cdw13, cdw14, cdw15;
};

struct Row {
  const char* name;
  StatusCode (*send)(CommandSet_NVME& set, NvmeCompletion& done, ByteSpan data);
  std::uint8_t code;
  std::uint32_t length;
  Fields fields;
};
constexpr Row kRows[] = {
#include "NvmeCommandRows.inc"
};
static_assert(std::size(kRows) == 36);

// The kernel's record (<linux/nvme_ioctl.h>), little-endian.
Bytes ToRecord(const Row& row, const std::uint8_t* data) {
  const auto& fields = row.fields;
  Bytes record(72);
  record[0] = fields.opcode;
  WriteLittle32(fields.nsid, 4, record);
  WriteLittle32(fields.cdw2, 8, record);
  WriteLittle64(reinterpret_cast<std::uintptr_t>(data), 24, record);
  WriteLittle32(row.length, 36, record);
  WriteLittle32(fields.cdw10, 40, record);
  WriteLittle32(fields.cdw11, 44, record);
  WriteLittle32(fields.cdw12, 48, record);
  WriteLittle32(fields.cdw13, 52, record);
  WriteLittle32(fields.cdw14, 56, record);
  WriteLittle32(fields.cdw15, 60, record);
  return record;
}

struct NvmeCommands : ::testing::Test, NodeUnderTest<CommandPath_NVME> {
  NvmeCommands()
      : NodeUnderTest({.kind = Kind::Nvme, .model = "MORVU SSDPE2MD800G4"}),
        set(properties, path) {}

  CommandSet_NVME set;
  NvmeCompletion done;
};

TEST_F(NvmeCommands, ReachTheNodeAsTheStandardHasThem) {
  drive.Inject(Fault::NvmeStatus(0x002));
  const auto data = LargeBuffer();
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(0x002, row.send(set, done, data));
    const auto entry = TakeCommand();
    EXPECT_EQ(Simulator::Ioctl::NvmeAdmin, entry.ioctl);
    EXPECT_THAT(entry.command, ElementsAreArray(ToRecord(row, data.data())));
  }
}

// Keeps what a set hands to its path.
class KeepingPath : public CommandPath {
 public:
  KeepingPath() : CommandPath("") {}
  std::uint8_t flags = 0xFF;
  std::size_t commandLength = 0, replyLength = 0, dataLength = 0;

 protected:
  StatusCode SendOpcodeCore(ByteSpan command, ByteSpan reply, std::uint8_t given, ByteSpan data,
                            std::uintptr_t) override {
    flags = given;
    commandLength = command.size();
    replyLength = reply.size();
    dataLength = data.size();
    return Status::Completed;
  }
};

TEST_F(NvmeCommands, TellThePathTheirDirection) {
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    KeepingPath keeping;
    CommandSet_NVME keepingSet(properties, keeping);
    EXPECT_EQ(Status::Completed, row.send(keepingSet, done, LargeBuffer()));
    EXPECT_EQ(row.code, keeping.flags);
    EXPECT_EQ(72u, keeping.commandLength);
    EXPECT_EQ(16u, keeping.replyLength);
    EXPECT_EQ(row.length, keeping.dataLength);
  }
}

TEST_F(NvmeCommands, AreNotSentWithABufferThatIsTooShort) {
  Bytes data(4095);
  EXPECT_EQ(Status::BufferTooSmall, set.nvmeIdentify(1, 0, done, data));
  EXPECT_EQ(Status::BufferTooSmall, set.nvmeSetFeatures(3, 1, 0, 0, 0x40000001, done, data));
  EXPECT_TRUE(drive.Journal().empty());
}

TEST_F(NvmeCommands, TheCompletionTellsResultAndStatus) {
  EXPECT_EQ(Status::Completed, set.nvmeGetFeatures(0x04, 0, 0, 0, done));
  EXPECT_THAT(done.dwords, ElementsAre(0x0157u, 0u, 0u, 0u));
  drive.Inject(Fault::NvmeStatus(0x10A).Times(1));
  EXPECT_EQ(0x10A, set.nvmeFormatNVM(1, 15, 0, 0, 0, 0, done));
  EXPECT_THAT(done.dwords, ElementsAre(0u, 0u, 0u, 0x10Au << 17));
}

TEST_F(NvmeCommands, AFailedCallIsNegativeAndIsToldInTheCompletion) {
  drive.Inject(Fault::IoctlError(EIO).Times(1));
  EXPECT_EQ(-1, set.nvmeFlush(0, 1, done));
  EXPECT_EQ(-1, path.GetLastOsError());
  EXPECT_THAT(done.dwords, ElementsAre(0u, 0u, 0u, 0x7FFu << 17));
  EXPECT_EQ(Status::Completed, set.nvmeGetFeatures(0x04, 0, 0, 0, done));
  EXPECT_EQ(0, path.GetLastOsError());
}

}  // namespace
}  // namespace Morvu::DeviceManagement
