// What becomes of a command: how the answers of kernels, layers and devices are told.
#include <gmock/gmock.h>
#include <signal.h>

#include <cerrno>
#include <random>

#include "NodeCommands.h"
#include "frame/status/Commands.h"
#include "frame/status/NvmeStatus.h"

namespace Morvu::DeviceManagement {
namespace {

using Simulator::Fault;
using Simulator::Kind;
using Simulator::SenseFormat;
using namespace std::chrono_literals;

constexpr std::uint8_t kCheck = 0x02;

// ---- Sense data ----

struct SenseCase {
  const char* name;
  Bytes sense;
  StatusCode pioIn;  // of a PIO read
  StatusCode nonData;
  bool isAnswered;  // the registers of the command without data are known
};

// clang-format off
const SenseCase kSenses[] = {
    {"nothing",                     {},                                                                      130, 130, false},
    {"registers available",         {0x70, 0, 0x01, 0, 0x50, 0x40, 7, 10, 0, 0, 0, 0, 0x00, 0x1D},           0,   0,   true},
    {"a recovered error",           {0x70, 0, 0x01, 0, 0x50, 0x12, 0x34, 10, 0, 0, 0, 0, 0x17, 0x01},        0,   0,   false},
    {"a medium error's address",    {0xF0, 0, 0x03, 0x00, 0x50, 0x12, 0x34, 10, 0, 0, 0, 0, 0x11, 0x00},     130, 130, false},
    {"one not marked as valid",     {0x70, 0, 0x03, 0x00, 0x50, 0x12, 0x34, 10, 0, 0, 0, 0, 0x11, 0x00},     130, 130, false},
    {"an address like an error",    {0xF0, 0, 0x03, 0x00, 0x51, 0x12, 0x34, 10, 0, 0, 0, 0, 0x11, 0x00},     130, 130, false},
    {"an address like a fault",     {0x70, 0, 0x03, 0x00, 0x20, 0x12, 0x34, 10, 0, 0, 0, 0, 0x11, 0x00},     130, 130, false},
    {"an unreadable sector",        {0x70, 0, 0x03, 0x40, 0x51, 0x40, 0x01, 10, 0, 1, 2, 3, 0x11, 0x04},     130, 130, true},
    {"a unit attention",            {0x70, 0, 0x06, 0, 0, 0, 0, 10, 0, 0x50, 0, 0, 0x29, 0x00},              130, 130, false},
    {"a time-out, old kernel",      {0x70, 0, 0x0B, 0, 0, 0, 0, 10, 0, 0x40, 0, 0, 0x00, 0x00, 0, 0, 0, 0},  130, 130, false},
    {"a time-out, SAT-3",           {0x70, 0, 0x0B, 0, 0x40, 0, 0, 10, 0, 0, 0, 0, 0x00, 0x00, 0, 0, 0, 0},  130, 130, false},
    {"a time-out, descriptor",      {0x72, 0x0B, 0, 0, 0, 0, 0, 14, 9, 12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x40}, 130, 130, false},
    {"an unended PIO read",         {0x70, 0, 0x0B, 0, 0, 0, 0, 10, 0, 0x58, 0x40, 1, 0x00, 0x00, 0, 0, 0, 0}, 0, 130, false},
    {"a parity error",              {0x70, 0, 0x0B, 0, 0x58, 0, 0, 10, 0, 0x58, 0, 0, 0x47, 0x00},           130, 130, false},
    {"the layer's refusal",         {0x70, 0, 0x05, 0, 0x51, 0, 0, 10, 0, 0x51, 0, 0, 0x24, 0x00},           130, 130, false},
    {"an unknown opcode",           {0x72, 0x05, 0x20, 0x00},                                                131, 131, false},
    {"a descriptor's likeness",     {0x70, 0, 0x03, 0, 0, 0, 0, 10, 9, 12, 1, 0, 0x11, 0x00, 0, 0x10, 0, 0, 0, 0, 0x40, 0x50}, 130, 130, false},
    {"a descriptor behind another", {0x72, 0x01, 0x00, 0x1D, 0, 0, 0, 18, 2, 2, 0, 0, 9, 12, 0, 0, 0, 0xFF, 0, 0, 0, 0, 0, 0, 0x40, 0x50}, 0, 0, true},
    {"a descriptor that is cut",    {0x72, 0x01, 0x00, 0x1D, 0, 0, 0, 14, 9, 12, 0, 0x04, 0, 0, 0, 0, 0, 0},  0,   0,   false},
    {"a deferred error",            {0x71, 0, 0x01, 0, 0x50, 0x40, 7, 10, 0, 0, 0, 0, 0x00, 0x1D},           130, 130, false},
    {"a device fault",              {0x70, 0, 0x0B, 0x04, 0x70, 0x40, 0, 10, 0, 0, 0, 0, 0x00, 0x00},        130, 130, true},
};
// clang-format on

TEST(AtaOutcome, IsToldBySenseAndRegisters) {
  for (const auto& row : kSenses) {
    SCOPED_TRACE(row.name);
    AtaNode node;
    node.drive.Inject(Fault::RawSense(kCheck, row.sense));
    Bytes data(512);
    EXPECT_EQ(row.pioIn, node.set.ataIdentifyDevice(data));
    EXPECT_EQ(row.nonData, node.set.Send(AtaRow::FlushCache));
    EXPECT_EQ(row.isAnswered, node.set.GetAnswer().known != 0);
    // A command that is there for its answer has failed without one.
    const auto mode = row.nonData == 0 && !row.isAnswered ? Status::AtaCommandFailed : row.nonData;
    EXPECT_EQ(mode, node.set.ataCheckPowerMode());
  }
}

// Layers that do not hand registers back: what was carried out is good, what was asked is
// not known.
TEST(AtaOutcome, WithoutRegistersTellsNoAnswer) {
  AtaNode node({.senseFormat = SenseFormat::None});
  Bytes data(512);
  EXPECT_EQ(Status::Completed, node.set.ataIdentifyDevice(data));
  EXPECT_EQ(Status::Completed, node.set.ataStandbyImmediate());
  EXPECT_EQ(Status::AtaCommandFailed, node.set.ataCheckPowerMode());
  EXPECT_EQ(Status::AtaCommandFailed, node.set.ataReadNativeMaxAddressExt());
  EXPECT_EQ(Status::AtaCommandFailed, node.set.ataSanitizeStatus(0));
  EXPECT_EQ(Reached::Done, node.path.GetOutcome().reached);
}

TEST(AtaOutcome, OfATimeOutIsAFailureInEachFormat) {
  for (const auto format :
       {SenseFormat::Descriptor, SenseFormat::FixedSat3, SenseFormat::FixedOldKernel}) {
    AtaNode node({.senseFormat = format});
    node.drive.Inject(Fault::Hang());
    Bytes data(512);
    EXPECT_EQ(Status::AtaCommandFailed, node.set.ataIdentifyDevice(data));
    EXPECT_EQ(Status::AtaCommandFailed, node.set.ataSecurityEraseUnit(data));
    EXPECT_EQ(Status::AtaCommandFailed, node.set.ataSanitizeBlockErase(0));
    EXPECT_EQ(3u, node.drive.Journal().size());
  }
}

// A removed drive: no error but the adapter's, and the data of an earlier command.
TEST(AtaOutcome, OfADriveThatWentAwayIsAFailure) {
  AtaNode node;
  node.drive.State().staleData = 1;
  Bytes data(512), second(512);
  ASSERT_EQ(Status::Completed, node.set.ataIdentifyDevice(data));
  node.drive.Inject(Fault::HostError(0x07).Times(1));
  EXPECT_EQ(Status::ScsiCommandFailed, node.set.ataIdentifyDevice(second));
  EXPECT_EQ(data, second);
}

// Whatever the sense: a failing key is a failure, but for a PIO read whose last data
// request still stands.
class RandomSense {
 public:
  Bytes Next() {
    Bytes sense(Pick(33));
    for (auto& byte : sense) byte = static_cast<std::uint8_t>(Pick(256));
    constexpr std::uint8_t kFormats[] = {0x70, 0x70, 0x72, 0x72, 0xF0, 0x71, 0x73, 0x00};
    constexpr std::pair<std::uint8_t, std::uint8_t> kCodes[] = {
        {0x00, 0x00}, {0x00, 0x1D}, {0x11, 0x04}, {0x20, 0x00}, {0x24, 0x00}, {0x29, 0x00}};
    const auto code = kCodes[Pick(std::size(kCodes))];
    Put(sense, 0, kFormats[Pick(std::size(kFormats))]);
    const bool isFixed = !sense.empty() && (sense[0] & 0x7E) == 0x70;
    Put(sense, isFixed ? 12 : 2, code.first);
    Put(sense, isFixed ? 13 : 3, code.second);
    if (Pick(2) == 0) Put(sense, isFixed ? 2 : 1, 0x0B);
    if (!isFixed && Pick(2) == 0) {
      Put(sense, 7, 14);
      Put(sense, 8, 9);
      Put(sense, 9, 12);
    }
    return sense;
  }

