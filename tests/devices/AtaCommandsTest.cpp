// Every ATA operation, byte for byte as it reaches the node.
#include <gmock/gmock.h>

#include "NodeCommands.h"
#include "devices/commands/CommandPath_ATA_SCSI.h"
#include "devices/commands/CommandSet_ATA.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"
#include "frame/status/Commands.h"

namespace Morvu::DeviceManagement {
namespace {

using Simulator::Direction;
using Simulator::Fault;
using ::testing::ElementsAreArray;

constexpr std::uint32_t k28 = 0x0A332211;
constexpr std::uint32_t kLow = 0x44332211;
constexpr std::uint32_t kHigh = 0x00006655;
constexpr TaskFile kTaskFile = {1, 2, 3, 4, 5, 6, 7, 8};
constexpr TaskFilePrevious kPrevious = {9, 10, 11, 12, 13};

constexpr auto In = Direction::FromDevice;
constexpr auto Out = Direction::ToDevice;
constexpr auto None = Direction::None;

using Call = StatusCode (*)(CommandSet_ATA& set, ByteSpan data);
#define SEND(call) [](CommandSet_ATA& set, [[maybe_unused]] ByteSpan data) { return set.call; }

// 12 or 16 bytes.
struct Cdb {
  std::uint8_t bytes[16];
  constexpr ByteView View() const { return ByteView(bytes, bytes[0] == 0x85 ? 16 : 12); }
};

struct Row {
  const char* name;
  Call send;
  Direction direction;
  std::uint32_t length;
  Cdb cdb;
};
constexpr Row kRows[] = {
#include "AtaCommandRows.inc"
};

struct NonDataRow {
  const char* name;
  Call send;
  std::uint32_t adapterLength;
  Cdb direct;
  Cdb adapter;
};
constexpr NonDataRow kNonDataRows[] = {
#include "AtaNonDataRows.inc"
};
static_assert(std::size(kRows) == 65);
static_assert(std::size(kNonDataRows) == 49);

struct AtaCommands : ::testing::Test, NodeUnderTest<CommandPath_ATA_SCSI> {
  AtaCommands() : NodeUnderTest({.model = "MORVU SSDSC2BB480G4"}), set(properties, path) {
    drive.Inject(Fault::AtaError(0x51, 0x04));  // so that it keeps its state
  }

  void Expect(const char* name, Call send, Direction direction, std::uint32_t length,
              const Cdb& cdb) {
    SCOPED_TRACE(name);
    EXPECT_EQ(Status::AtaCommandFailed, send(set, LargeBuffer()));
    const auto entry = TakeCommand();
    EXPECT_THAT(entry.command, ElementsAreArray(cdb.View()));
    EXPECT_EQ(direction, entry.direction);
    EXPECT_EQ(length, entry.transferLength);
    EXPECT_EQ(5000u, entry.timeoutMs);
  }

  CommandSet_ATA set;
};

TEST_F(AtaCommands, ReachTheNodeAsTheStandardHasThem) {
  for (const auto& row : kRows) Expect(row.name, row.send, row.direction, row.length, row.cdb);
}

TEST_F(AtaCommands, WithoutDataGoOutAsSuch) {
  for (const auto& row : kNonDataRows) Expect(row.name, row.send, None, 0, row.direct);
}

TEST_F(AtaCommands, WithoutDataAreReadsThroughTheAdapter) {
  properties.Add(DeviceProperty(Properties::DriverManufacturer, "LSI API"));
  for (const auto& row : kNonDataRows) {
    Expect(row.name, row.send, In, row.adapterLength, row.adapter);
  }
}

TEST_F(AtaCommands, OnlyThatAdapterHasNoNonDataForm) {
  properties.Add(DeviceProperty(Properties::DriverManufacturer, "LSI API "));
  const auto& row = kNonDataRows[0];
  Expect(row.name, row.send, None, 0, row.direct);
}

TEST_F(AtaCommands, SmartOfNothingIsOneSectorThroughTheAdapter) {
  properties.Add(DeviceProperty(Properties::DriverManufacturer, "LSI API"));
  Expect("ataSmart", SEND(ataSmart(0xDD, 0x12, 0, 0x02, data)), In, 512,
         {{0xA1, 0x08, 0x2E, 0xDD, 0x00, 0x12, 0x4F, 0xC2, 0x40, 0xB0, 0x00, 0x00}});
}

TEST_F(AtaCommands, AnUnforcedNonDataCommandIsForcedThroughTheAdapterOnlyIfAsked) {
  properties.Add(DeviceProperty(Properties::DriverManufacturer, "LSI API"));
  Expect("ataNonData", SEND(ataNonData(1, 2, 3, 4, 5, 6, 7, 8, true, data)), None, 0,
         {{0xA1, 0x06, 0x20, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x00, 0x08}});
}

TEST_F(AtaCommands, ErasePrepareIsARead_InIdeMode) {
  properties.Add(DeviceProperty(Properties::ControllerIDEMode, true));
  Expect("ataSecurityErasePrepare", SEND(ataSecurityErasePrepare(data)), In, 512,
         {{0xA1, 0x08, 0x2E, 0x00, 0x00, 0x00, 0x00, 0x00, 0x40, 0xF3, 0x00, 0x00}});
}

TEST_F(AtaCommands, TheSectorSizeOfTheDeviceMakesTheLength) {
  properties.Add(DeviceProperty(Properties::SectorSize, 4096u));
  (void)set.ataReadDma(LargeBuffer(), 0, 2);
  EXPECT_EQ(8192u, TakeCommand().transferLength);
  properties.Remove(Properties::SectorSize);
  (void)set.ataReadDma(LargeBuffer(), 0, 2);
  EXPECT_EQ(0u, TakeCommand().transferLength);
}

TEST_F(AtaCommands, NeverMoveMoreThanTheBufferHolds) {
  (void)set.ataReadDma(LargeBuffer().first(512), 0, 0);
  EXPECT_EQ(512u, TakeCommand().transferLength);
}

TEST_F(AtaCommands, GoToTheDeviceByteForByte) {
  Bytes data(1024);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * 7);
  (void)set.ataWriteDma(data, 0, 2);
  EXPECT_EQ(Simulator::Digest(data.data(), data.size()), TakeCommand().dataDigest);
}

}  // namespace
}  // namespace Morvu::DeviceManagement
