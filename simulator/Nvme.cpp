#include "Nvme.h"

#include <algorithm>
#include <cstring>

#include "Bytes.h"

namespace Simulator {

namespace {

void Security(NvmeCommand& command) { command.Fail(kNvmeInvalidOpcode); }
void Abort(NvmeCommand& command) { command.Result(1); }  // the command was not aborted

// clang-format off
constexpr NvmeRow kAdminRows[] = {
    {0x02, true, NvmeGetLog},
    {0x06, true, NvmeIdentify},
    {0x08, true, Abort},
    {0x09, true, NvmeSetFeatures},
    {0x0A, true, NvmeGetFeatures},
    {0x10, false, NvmeFirmwareCommit},
    {0x11, false, NvmeFirmwareDownload},
    {0x80, false, NvmeFormat},
    {0x81, false, Security},
    {0x82, false, Security},
    {0x84, false, NvmeSanitize},
    {0xD2, true, NvmeVendorLog},
};
// clang-format on

// clang-format off
constexpr NvmeRow kIoRows[] = {
    {0x00, true, NvmeFlush},        {0x01, false, NvmeWrite},
    {0x02, false, NvmeRead},        {0x05, false, NvmeCompare},
    {0x08, false, NvmeWriteZeroes}, {0x09, false, NvmeDatasetManagement},
};
// clang-format on

template <std::size_t Size>
const NvmeRow* FindRow(const NvmeRow (&rows)[Size], std::uint8_t opcode) {
  for (const auto& row : rows) {
    if (row.opcode == opcode) return &row;
  }
  return nullptr;
}

struct FeatureRow {
  std::uint8_t id;
  bool changeable, saveable;
  std::uint32_t value;
};

// clang-format off
constexpr FeatureRow kFeatures[] = {
    {0x01, true,  true,  0x00000003},   // arbitration
    {0x02, true,  false, 0},            // power management
    {0x04, true,  true,  0x0157},       // temperature threshold: 343 K
    {0x05, true,  true,  0},            // error recovery
    {0x06, true,  true,  1},            // volatile write cache
    {0x07, true,  false, 0x001F001F},   // number of queues
    {0x08, true,  true,  0},            // interrupt coalescing
    {0x09, true,  false, 0},            // interrupt vector configuration
    {0x0A, true,  true,  0},            // write atomicity
    {0x0B, true,  false, 0},            // asynchronous event configuration
    {0xC1, true,  false, 0},            // vendor: set the maximum LBA
    {0xC2, false, false, 0},            // vendor: native maximum LBA, as data
    {0xC6, true,  false, 0},            // vendor: power governor
    {0xD5, true,  false, 0},            // vendor: 1 resets the timed workload attributes
};
// clang-format on

void PutController(NvmeState& nvme, const DriveState& state) {
  auto* id = nvme.controller;
  PutText(id + 4, 20, GetText(state.serial));
  PutText(id + 24, 40, GetText(state.model));
  id[72] = 3;                                     // arbitration burst
  id[77] = 5;                                     // MDTS
  PutLittle<std::uint16_t>(id + 78, 1);           // controller identifier
  PutLittle<std::uint32_t>(id + 80, 0x00010300);  // version 1.3
  PutLittle<std::uint16_t>(id + 256, 0x0006);     // OACS: format, firmware
  id[258] = 3;
  id[259] = 3;
  id[260] = 0x07 << 1;                      // FRMW: seven slots, all writable
  id[261] = 0x04;                           // LPA: extended data for Get Log Page
  id[262] = 63;                             // error log entries - 1
  PutLittle<std::uint16_t>(id + 266, 343);  // WCTEMP
  PutLittle<std::uint16_t>(id + 268, 353);  // CCTEMP
  id[512] = 0x66;                           // SQES, CQES
  id[513] = 0x44;
  PutLittle<std::uint16_t>(id + 520, 0x001D);  // ONCS: compare, DSM, write zeroes, save
  id[524] = 0x04;                              // FNA: per namespace, crypto erase
  id[525] = 1;                                 // volatile write cache
  PutLittle<std::uint16_t>(id + 2048, 2500);   // power state 0: 25 W
  id[3096] = 3;                                // vendor: PCI generation and width
  id[3097] = 4;
  PutText(id + 3100, 8, "BL000001");  // vendor: boot loader
}

void PutHealth(std::uint8_t* log) {
  PutLittle<std::uint16_t>(log + 1, 301);  // 28 degree C
  log[3] = 100;                            // available spare
  log[4] = 10;
  log[5] = 1;  // percentage used
  PutLittle<std::uint64_t>(log + 32, 8765);
  PutLittle<std::uint64_t>(log + 48, 4321);
  PutLittle<std::uint64_t>(log + 64, 100000);
  PutLittle<std::uint64_t>(log + 80, 50000);
  PutLittle<std::uint64_t>(log + 96, 12);
  PutLittle<std::uint64_t>(log + 112, 56);
  PutLittle<std::uint64_t>(log + 128, 1234);
  PutLittle<std::uint64_t>(log + 144, 7);
}

}  // namespace

std::uint32_t NvmeCommand::Nsid() const {
  return GetLittle<std::uint32_t>(transaction_.command + 4);
}

std::uint32_t NvmeCommand::Cdw(int number) const {
  return GetLittle<std::uint32_t>(transaction_.command + 4 * number);
}

NvmeNamespace* NvmeCommand::Namespace() {
  const auto nsid = Nsid();
  if (nsid == 0 || nsid > kMaxNamespaces || !Nvme().namespaces[nsid - 1].exists) return nullptr;
  return &Nvme().namespaces[nsid - 1];
}

std::uint32_t NvmeSectorSize(const NvmeNamespace& space) {
  return 1u << kLbaFormats[space.format % std::size(kLbaFormats)].dataSize;
}

std::uint8_t CountNamespaces(const NvmeState& nvme) {
  std::uint8_t count = 0;
  for (const auto& space : nvme.namespaces) count = static_cast<std::uint8_t>(count + space.exists);
  return count;
}

namespace {

void Execute(NvmeCommand& command, bool admin) {
  const auto* row =
      admin ? FindRow(kAdminRows, command.Opcode()) : FindRow(kIoRows, command.Opcode());
  if (row == nullptr) return command.Fail(kNvmeInvalidOpcode);
  if (!row->whileSanitizing && NvmeIsSanitizing(command.TheDrive()))
    return command.Fail(kNvmeSanitizeInProgress);
  row->handler(command);
}

// A command that failed stands first in the error log and counts.
void LogError(NvmeCommand& command, bool admin) {
  auto& nvme = command.Nvme();
  const auto count = GetLittle<std::uint64_t>(nvme.health + 176) + 1;
  PutLittle(nvme.health + 176, count);
  std::copy_backward(std::begin(nvme.errors), std::end(nvme.errors) - 1, std::end(nvme.errors));
  auto& entry = nvme.errors[0];
  std::memset(&entry, 0, sizeof entry);
  entry.count = count;
  entry.queue = admin ? 0 : 1;
  entry.command = static_cast<std::uint16_t>(command.TheDrive().State().commands);
  entry.status = static_cast<std::uint16_t>(command.Data().nvmeStatus << 1);
  entry.nsid = command.Nsid();
  if (!admin) entry.lba = command.Cdw(10) | static_cast<std::uint64_t>(command.Cdw(11)) << 32;
}

}  // namespace

void ExecuteNvmeDrive(Drive& drive, Transaction& transaction) {
  NvmeCommand command(drive, transaction);
  const bool admin = transaction.ioctl == Ioctl::NvmeAdmin;
  Execute(command, admin);
  if (transaction.nvmeStatus != 0) LogError(command, admin);
}

void MakeNvme(DriveState& state, const DriveSpec& spec) {
  auto& nvme = state.nvme;
  PutController(nvme, state);
  PutHealth(nvme.health);
  PutLittle<std::uint32_t>(nvme.controller + 516, kMaxNamespaces);
  for (const auto& row : kFeatures) {
    nvme.features[row.id] = {.supported = 1,
                             .changeable = row.changeable,
                             .saveable = row.saveable,
                             .scope = FeatureScope::Any,
                             .value = row.value,
                             .value12 = 0,
                             .defaultValue = row.value,
                             .savedValue = 0,
                             .isSaved = 0,
                             .forgets = 0,
                             .reserved = {}};
  }
  for (unsigned i = 0; i < kMaxNamespaces; ++i) {
    const bool wanted =
        spec.nsids.empty() ? i < spec.namespaces : std::ranges::count(spec.nsids, i + 1) > 0;
    if (!wanted) continue;
    auto& space = nvme.namespaces[i];
    space.exists = 1;
    space.bytes = spec.sectors * spec.sectorSize;
    space.format = spec.sectorSize == 4096 ? 2 : 0;
    PutBig(space.eui64, 8, Digest(spec.serial.data(), spec.serial.size()) + i);
  }
  // clang-format off
  constexpr SmartAttribute kAttributes[] = {
      // id, normalized, -, -, -, -, raw
      {0xAB, 100, 0, 0, 0, 0, 0},   // program failures
      {0xAC, 100, 0, 0, 0, 0, 0},   // erase failures
      {0xAD, 100, 0, 0, 0, 0, 0x000300020001},  // wear leveling: least, most, average
      {0xB8, 100, 0, 0, 0, 0, 0},   // end-to-end errors
      {0xC7, 100, 0, 0, 0, 0, 0},   // CRC errors
      {0xE2, 100, 0, 0, 0, 0, 0},   // timed workload
      {0xF4, 100, 0, 0, 0, 0, 4321},  // NAND writes
      {0xF5, 100, 0, 0, 0, 0, 8765},  // host writes
  };
  // clang-format on
  std::copy(std::begin(kAttributes), std::end(kAttributes), nvme.attributes);
  SetText(nvme.slots[0], spec.firmware);
  nvme.activeSlot = 1;
  nvme.sanitize.durationMs = 3000;
  nvme.refusesIdentify = spec.refusesIdentify;
}

// A controller reset as well: the firmware of the next slot runs.
void PowerCycleNvme(Drive& drive) {
  auto& state = drive.State();
  auto& nvme = state.nvme;
  ++nvme.resets;
  nvme.firmware.running = 0;
  for (auto& feature : nvme.features) {
    feature.value = feature.isSaved ? feature.savedValue : feature.defaultValue;
    feature.value12 = 0;
  }
  if (nvme.nextSlot == 0) return;
  nvme.activeSlot = nvme.nextSlot;
  nvme.nextSlot = 0;
  SetText(state.firmware, GetText(nvme.slots[nvme.activeSlot - 1]));
  ++nvme.firmware.activations;
}

}  // namespace Simulator