  std::size_t Pick(std::size_t count) { return random_() % count; }

 private:
  static void Put(Bytes& sense, std::size_t at, std::uint8_t value) {
    if (at < sense.size()) sense[at] = value;
  }
  std::mt19937 random_{20110518};
};

std::uint8_t At(const Bytes& sense, std::size_t at) { return at < sense.size() ? sense[at] : 0; }

bool HasFailingKey(const Bytes& sense) {
  const auto format = At(sense, 0) & 0x7F;
  if (format < 0x70 || format > 0x73) return false;
  const auto key = At(sense, format <= 0x71 ? 2 : 1) & 0x0F;
  return (format & 1) != 0 || (key != 0x0 && key != 0x1 && key != 0xF);
}

bool IsUnendedRead(const Bytes& sense) {
  const bool isFixed = (At(sense, 0) & 0x7F) == 0x70;
  const auto key = At(sense, isFixed ? 2 : 1) & 0x0F;
  if (key != 0x0B || At(sense, isFixed ? 12 : 2) != 0 || At(sense, isFixed ? 13 : 3) != 0) {
    return false;
  }
  const auto pending = [&](std::size_t at) { return (At(sense, at) & 0xA9) == 0x08; };
  return isFixed ? pending(4) || (At(sense, 4) == 0 && pending(9)) : pending(21);
}

TEST(AtaOutcome, AFailingKeyIsNeverGood) {
  AtaNode node({.journal = false});
  RandomSense random;
  Bytes data(512);
  int good = 0, unended = 0;
  for (int i = 0; i < 20'000; ++i) {
    const auto sense = random.Next();
    const bool isPioIn = random.Pick(2) == 0;
    node.drive.Inject(Fault::RawSense(random.Pick(4) == 0 ? 0 : kCheck, sense).Times(2));
    const auto code = isPioIn               ? node.set.ataIdentifyDevice(data)
                      : random.Pick(2) == 0 ? node.set.ataReadDma(data, 0, 1)
                                            : node.set.Send(AtaRow::FlushCache);
    node.drive.ClearFaults();
    if (code != 0 || !HasFailingKey(sense)) {
      good += code == 0;
      continue;
    }
    ++unended;
    ASSERT_TRUE(isPioIn && IsUnendedRead(sense)) << HexDump(sense);
  }
  EXPECT_GT(good, 500);
  EXPECT_GT(unended, 10);
}

TEST(ScsiOutcome, AFailingKeyIsNeverGood) {
  ScsiNode node({.kind = Kind::Scsi, .journal = false});
  RandomSense random;
  int good = 0;
  for (int i = 0; i < 10'000; ++i) {
    const auto sense = random.Next();
    node.drive.Inject(Fault::RawSense(random.Pick(4) == 0 ? 0 : kCheck, sense).Times(2));
    const auto code = node.set.Send(ScsiRow::TestUnitReady);
    node.drive.ClearFaults();
    if (code != 0) continue;
    ASSERT_FALSE(HasFailingKey(sense)) << HexDump(sense);
    ++good;
  }
  EXPECT_GT(good, 500);
}

// ---- SCSI ----

TEST(ScsiOutcome, OfEachStatusThatDoesNoWorkIsAFailure) {
  ScsiNode node;
  for (const std::uint8_t status : {0x02, 0x08, 0x18, 0x22, 0x28, 0x30, 0x40}) {
    node.drive.Inject(Fault::RawSense(status, {}).Times(1));
    EXPECT_EQ(Status::ScsiCommandFailed, node.set.Send(ScsiRow::TestUnitReady)) << int{status};
  }
  node.drive.Inject(Fault::RawSense(0x04, {}).Times(1));  // CONDITION MET
  EXPECT_EQ(Status::Completed, node.set.Send(ScsiRow::TestUnitReady));
}

// A read that changes nothing is repeated once behind a UNIT ATTENTION, a write is not.
TEST(ScsiOutcome, OfAUnitAttentionIsAskedOnceMore) {
  ScsiNode node;
  Bytes data(512);
  const auto attention = Fault::ScsiError(kCheck, 0x06, 0x29);
  const auto sent = [&](std::uint32_t times, auto send) {
    node.drive.ClearJournal();
    auto fault = attention;
    node.drive.Inject(fault.Times(times));
    const StatusCode code = send();
    node.drive.ClearFaults();
    return std::pair(code.Value(), node.drive.Journal().size());
  };
  const auto read = [&] { return node.set.scsiReadCapacity10(data); };
  EXPECT_EQ(std::pair(0, std::size_t{2}), sent(1, read));
  EXPECT_EQ(std::pair(131, std::size_t{2}), sent(2, read));
  const auto write = [&] { return node.set.Send(ScsiRow::Write10, {.count = 1}, data); };
  EXPECT_EQ(std::pair(131, std::size_t{1}), sent(1, write));
}

struct ShortRead {
  const ScsiCommand& row;
  ScsiArguments arguments;
  std::uint32_t given;
  std::int32_t code;
};

TEST(ScsiOutcome, OfAReadThatBringsTooLittleIsAFailure) {
  const ShortRead kReads[] = {
      {ScsiRow::Read10, {.count = 1}, 512, 0},
      {ScsiRow::Read10, {.count = 1}, 511, 131},
      {ScsiRow::Inquiry, {.length = 255, .blocks = 1}, 36, 0},
      {ScsiRow::Inquiry, {.length = 255, .blocks = 1}, 35, 131},
      {ScsiRow::ReadCapacity10, {}, 8, 0},
      {ScsiRow::ReadCapacity10, {}, 7, 131},
      {ScsiRow::ReadCapacity16, {.length = 32, .blocks = 1}, 0, 131},
  };
  for (const auto& read : kReads) {
    ScsiNode node;
    node.drive.Inject(Fault::ShortData(read.given));
    Bytes data(512);
    EXPECT_EQ(read.code, node.set.Send(read.row, read.arguments, data))
        << read.row.name << ' ' << read.given;
  }
}

TEST(ScsiOutcome, LeftoverSenseIsNoDevice) {
  ScsiNode node;
  const Bytes leftover = {0x70, 0, 0x06, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x29, 0x00};
  node.drive.Inject(Fault::RawSense(kCheck, leftover).WithHostStatus(0x01).Times(1));
  EXPECT_FALSE(node.path.TestDevice());
  node.drive.Inject(Fault::RawSense(kCheck, leftover).Times(1));
  EXPECT_TRUE(node.path.TestDevice());
}

// ---- NVMe ----

TEST(NvmeOutcome, ComesWithoutTheFlagsOfTheStatus) {
  NvmeNode node;
  node.drive.Inject(Fault::NvmeStatus(0x002).Times(1));
  EXPECT_EQ(FromNvmeStatus(0x002), node.set.nvmeGetFeatures(0x04, 0, 0, {}));
  EXPECT_TRUE(node.path.GetOutcome().doNotRetry);
  node.drive.Inject(Fault::NvmeStatus(0x2286).Times(1));
  EXPECT_EQ(FromNvmeStatus(0x286), node.set.nvmeGetFeatures(0x04, 0, 0, {}));
  EXPECT_TRUE(node.path.GetOutcome().more);
  node.drive.Inject(Fault::NvmeStatus(0x4000).Times(1));  // flags alone name no error
  EXPECT_EQ(Status::NvmeCommandFailed, node.set.nvmeGetFeatures(0x04, 0, 0, {}));
}

// The kernel ends a command that it gave up on with EINTR, without any signal.
TEST(NvmeOutcome, OfATimeOutIsNotSentAgain) {
  NvmeNode node;
  node.drive.Inject(Fault::Hang());
  EXPECT_EQ(-EINTR, node.set.nvmeFormatNVM({.nsid = 1}));
  EXPECT_EQ(1u, node.drive.Journal().size());
}

// ---- Time-outs and signals ----

TEST(Outcome, TheLongestTimeOutDoesNotWrap) {
  AtaNode node;
  for (const auto seconds : {4294967s, 4294968s, 100'000'000'000s}) {
    node.path.SetTimeout(seconds);
    (void)node.set.Send(AtaRow::FlushCache);
    EXPECT_GE(node.TakeCommand().timeoutMs, 4294967000u);
  }
}

volatile sig_atomic_t signalsTaken = 0;

// A signal neither ends a command nor sends it twice; it is taken afterwards.
TEST(Outcome, SignalsWaitForTheEndOfACommand) {
  struct sigaction action {
  }, before{};
  action.sa_handler = [](int) { signalsTaken = signalsTaken + 1; };
  for (const int flags : {0, SA_RESTART}) {
    AtaNode node;
    action.sa_flags = flags;
    sigaction(SIGALRM, &action, &before);
    signalsTaken = 0;
    node.drive.Inject(Fault::Signal(SIGALRM).Times(1));
    EXPECT_EQ(Status::Completed, node.set.Send(AtaRow::FlushCache));
    EXPECT_EQ(1, signalsTaken);
    EXPECT_EQ(1u, node.drive.Journal().size());
    sigaction(SIGALRM, &before, nullptr);
  }
}

}  // namespace
}  // namespace Morvu::DeviceManagement
