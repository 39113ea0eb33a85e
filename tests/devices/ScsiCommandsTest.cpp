// Every SCSI command, byte for byte as it reaches the node.
#include <gmock/gmock.h>

#include "NodeCommands.h"
#include "frame/status/Commands.h"

namespace Morvu::DeviceManagement {
namespace {

using Simulator::Direction;
using Simulator::Fault;
using Simulator::Kind;
using ::testing::ElementsAreArray;

constexpr auto In = Direction::FromDevice;
constexpr auto Out = Direction::ToDevice;
constexpr auto None = Direction::None;

#define SEND(call) [](CommandSet_SCSI& set, [[maybe_unused]] ByteSpan data) { return set.call; }

// The group code in bits 7:5 of the opcode tells a CDB's length (SPC-4, 4.2.5.1).
struct Cdb {
  std::uint8_t bytes[32];
  ByteView View() const {
    constexpr std::size_t kLengths[] = {6, 10, 10, 32, 16, 12, 0, 0};
    return ByteView(bytes, kLengths[bytes[0] >> 5]);
  }
};

struct Row {
  const char* name;
  StatusCode (*send)(CommandSet_SCSI& set, ByteSpan data);
  Direction direction;
  std::uint32_t length;
  Cdb cdb;
};
constexpr Row kRows[] = {
#include "ScsiCommandRows.inc"
};
static_assert(std::size(kRows) == 45);

struct ScsiCommands : ::testing::Test, ScsiNode {
  ScsiCommands() : ScsiNode({.kind = Kind::Scsi, .model = "SSD400SAS"}) {}
};

TEST_F(ScsiCommands, ReachTheNodeAsTheStandardHasThem) {
  drive.Inject(Fault::ScsiError(0x08));
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Status::ScsiCommandFailed, row.send(set, LargeBuffer()));
    const auto entry = TakeCommand();
    EXPECT_THAT(entry.command, ElementsAreArray(row.cdb.View()));
    EXPECT_EQ(row.direction, entry.direction);
    EXPECT_EQ(row.length, entry.transferLength);
    EXPECT_EQ(5000u, entry.timeoutMs);
  }
}

TEST_F(ScsiCommands, ARefusedReadIsNoGoodRead) {
  drive.Inject(Fault::ScsiError(0x02, 0x03, 0x11, 0x00).Times(1));
  Bytes data(512);
  EXPECT_EQ(Status::ScsiCommandFailed, set.Send(ScsiRow::Read10, {.count = 1}, data));
  EXPECT_EQ(Status::Completed, set.Send(ScsiRow::Read10, {.count = 1}, data));
}

}  // namespace
}  // namespace Morvu::DeviceManagement
