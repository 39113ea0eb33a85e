#include "AdapterCalls.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <set>
#include <span>

#include "Bytes.h"
#include "Controllers.h"
#include "Fleet.h"

#define MORVU_VISIBLE __attribute__((visibility("default")))

namespace Simulator {

namespace {

constexpr int kDone = 0, kRefused = 1;

using Bytes = std::span<std::uint8_t>;

// The record that a call gets: 32 bytes and a pointer.
struct Request {
  std::uint8_t group, command;
  std::uint8_t unused2[2];
  std::uint8_t controller[4];
  std::uint8_t volume[2];
  std::uint8_t device[2];
  std::uint8_t unused12[16];
  std::uint8_t length[4];
  std::uint8_t* block;
};
static_assert(sizeof(Request) == 32 + sizeof(void*));

struct Call {
  const Request& request;
  Bytes block;
  Fleet& fleet;
  std::uint32_t controller;
  std::uint16_t volume, device;
  bool isMalformed = false;

  int Refuse() {
    isMalformed = true;
    return kRefused;
  }
};

std::atomic<std::uint32_t> begun, ended, calls, malformed, running;
std::atomic<bool> isBegun;

bool IsZero(std::span<const std::uint8_t> bytes) {
  return std::ranges::all_of(bytes, [](std::uint8_t byte) { return byte == 0; });
}

template <typename T>
T Get(Bytes block, std::size_t at) {
  return GetLittle<T>(block.data() + at);
}

template <typename T>
void Put(Bytes block, std::size_t at, T value) {
  PutLittle<T>(block.data() + at, value);
}

// ---- Lists ----

int Begin(Call& call) {
  if (isBegun.exchange(true)) return call.Refuse();
  ++begun;
  Put(call.block, 0, static_cast<std::uint16_t>(ReadControllers(call.fleet.Root()).size()));
  return kDone;
}

int End(Call& call) {
  if (running != 1) return call.Refuse();  // this one alone
  isBegun = false;
  ++ended;
  return kDone;
}

int ListControllers(Call& call) {
  constexpr std::size_t kPath = 16, kFirst = 2;
  const auto path = call.block.subspan(kPath);
  if (!IsZero(call.block.first(kPath)) || path.back() != 0 || path.size() < 2 ||
      std::ranges::count(path, 0) != 1) {
    return call.Refuse();
  }
  const auto controllers = ReadControllers(call.fleet.Root());
  Put(call.block, 0, static_cast<std::uint16_t>(controllers.size()));
  for (std::size_t i = 0; i < controllers.size(); ++i) {
    const auto at = kFirst + 4 * i;
    if (at + 4 <= call.block.size()) Put(call.block, at, controllers[i].id);
  }
  return kDone;
}

int ListDrives(Call& call) {
  constexpr std::size_t kFirst = 8, kStride = 24, kMost = 256;
  constexpr std::uint32_t kEnclosure = 252;
  std::size_t count = 0;
  for (const auto& drive : ReadBoundDrives(call.fleet.Root())) {
    if (drive.controller != call.controller || count == kMost) continue;
    const auto record = call.block.subspan(kFirst + kStride * count++, kStride);
    Put(record, 0, drive.device);
    Put<std::uint16_t>(record, 2, drive.isHidden ? 1 : 0);
    const std::uint32_t location[] = {kEnclosure, drive.device, 0, 0x5000C500u + drive.device,
                                      0x50000000u};
    for (std::size_t i = 0; i < std::size(location); ++i) Put(record, 4 + 4 * i, location[i]);
  }
  Put(call.block, 0, static_cast<std::uint16_t>(count));
  return kDone;
}

int ListVolumesOfDrives(Call& call) {
  constexpr std::size_t kFirst = 4, kStride = 36, kMost = 256, kMostVolumes = 16;
  const auto volumes = ReadVolumes(call.fleet.Root());
  std::size_t count = 0;
  for (const auto& drive : ReadBoundDrives(call.fleet.Root())) {
    if (drive.controller != call.controller || count == kMost) continue;
    const auto record = call.block.subspan(kFirst + kStride * count++, kStride);
    std::uint16_t named = 0;
    for (const auto& volume : volumes) {
      const bool isIn = volume.controller == call.controller && named < kMostVolumes &&
                        std::ranges::count(volume.members, drive.device) > 0;
      if (isIn) Put(record, 4 + 2u * named++, volume.number);
    }
    Put(record, 0, drive.device);
    Put(record, 2, named);
  }
  Put(call.block, 0, static_cast<std::uint16_t>(count));
  return kDone;
}

int ListMembers(Call& call) {
  constexpr std::size_t kFirst = 4, kMost = 256;
  for (const auto& volume : ReadVolumes(call.fleet.Root())) {
    if (volume.controller != call.controller || volume.number != call.volume) continue;
    const auto count = std::min(volume.members.size(), kMost);
    Put(call.block, 0, static_cast<std::uint16_t>(count));
    Put(call.block, 2, volume.generic);
    for (std::size_t i = 0; i < count; ++i) Put(call.block, kFirst + 2 * i, volume.members[i]);
    return kDone;
  }
  return kRefused;
}

// ---- Commands ----

constexpr std::uint8_t kMovesNone = 0, kMovesOut = 1, kMovesIn = 2;

Direction ToDirection(std::uint8_t direction) {
  return direction == kMovesOut  ? Direction::ToDevice
         : direction == kMovesIn ? Direction::FromDevice
                                 : Direction::None;
}

std::shared_ptr<Drive> FindDrive(const Call& call) {
  return call.fleet.Find(BoundDrive{call.controller, call.device}.Name()).drive;
}

// The data part of a block fits what the block's head says of it.
bool DataFit(Bytes data, std::uint8_t direction, std::uint64_t length) {
  if (direction > kMovesIn || length != data.size()) return false;
  return direction == kMovesOut || IsZero(data);
}

// An adapter has no signal mask of its own: one that comes is for the calling thread.
bool Execute(Drive& drive, Transaction& transaction) {
  drive.Execute(transaction);
  if (transaction.signal != 0) pthread_kill(pthread_self(), transaction.signal);
  return transaction.errorNumber == 0 && transaction.hostStatus == 0 && !transaction.timedOut;
}

// The 48-bit commands that drives know (ACS-3, chapter 7): the frame does not tell.
bool IsExtended(std::uint8_t opcode) {
  constexpr std::uint8_t kOpcodes[] = {0x06, 0x0B, 0x24, 0x25, 0x27, 0x29, 0x2F,
                                       0x34, 0x35, 0x37, 0x39, 0x3D, 0x3F, 0x42,
                                       0x47, 0x57, 0x77, 0x82, 0xB4, 0xCE, 0xEA};
  return std::ranges::count(kOpcodes, opcode) > 0;
}

// SAT-3's PROTOCOL field, in its place.
std::uint8_t ProtocolOf(std::uint8_t direction, bool isDma) {
  constexpr std::uint8_t kNonData = 3 << 1, kPioIn = 4 << 1, kPioOut = 5 << 1, kDma = 6 << 1;
  if (direction == kMovesNone) return kNonData;
  if (isDma) return kDma;
  return direction == kMovesOut ? kPioOut : kPioIn;
}

// The same command as ATA PASS-THROUGH (16), which the drive's journal shows.
void PutPassThrough(std::span<const std::uint8_t> frame, std::uint8_t direction, bool isDma,
                    std::uint8_t (&cdb)[16]) {
  constexpr std::uint8_t kCheckCondition = 0x20, kInBlocks = 0x06, kFromDevice = 0x08;
  const auto transfer =
      direction == kMovesNone ? 0 : kInBlocks | (direction == kMovesIn ? kFromDevice : 0);
  const std::uint8_t bytes[16] = {
      0x85,
      static_cast<std::uint8_t>(ProtocolOf(direction, isDma) | (IsExtended(frame[2]) ? 1 : 0)),
      static_cast<std::uint8_t>(kCheckCondition | transfer),
      frame[11],
      frame[3],
      frame[13],
      frame[12],
      frame[8],
      frame[4],
      frame[9],
      frame[5],
      frame[10],
      frame[6],
      frame[7],
      frame[2],
      0};
  std::memcpy(cdb, bytes, sizeof cdb);
}

void PutFrame(const Transaction& transaction, Bytes frame) {
  const auto lba = [&](int shift) {
    return static_cast<std::uint8_t>(transaction.ataLba >> shift);
  };
  const auto count = transaction.ataCount;
  const std::uint8_t bytes[] = {0x34,
                                0x40,
                                transaction.ataStatus,
                                transaction.ataError,
                                lba(0),
                                lba(8),
                                lba(16),
                                transaction.ataDevice,
                                lba(24),
                                lba(32),
                                lba(40),
                                0,
                                static_cast<std::uint8_t>(count),
                                static_cast<std::uint8_t>(count >> 8)};
  std::memcpy(frame.data(), bytes, sizeof bytes);
}

int SendAta(Call& call) {
  constexpr std::size_t kFrame = 20, kFrameSize = 16, kLength = 36, kAnswer = 40, kData = 60;
  constexpr std::uint32_t kDmaFlag = 32, kPioFlag = 16, kFlags[] = {4, 2, 1};
  const auto block = call.block;
  const auto direction = block[2];
  const auto flags = Get<std::uint32_t>(block, 8);
  const bool isDma = (flags & kDmaFlag) != 0;
  const auto frame = block.subspan(kFrame, kFrameSize);
  const auto data = block.subspan(kData);
  const bool isWell = Get<std::uint16_t>(block, 0) == call.device && direction <= kMovesIn &&
                      block[3] == 0 && Get<std::uint32_t>(block, 4) == kFrame &&
                      flags == (kFlags[direction] | (isDma ? kDmaFlag : kPioFlag)) &&
                      IsZero(block.subspan(12, 8)) && frame[0] == 0x27 && frame[1] == 0x80 &&
                      IsZero(frame.subspan(14)) &&
                      IsZero(block.subspan(kAnswer, kData - kAnswer)) &&
                      DataFit(data, direction, Get<std::uint32_t>(block, kLength)) &&
                      data.size() % 512 == 0 && data.empty() == (direction == kMovesNone);
  if (!isWell) return call.Refuse();
  const auto drive = FindDrive(call);
  if (drive == nullptr || drive->State().kind != Kind::Ata) return kRefused;

  std::uint8_t cdb[16];
  PutPassThrough(frame, direction, isDma, cdb);
  Transaction transaction;
  transaction.command = cdb;
  transaction.commandLength = sizeof cdb;
  transaction.direction = ToDirection(direction);
  transaction.data = data.empty() ? nullptr : data.data();
  transaction.length = static_cast<std::uint32_t>(data.size());
  transaction.requested = transaction.length;
  // What the layer would tell by sense alone is no frame of the drive's.
  if (!Execute(*drive, transaction) || transaction.ataStatus == 0) return kRefused;
  PutFrame(transaction, block.subspan(kAnswer));
  return kDone;
}

bool IsPassThrough(std::uint8_t opcode) { return opcode == 0xA1 || opcode == 0x85; }

int SendScsi(Call& call) {
  constexpr std::size_t kCdb = 12, kCdbSize = 16, kSense = 28, kLength = 60, kData = 64;
  constexpr std::uint8_t kGood = 0x00, kCheckCondition = 0x02, kLengths[] = {6, 10, 12, 16};
  const auto block = call.block;
  const auto direction = block[2];
  const auto size = block[3];
  const auto data = block.subspan(kData);
  const bool isWell = Get<std::uint16_t>(block, 0) == call.device &&
                      std::ranges::count(kLengths, size) > 0 && IsZero(block.subspan(4, 8)) &&
                      IsZero(block.subspan(kCdb, kCdbSize).subspan(size)) &&
                      IsZero(block.subspan(kSense, kLength - kSense)) &&
                      DataFit(data, direction, Get<std::uint32_t>(block, kLength)) &&
                      data.empty() == (direction == kMovesNone);
  if (!isWell) return call.Refuse();
  const auto drive = FindDrive(call);
  if (drive == nullptr) return kRefused;

  Transaction transaction;
  transaction.command = block.data() + kCdb;
  transaction.commandLength = size;
  transaction.direction = ToDirection(direction);
  transaction.data = data.empty() ? nullptr : data.data();
  transaction.length = static_cast<std::uint32_t>(data.size());
  transaction.requested = transaction.length;
  const auto controllers = ReadControllers(call.fleet.Root());
  const auto controller = std::ranges::find(controllers, call.controller, &Controller::id);
  if (IsPassThrough(block[kCdb]) && !controller->passesThrough) {
    transaction.Refuse(0x20, 0x00);
  } else if (!Execute(*drive, transaction)) {
    return kRefused;
  }
  if (transaction.scsiStatus == kCheckCondition) {
    std::memcpy(block.data() + kSense, transaction.sense, sizeof transaction.sense);
    return kDone;
  }
  return transaction.scsiStatus == kGood ? kDone : kRefused;
}

// ---- The table of calls ----

struct CallRow {
  std::uint8_t group, command;
  std::uint32_t size;  // the block's, or its head's where more may follow
  bool mayBeLonger;
  bool namesVolume, namesDevice;
  int (*run)(Call&);
};

// clang-format off
constexpr CallRow kCalls[] = {
    {0,  0,   68, false, false, false, Begin},
    {0,  9,    0, false, false, false, End},
    {0,  3,   17, true,  false, false, ListControllers},
    {1,  4, 6152, false, false, false, ListDrives},
    {1, 12, 9220, false, false, false, ListVolumesOfDrives},
    {3, 11,  516, false, true,  false, ListMembers},
    {6,  2,   60, true,  false, true,  SendAta},
    {6,  1,   64, true,  false, true,  SendScsi},
};
// clang-format on

const CallRow* FindRow(const Request& request) {
  const auto row = std::ranges::find_if(kCalls, [&](const CallRow& each) {
    return each.group == request.group && each.command == request.command;
  });
  return row == std::end(kCalls) ? nullptr : row;
}

bool HasRightForm(const CallRow& row, const Call& call) {
  const auto& request = call.request;
  const auto length = GetLittle<std::uint32_t>(request.length);
  const bool hasSize = row.mayBeLonger ? length >= row.size : length == row.size;
  return hasSize && (request.block == nullptr) == (length == 0) && IsZero(request.unused2) &&
         IsZero(request.unused12) && (row.namesVolume || call.volume == 0) &&
         (row.namesDevice || call.device == 0) && (row.group != 0 || call.controller == 0);
}

bool NamesController(const CallRow& row, const Call& call) {
  const auto controllers = ReadControllers(call.fleet.Root());
  return row.group == 0 || std::ranges::count(controllers, call.controller, &Controller::id) > 0;
}

// ---- A library that misbehaves ----

// Each answer of a call is as it should be, and then this is done to it.
struct LibraryFault {
  std::string_view name;
  std::uint8_t group, command;
  int (*spoil)(Bytes block);
};

int Fail(Bytes) { return kRefused; }
int ClaimMany(Bytes block) {
  Put<std::uint16_t>(block, 0, 65535);
  return kDone;
}
// An item of a list, once more in the second one's place.
template <std::size_t First, std::size_t Stride>
int Repeat(Bytes block) {
  std::memcpy(block.data() + First + Stride, block.data() + First, Stride);
  Put<std::uint16_t>(block, 0, 2);
  return kDone;
}
int ClaimManyVolumes(Bytes block) {
  for (std::size_t at = 6; at + 2 <= block.size(); at += 36) Put<std::uint16_t>(block, at, 65535);
  return ClaimMany(block);
}
int NameNone(Bytes block) {
  Put<std::uint16_t>(block, 0, 0);
  return kDone;
}
int NameNoVolume(Bytes block) {
  // The first drive keeps its volumes.
  for (std::size_t at = 4 + 36 + 2; at + 2 <= block.size(); at += 36) {
    Put<std::uint16_t>(block, at, 0);
  }
  return kDone;
}
// A frame that reads as success to who looks at the status alone.
template <std::uint8_t Type>
int SpoilFrame(Bytes block) {
  std::fill_n(block.begin() + 40, 20, std::uint8_t{0x50});
  block[40] = Type;
  return kDone;
}
template <std::size_t Data, int Result>
int FailWithData(Bytes block) {
  std::fill(block.begin() + Data, block.end(), std::uint8_t{0xEE});
  return Result;
}
template <std::size_t Head>
int FailEmpty(Bytes block) {
  std::fill(block.begin() + Head, block.end(), std::uint8_t{0});
  return kRefused;
}
int FillAll(Bytes block) {
  std::ranges::fill(block, std::uint8_t{0xFF});
  return kDone;
}

// clang-format off
constexpr LibraryFault kFaults[] = {
    {"begin-fails",       0,  0, Fail},
    {"controllers-fail",  0,  3, Fail},
    {"many-controllers",  0,  3, ClaimMany},
    {"same-controller",   0,  3, Repeat<2, 4>},
    {"controllers-ones",  0,  3, FillAll},
    {"drives-fail",       1,  4, Fail},
    {"many-drives",       1,  4, ClaimMany},
    {"same-drive",        1,  4, Repeat<8, 24>},
    {"drives-ones",       1,  4, FillAll},
    {"volumes-fail",      1, 12, Fail},
    {"many-volumes",      1, 12, ClaimManyVolumes},
    {"few-volumes",       1, 12, NameNoVolume},
    {"volumes-ones",      1, 12, FillAll},
    {"members-fail",      3, 11, Fail},
    {"many-members",      3, 11, ClaimMany},
    {"no-members",        3, 11, NameNone},
    {"members-ones",      3, 11, FillAll},
    {"ata-zero-frame",    6,  2, SpoilFrame<0x00>},
    {"ata-wrong-frame",   6,  2, SpoilFrame<0x50>},
    {"ata-fails-data",    6,  2, FailWithData<60, kRefused>},
    {"ata-fails",         6,  2, FailEmpty<40>},
    {"ata-ones",          6,  2, FillAll},
    {"scsi-fails-data",   6,  1, FailWithData<64, kRefused>},
    {"scsi-fails",        6,  1, FailEmpty<28>},
    {"scsi-ones",         6,  1, FillAll},
};
// clang-format on

int Spoil(const CallRow& row, Call& call, int result) {
  if (result != kDone) return result;
  for (const auto& name : ReadLibraryFaults(call.fleet.Root())) {
    for (const auto& fault : kFaults) {
      if (fault.name != name || fault.group != row.group || fault.command != row.command) continue;
      result = fault.spoil(call.block);
      // One whose first call failed was never begun.
      if (result != kDone && row.run == Begin && isBegun.exchange(false)) --begun;
    }
  }
  return result;
}

int Answer(Fleet& fleet, const Request& request) {
  const auto length = GetLittle<std::uint32_t>(request.length);
  Call call{request,
            Bytes(request.block, request.block == nullptr ? 0 : length),
            fleet,
            GetLittle<std::uint32_t>(request.controller),
            GetLittle<std::uint16_t>(request.volume),
            GetLittle<std::uint16_t>(request.device)};
  const auto* row = FindRow(request);
  const bool isFirst = row != nullptr && row->run == Begin;
  int result = kRefused;
  if (row == nullptr || !HasRightForm(*row, call) || (!isFirst && !isBegun)) {
    call.isMalformed = true;
  } else if (NamesController(*row, call)) {
    // Only data that goes out and the path of 0/3 may hold anything but zeros.
    const bool isList = row->group != 6 && !row->mayBeLonger;
    result = isList && !IsZero(call.block) ? call.Refuse() : Spoil(*row, call, row->run(call));
  }
  if (call.isMalformed) ++malformed;
  return result;
}

}  // namespace

AdapterRecord GetAdapterRecord() { return {begun, ended, calls, malformed, running}; }

bool IsLibraryFault(std::string_view name) {
  return std::ranges::count(kFaults, name, &LibraryFault::name) > 0;
}

std::string ListLibraryFaults() {
  std::string names;
  for (const auto& fault : kFaults) names += (names.empty() ? "" : ", ") + std::string(fault.name);
  return names;
}

}  // namespace Simulator

// What the vendor's library in this process calls.
extern "C" MORVU_VISIBLE int morvu_simulator_adapter_call(void* request) {
  using namespace Simulator;
  const auto fleet = ActiveFleet();
  if (fleet == nullptr || request == nullptr) return kRefused;
  ++calls;
  ++running;
  const int result = Answer(*fleet, *static_cast<const Request*>(request));
  --running;
  return result;
}
