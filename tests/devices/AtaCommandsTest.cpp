// Every ATA command, byte for byte as it reaches the node.
#include <gmock/gmock.h>

#include "NodeCommands.h"
#include "devices/properties/DriverProperties.h"
#include "frame/status/Commands.h"
#include "frame/status/Testing.h"

namespace Morvu::DeviceManagement {
namespace {

using Simulator::Direction;
using Simulator::Fault;
using ::testing::ElementsAreArray;

constexpr std::uint32_t k28 = 0x0A332211;
constexpr std::uint32_t kLow = 0x44332211;
constexpr std::uint64_t k48 = 0x665544332211;

// Commands that stand in no table, as a caller makes them.
constexpr AtaCommand kSmartVendor = {
    "ataSmart", 0xB0, 0xDD, AtaRow::kPioIn, 0, AtaCount::Given, AtaData::Blocks, AtaRow::kSmartKey};
constexpr AtaCommand kRawNonData = {"ataNonData",
                                    7,
                                    0,
                                    AtaRow::kNone,
                                    AtaRow::k28,
                                    AtaCount::Given,
                                    AtaData::None,
                                    0,
                                    AtaRow::kNothing,
                                    AtaRow::kPaths,
                                    AtaAdapterForm::Block,
                                    0};
constexpr AtaCommand kRawForced = [] {
  auto command = kRawNonData;
  command.adapter = AtaAdapterForm::Same;
  return command;
}();

// The time-outs that commands bring with them; all others have the path's.
struct TimeoutRow {
  std::uint8_t opcode;
  std::uint32_t milliseconds;
};
constexpr TimeoutRow kTimeouts[] = {{0xE0, 20'000}, {0xF4, 7'200'000}};

std::uint32_t TimeoutOf(std::uint8_t opcode) {
  const auto row = std::ranges::find(kTimeouts, opcode, &TimeoutRow::opcode);
  return row == std::end(kTimeouts) ? 5000 : row->milliseconds;
}

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
static_assert(std::size(kRows) == 54);
static_assert(std::size(kNonDataRows) == 49);

struct AtaCommands : ::testing::Test, AtaNode {
  AtaCommands() : AtaNode({.model = "MORVU SSDSC2BB480G4"}) {
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
    EXPECT_EQ(TimeoutOf(entry.AtaOpcode()), entry.timeoutMs);
  }
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

TEST_F(AtaCommands, AnUnforcedNonDataCommandIsForcedThroughTheAdapterOnlyIfAsked) {
  properties.Add(DeviceProperty(Properties::DriverManufacturer, "LSI API"));
  Expect("ataNonData",
         SEND(Send(kRawForced,
                   {.lba = 0x050403, .count = 2, .features = 1, .device = 6, .control = 8}, data)),
         None, 0, {{0xA1, 0x06, 0x20, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x00, 0x08}});
}

TEST_F(AtaCommands, ErasePrepareIsARead_InIdeMode) {
  properties.Add(DeviceProperty(Properties::ControllerIDEMode, true));
  Expect("ataSecurityErasePrepare", SEND(ataSecurityErasePrepare()), In, 512,
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

TEST_F(AtaCommands, AreNotSentWithLessRoomThanTheyMove) {
  const auto all = std::uint32_t{256} * 512;
  EXPECT_EQ(Status::BufferTooSmall, set.ataReadDma(LargeBuffer().first(all - 1), 0, 0));
  EXPECT_EQ(Status::BufferTooSmall, set.ataIdentifyDevice(LargeBuffer().first(511)));
  EXPECT_EQ(Status::BufferTooSmall, set.Send(AtaRow::WriteDma, {.count = 1}));
  properties.Add(DeviceProperty(Properties::DriverManufacturer, "LSI API"));
  EXPECT_EQ(Status::BufferTooSmall,
            set.Send(AtaRow::ReadVerifySectors, {.count = 2}, LargeBuffer().first(512)));
  EXPECT_TRUE(drive.Journal().empty());
}

TEST_F(AtaCommands, AreNotSentWithWhatTheirRegistersCannotHold) {
  const auto data = LargeBuffer();
  EXPECT_EQ(Status::CountOutOfRange, set.ataReadDma(data, 0, 257));
  EXPECT_EQ(Status::CountOutOfRange, set.Send(AtaRow::ReadDmaExt, {.count = 0x10001}, data));
  EXPECT_EQ(Status::CountOutOfRange, set.Send(AtaRow::SetFeatures, {.count = 0x100}));
  EXPECT_EQ(Status::LbaOutOfRange, set.ataReadDma(data, 0x10000000, 1));
  EXPECT_EQ(Status::LbaOutOfRange,
            set.Send(AtaRow::WriteDmaExt, {.lba = std::uint64_t{1} << 48, .count = 1}, data));
  EXPECT_EQ(Status::LbaOutOfRange, set.ataDownloadMicrocode(data, 3, 1, 1 << 20));
  EXPECT_TRUE(drive.Journal().empty());
}

// Blocks of 512 bytes, whatever the device's sector.
TEST_F(AtaCommands, BlocksAreNoSectors) {
  properties.Add(DeviceProperty(Properties::SectorSize, 4096u));
  (void)set.ataIdentifyDevice(LargeBuffer());
  EXPECT_EQ(512u, TakeCommand().transferLength);
  (void)set.Send(AtaRow::ReadLogExt, {.count = 3}, LargeBuffer());
  EXPECT_EQ(1536u, TakeCommand().transferLength);
}

TEST_F(AtaCommands, GoToTheDeviceByteForByte) {
  Bytes data(1024);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * 7);
  (void)set.Send(AtaRow::WriteDma, {.count = 2}, data);
  EXPECT_EQ(Simulator::Digest(data.data(), data.size()), TakeCommand().dataDigest);
}

}  // namespace
}  // namespace Morvu::DeviceManagement
