// SMART (ACS-3, 7.47) and the general purpose logs.
#include <cstdio>
#include <cstring>

#include "Ata.h"
#include "Bytes.h"
#include "VendorLogs.h"

namespace Simulator {

namespace {

constexpr std::uint16_t kKey = 0xC24F, kFailing = 0x2CF4;
constexpr std::uint8_t kRunning = 0xF0;

// Every SMART command carries its key, and all but ENABLE need SMART on.
bool MaySmartRun(AtaCommand& command) {
  const bool keyed = (command.In().lba >> 8 & 0xFFFF) == kKey;
  if (keyed && command.Ata().smartEnabled) return true;
  command.Abort();
  return false;
}

void PutChecksum(std::span<std::uint8_t> block) {
  std::uint8_t sum = 0;
  for (std::size_t i = 0; i + 1 < block.size(); ++i)
    sum = static_cast<std::uint8_t>(sum + block[i]);
  block.back() = static_cast<std::uint8_t>(-sum);
}

std::uint32_t Duration(const SelfTestState& test) {
  switch (test.type & 0x7F) {
    case 1:
      return test.shortMs;
    case 3:
      return test.conveyanceMs;
    default:
      return test.extendedMs;
  }
}

// Byte 363: the state in 7:4, in 3:0 what is left in tens of percent.
std::uint8_t SelfTestStatus(Drive& drive) {
  auto& test = drive.State().ata.selfTest;
  if (!test.running) return test.status;
  const auto duration = std::max<std::uint32_t>(Duration(test), 1);
  const auto now = drive.Now();
  const auto elapsed = now > test.startedMs ? now - test.startedMs : 0;
  if (elapsed >= duration) {
    test.running = 0;
    test.status = static_cast<std::uint8_t>(test.nextResult << 4);
    return test.status;
  }
  const auto left = (duration - elapsed) * 10 / duration;
  return static_cast<std::uint8_t>(kRunning | std::min<std::uint64_t>(left, 9));
}

void PutAttributes(const AtaState& ata, std::uint8_t* block) {
  for (std::size_t i = 0; i < kSmartAttributes; ++i) {
    const auto& attribute = ata.attributes[i];
    auto* entry = block + 2 + 12 * i;
    entry[0] = attribute.id;
    if (attribute.id == 0) continue;
    PutLittle(entry + 1, attribute.flags);
    entry[3] = attribute.value;
    entry[4] = attribute.worst;
    for (int byte = 0; byte < 6; ++byte)
      entry[5 + byte] = static_cast<std::uint8_t>(attribute.raw >> (8 * byte));
  }
}

// One test, the last one that ended.
void PutSelfTestLog(AtaCommand& command, std::uint8_t* block) {
  SelfTestStatus(command.TheDrive());
  const auto& test = command.Ata().selfTest;
  PutLittle<std::uint16_t>(block, 1);
  if (test.type == 0 || test.running) return;
  block[2] = test.type;
  block[3] = test.status;
  block[508] = 1;
}

// Device Statistics, page by page (ACS-3, 9.5): what the attributes tell as well.
void PutStatistics(const AtaState& ata, std::uint32_t page, std::uint8_t* block) {
  const auto raw = [&](std::uint8_t id) -> std::uint64_t {
    for (const auto& each : ata.attributes) {
      if (each.id == id) return id == 0xE9 ? 100u - each.value : each.raw;
    }
    return 0;
  };
  struct Statistic {
    std::uint32_t page;
    std::uint8_t offset, attribute;
    std::uint64_t unit;
  };
  constexpr Statistic kStatistics[] = {
      {1, 16, 0x09, 1}, {1, 24, 0xE1, 65536}, {4, 8, 0xBB, 1}, {5, 8, 0xBE, 1}, {7, 8, 0xE9, 1}};
  constexpr std::uint64_t kSupportedAndValid = std::uint64_t{0xC0} << 56;
  block[2] = static_cast<std::uint8_t>(page);
  for (const auto& each : kStatistics) {
    if (each.page != page) continue;
    PutLittle(block + each.offset, raw(each.attribute) * each.unit | kSupportedAndValid);
  }
}

constexpr std::uint8_t kStatisticsLog = 0x04;

struct BuiltInLog {
  std::uint8_t address;
  std::uint16_t pages;
  bool smart, general;
};

constexpr std::uint16_t kNlogBlocks = 7;

// clang-format off
constexpr BuiltInLog kLogs[] = {
    {0x01, 1, true, false},   // summary error log
    {0x03, 1, false, true},   // extended comprehensive error log
    {kStatisticsLog, 8, false, true},
    {0x06, 1, true, false},   // self-test log
    {0x07, 1, false, true},   // extended self-test log
    {0x10, 1, false, true},   // queued error log
    {0x11, 1, false, true},   // PHY event counters
    {0x30, 2, true, true},    // IDENTIFY DEVICE data
    {0xB9, kEventLogBlocks, false, true},
    {0xBA, kNlogBlocks, false, true},
    {0xDE, kEventLogBlocks, false, true},
    {0xDF, kNlogBlocks, false, true},
    {0xE0, 1, true, true},    // SCT command and status
    {0xE1, 1, true, true},    // SCT data transfer
};
// clang-format on

bool IsKept(const AtaState& ata, const BuiltInLog& log) {
  return log.address != kStatisticsLog || ata.hasStatistics;
}

const BuiltInLog* FindLog(const AtaState& ata, std::uint8_t address) {
  for (const auto& log : kLogs) {
    if (log.address == address && IsKept(ata, log)) return &log;
  }
  return nullptr;
}

std::string FileName(std::uint8_t address) {
  char name[8];
  std::snprintf(name, sizeof name, "ata-%02X", address);
  return name;
}

void PutDirectory(Drive& drive, std::uint8_t* block) {
  PutLittle<std::uint16_t>(block, 1);
  for (const auto& log : kLogs) {
    if (IsKept(drive.State().ata, log)) PutLittle(block + 2 * log.address, log.pages);
  }
  for (int address = 1; address < 256; ++address) {
    std::uint64_t size = 0;
    if (!drive.HasLog(FileName(static_cast<std::uint8_t>(address)), &size)) continue;
    PutLittle(block + 2 * address, static_cast<std::uint16_t>(std::min<std::uint64_t>(
                                       (size + kBlock - 1) / kBlock, 0xFFFF)));
  }
}

struct PhyCounter {
  std::uint16_t identifier;  // with the size of the value, in words, in bits 14:12
  std::uint64_t value;
};

// clang-format off
constexpr PhyCounter kPhyCounters[] = {
    {0x1001, 0},  // command failed by ICRC
    {0x1002, 0},  // R_ERR, data FIS
    {0x1003, 0},  // R_ERR, data FIS, device to host
    {0x1004, 0},  // R_ERR, data FIS, host to device
    {0x1005, 0},  // R_ERR, other FIS
    {0x1008, 0},  // retries of device-to-host non-data FIS
    {0x1009, 3},  // PhyRdy to PhyNRdy
    {0x100A, 5},  // signature FIS after COMRESET
    {0x100B, 0},  // CRC, host to device
    {0x100D, 0},  // non-CRC, host to device
    // The vendor's, of each size.
    {0x9A01, 0xFFFF},
    {0xAA02, 0x12345678},
    {0xBA03, 0x123456789ABC},
    {0xCA04, 0x8000000000000001},
};
// clang-format on

void PutPhyCounters(std::uint8_t* block) {
  auto* at = block + 4;
  for (const auto& counter : kPhyCounters) {
    PutLittle(at, counter.identifier);
    at += 2;
    for (int left = (counter.identifier >> 12 & 7) * 2, low = 0; left > 0; --left, low += 8) {
      *at++ = static_cast<std::uint8_t>(counter.value >> low);
    }
  }
}

void PutIdentifyLog(AtaCommand& command, std::uint32_t page, std::uint8_t* block) {
  if (page == 0) {  // the pages there are
    PutLittle<std::uint16_t>(block, 1);
    block[8] = 2;
    block[9] = 0x00;
    block[10] = 0x01;
    return;
  }
  std::uint8_t identify[512];
  BuildIdentify(command.TheDrive(), identify);
  std::memcpy(block, identify, sizeof identify);
}

void PutNlogBlock(std::uint32_t page, std::uint8_t* block) {
  const auto& image = BuiltInNlog();
  const auto at = std::min<std::size_t>(page * std::size_t{kBlock}, image.size());
  std::memcpy(block, image.data() + at, std::min<std::size_t>(kBlock, image.size() - at));
}

void PutBuiltIn(AtaCommand& command, std::uint8_t address, std::uint32_t page,
                std::uint8_t* block) {
  switch (address) {
    case 0x01:
      block[0] = 1;
      break;
    case 0x03:
      block[0] = 1;
      break;
    case 0x06:
      PutSelfTestLog(command, block);
      break;
    case 0x07:
      block[0] = 1;
      break;
    case 0x11:
      PutPhyCounters(block);
      break;
    case 0x30:
      return PutIdentifyLog(command, page, block);
    case 0xB9:
    case 0xDE:
      return PutEventBlock(page, block);
    case 0xBA:
    case 0xDF:
      return PutNlogBlock(page, block);
    case kStatisticsLog:
      return PutStatistics(command.Ata(), page, block);
    case 0xE0:
      return ReadSctStatus(command, {block, kBlock});
    default:
      break;
  }
  PutChecksum({block, kBlock});
}

bool IsThere(AtaCommand& command, std::uint8_t address, bool smart) {
  if (address == 0 || command.TheDrive().HasLog(FileName(address))) return true;
  const auto* log = FindLog(command.Ata(), address);
  return log != nullptr && (smart ? log->smart : log->general);
}

}  // namespace

bool ReadAtaLog(AtaCommand& command, std::uint8_t address, std::uint32_t page,
                std::span<std::uint8_t> into) {
  std::memset(into.data(), 0, into.size());
  std::uint64_t size = 0;
  if (command.TheDrive().HasLog(FileName(address), &size)) {
    const std::uint64_t offset = static_cast<std::uint64_t>(page) * kBlock;
    return offset < size &&
           command.TheDrive().ReadLog(FileName(address), offset, into.data(), into.size());
  }
  if (address == 0xE1) return ReadSctData(command, into);
  const auto* log = FindLog(command.Ata(), address);
  const std::uint32_t pages = address == 0 ? 1 : log != nullptr ? log->pages : 0;
  for (std::size_t at = 0; at + kBlock <= into.size(); at += kBlock, ++page) {
    if (page >= pages) return false;
    if (address == 0) {
      PutDirectory(command.TheDrive(), &into[at]);
    } else {
      PutBuiltIn(command, address, page, &into[at]);
    }
  }
  return true;
}

void AtaSmartReadData(AtaCommand& command) {
  if (!MaySmartRun(command)) return;
  std::uint8_t block[512] = {};
  const auto& test = command.Ata().selfTest;
  PutLittle<std::uint16_t>(block, 0x0010);
  PutAttributes(command.Ata(), block);
  block[362] = 0x02;  // off-line collection completed
  block[363] = SelfTestStatus(command.TheDrive());
  block[367] = test.supported ? 0x39 : 0x09;
  PutLittle<std::uint16_t>(block + 368, 0x0003);
  block[370] = 0x01;
  block[372] = static_cast<std::uint8_t>(std::max(1u, test.shortMs / 60000));
  block[373] = static_cast<std::uint8_t>(std::max(1u, test.extendedMs / 60000));
  block[374] = static_cast<std::uint8_t>(std::max(1u, test.conveyanceMs / 60000));
  PutChecksum(block);
  command.Give(block, sizeof block);
}

void AtaSmartReadThresholds(AtaCommand& command) {
  if (!MaySmartRun(command)) return;
  std::uint8_t block[512] = {};
  PutLittle<std::uint16_t>(block, 0x0010);
  for (std::size_t i = 0; i < kSmartAttributes; ++i) {
    block[2 + 12 * i] = command.Ata().attributes[i].id;
    block[3 + 12 * i] = command.Ata().attributes[i].threshold;
  }
  PutChecksum(block);
  command.Give(block, sizeof block);
}

void AtaSmartAutosave(AtaCommand& command) {
  if (!MaySmartRun(command)) return;
  const auto value = command.In().count & 0xFF;
  if (value != 0x00 && value != 0xF1) return command.Abort();
  command.Ata().autosave = value == 0xF1;
}

// Vendor: the timed workload attributes begin anew.
constexpr std::uint8_t kResetWorkload = 0x40;

void AtaSmartExecuteOffline(AtaCommand& command) {
  if (!MaySmartRun(command)) return;
  auto& drive = command.TheDrive();
  auto& test = command.Ata().selfTest;
  const auto subcommand = static_cast<std::uint8_t>(command.In().lba);
  if (subcommand == 0x7F) {
    if ((SelfTestStatus(drive) & kRunning) == kRunning) {
      test.status = static_cast<std::uint8_t>(0x10 | (SelfTestStatus(drive) & 0x0F));
      test.running = 0;
    }
    return;
  }
  if (subcommand == 0x00) return;  // off-line collection, done at once
  if (subcommand == kResetWorkload) {
    if (!ResetWorkload(command.Ata().attributes)) command.Abort();
    return;
  }
  const auto kind = subcommand & 0x7F;
  if (!test.supported || kind < 1 || kind > 3) return command.Abort();
  test.type = subcommand;
  test.running = 1;
  test.startedMs = drive.Now();
  if ((subcommand & 0x80) == 0) return;
  // Captive: the command ends when the test does. A host that gives up resets the drive.
  if (!command.Lasts(Duration(test))) {
    test.status = static_cast<std::uint8_t>(0x20 | (SelfTestStatus(drive) & 0x0F));
    test.running = 0;
    return;
  }
  if ((SelfTestStatus(drive) >> 4) == 0) return;
  command.Abort();
  command.Out().lba = static_cast<std::uint64_t>(kFailing) << 8;
}

void AtaSmartReadLog(AtaCommand& command) {
  if (!MaySmartRun(command)) return;
  const auto address = static_cast<std::uint8_t>(command.In().lba);
  const auto size = (command.In().count & 0xFFu) * kBlock;
  if (size == 0 || command.Room().size() < size || !IsThere(command, address, true))
    return command.Abort();
  if (!ReadAtaLog(command, address, 0, command.Room().first(size))) return command.Abort();
  command.Moved(size);
}

void AtaSmartWriteLog(AtaCommand& command) {
  if (!MaySmartRun(command)) return;
  const auto address = static_cast<std::uint8_t>(command.In().lba);
  const auto data = command.Take((command.In().count & 0xFFu) * kBlock);
  if (data.empty()) return command.Abort();
  if (address == 0xE0) return WriteSctKey(command, data);
  const bool hostLog = address >= 0x80 && address <= 0x9F;
  if (!hostLog) return command.Abort();
  command.TheDrive().WriteLog(FileName(address), data.data(), data.size());
}

void AtaSmartEnable(AtaCommand& command) {
  if ((command.In().lba >> 8 & 0xFFFF) != kKey) return command.Abort();
  command.Ata().smartEnabled = 1;
}

void AtaSmartDisable(AtaCommand& command) {
  if (MaySmartRun(command)) command.Ata().smartEnabled = 0;
}

void AtaSmartReturnStatus(AtaCommand& command) {
  if (!MaySmartRun(command)) return;
  const auto key = command.Ata().smartFailing ? kFailing : kKey;
  command.Out().lba = static_cast<std::uint64_t>(key) << 8;
}

namespace {

// Logs A0h to DFh are the vendor's. Such a log comes as a stream: a read with
// the registers of the read before it goes on where that one ended, and any
// other command starts it afresh.
bool IsVendorLog(std::uint8_t address) { return address >= 0xA0 && address <= 0xDF; }

std::uint32_t StreamPosition(AtaState& ata, std::uint8_t address, std::uint32_t page,
                             std::uint32_t blocks) {
  const bool goesOn = ata.streaming && ata.streamAddress == address && ata.streamPage == page;
  const auto position = goesOn ? ata.streamBlock : page;
  ata.streamAddress = address;
  ata.streamPage = page;
  ata.streamBlock = position + blocks;
  return position;
}

}  // namespace

void AtaReadLogExt(AtaCommand& command) {
  const auto lba = command.In().lba;
  const auto address = static_cast<std::uint8_t>(lba);
  auto page = static_cast<std::uint32_t>((lba >> 8 & 0xFF) | (lba >> 32 & 0xFF) << 8);
  const std::uint32_t blocks = command.In().count;
  const std::size_t size = static_cast<std::size_t>(blocks) * kBlock;
  if (size == 0 || command.Room().size() < size || !IsThere(command, address, false)) {
    return command.Abort();
  }
  const bool streams = IsVendorLog(address);
  if (streams) page = StreamPosition(command.Ata(), address, page, blocks);
  if (!ReadAtaLog(command, address, page, command.Room().first(size))) return command.Abort();
  command.Ata().streaming = streams;
  command.Moved(size);
}

void AtaWriteLogExt(AtaCommand& command) {
  const auto address = static_cast<std::uint8_t>(command.In().lba);
  const auto data = command.Take(command.In().count * static_cast<std::size_t>(kBlock));
  if (data.empty()) return command.Abort();
  if (address == 0xE0) return WriteSctKey(command, data);
  if (address < 0x80 || address > 0x9F) return command.Abort();
  command.TheDrive().WriteLog(FileName(address), data.data(), data.size());
}

}  // namespace Simulator
