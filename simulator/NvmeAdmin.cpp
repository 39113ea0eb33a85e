// Admin commands of a simulated NVMe controller.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "Bytes.h"
#include "Firmware.h"
#include "Nvme.h"
#include "VendorLogs.h"

namespace Simulator {

namespace {

constexpr std::uint32_t kPage = 4096, kBroadcast = 0xFFFFFFFF;

void IdentifyController(NvmeCommand& command) {
  std::uint8_t page[kPage];
  std::memcpy(page, command.Nvme().controller, sizeof page);
  PutText(page + 64, 8, GetText(command.TheDrive().State().firmware));
  PutLittle<std::uint32_t>(page + 328, command.Nvme().supportsSanitize ? 0x00000003u : 0u);
  command.Data().Reply(page, sizeof page);
}

void IdentifyNamespace(NvmeCommand& command) {
  std::uint8_t page[kPage] = {};
  const auto nsid = command.Nsid();
  if (nsid == 0 || (nsid > kMaxNamespaces && nsid != kBroadcast))
    return command.Fail(kNvmeInvalidNamespace);
  if (const auto* space = command.Namespace()) {
    const std::uint64_t sectors = space->bytes / NvmeSectorSize(*space);
    PutLittle(page, sectors);
    PutLittle(page + 8, sectors);
    PutLittle(page + 16, sectors);
    page[25] = static_cast<std::uint8_t>(std::size(kLbaFormats) - 1);
    page[26] = static_cast<std::uint8_t>(space->format | space->metadata << 4);
    page[27] = 0x03;             // metadata in either place
    page[28] = space->endToEnd;  // what protection it can do
    page[29] = space->protection;
    std::memcpy(page + 120, space->eui64, 8);
  } else if (nsid != kBroadcast) {
    // An inactive namespace is all zeros.
    return command.Data().Reply(page, sizeof page);
  }
  page[25] = static_cast<std::uint8_t>(std::size(kLbaFormats) - 1);
  for (std::size_t i = 0; i < std::size(kLbaFormats); ++i) {
    page[128 + 4 * i] = kLbaFormats[i].metadata;
    page[130 + 4 * i] = kLbaFormats[i].dataSize;
  }
  command.Data().Reply(page, sizeof page);
}

// Identifiers above nsid of the namespaces that are there.
void IdentifyList(NvmeCommand& command) {
  std::uint8_t page[kPage] = {};
  auto* at = page;
  for (std::uint32_t nsid = command.Nsid() + 1; nsid <= kMaxNamespaces && nsid != 0; ++nsid) {
    if (!command.Nvme().namespaces[nsid - 1].exists) continue;
    PutLittle(at, nsid);
    at += 4;
  }
  command.Data().Reply(page, sizeof page);
}

void IdentifyDescriptors(NvmeCommand& command) {
  const auto* space = command.Namespace();
  if (space == nullptr) return command.Fail(kNvmeInvalidNamespace);
  std::uint8_t page[kPage] = {};
  page[0] = 1;  // EUI-64
  page[1] = 8;
  std::memcpy(page + 4, space->eui64, 8);
  command.Data().Reply(page, sizeof page);
}

void PutSlots(NvmeCommand& command, std::uint8_t* log) {
  const auto& nvme = command.Nvme();
  log[0] = static_cast<std::uint8_t>(nvme.activeSlot | nvme.nextSlot << 4);
  for (std::size_t i = 0; i < kFirmwareSlots; ++i) {
    const auto revision = GetText(nvme.slots[i]);
    if (!revision.empty()) PutText(log + 8 + 8 * i, 8, revision);
  }
}

void PutAttributes(const NvmeState& nvme, std::uint8_t* log) {
  for (const auto& attribute : nvme.attributes) {
    if (attribute.id == 0) return;
    log[0] = attribute.id;
    log[3] = attribute.value;
    for (int i = 0; i < 6; ++i) log[5 + i] = static_cast<std::uint8_t>(attribute.raw >> (8 * i));
    log += 12;
  }
}

std::string FileName(std::uint8_t log) {
  char name[16];
  std::snprintf(name, sizeof name, "nvme-%02X", log);
  return name;
}

// The vendor logs that are there without a file: statistics, all zero, and
// the attributes.
bool IsBuiltIn(std::uint8_t log) {
  return (log >= 0x01 && log <= 0x03) || log == 0xC4 || log == 0xC5 || log == 0xCA;
}

}  // namespace

void NvmeIdentify(NvmeCommand& command) {
  if (command.Nvme().refusesIdentify) return command.Fail(kNvmeInvalidField);
  if (command.Data().length < kPage) return command.Fail(kNvmeDataTransfer);
  switch (command.Cdw(10) & 0xFF) {
    case 0x00:
      return IdentifyNamespace(command);
    case 0x01:
      return IdentifyController(command);
    case 0x02:
      return IdentifyList(command);
    case 0x03:
      return IdentifyDescriptors(command);
    default:
      return command.Fail(kNvmeInvalidField);
  }
}

namespace {

// The health log of one namespace is for controllers that say so (NVMe 1.3, 5.14.1.2: bit 0 of
// LPA, byte 261); others have one for all.
bool HasLogOf(NvmeCommand& command, std::uint8_t log) {
  const auto nsid = command.Nsid();
  return log != 0x02 || nsid == 0 || nsid == kBroadcast ||
         (command.Nvme().controller[261] & 1) != 0;
}

}  // namespace

// The length asked for is NUMD + 1 dwords; a log ends in zeros.
void NvmeGetLog(NvmeCommand& command) {
  const auto log = static_cast<std::uint8_t>(command.Cdw(10));
  const std::size_t numd =
      (command.Cdw(10) >> 16 & 0xFFFF) | static_cast<std::size_t>(command.Cdw(11) & 0xFFFF) << 16;
  const auto offset = command.Cdw(12) | static_cast<std::uint64_t>(command.Cdw(13)) << 32;
  const std::size_t size = (numd + 1) * 4;
  if (size > command.Data().length) return command.Fail(kNvmeDataTransfer);
  if (!HasLogOf(command, log)) return command.Fail(kNvmeInvalidField);
  std::vector<std::uint8_t> page(size);
  if (command.TheDrive().HasLog(FileName(log))) {
    if (!command.TheDrive().ReadLog(FileName(log), offset, page.data(), size))
      return command.Fail(kNvmeInvalidLogPage);
    return command.Data().Reply(page.data(), size);
  }
  if (!IsBuiltIn(log)) return command.Fail(kNvmeInvalidLogPage);
  std::vector<std::uint8_t> whole(
      std::max<std::size_t>(offset < 65536 ? offset + size : 0, sizeof command.Nvme().errors));
  if (log == 0x01)
    std::memcpy(whole.data(), command.Nvme().errors,
                std::min(whole.size(), sizeof command.Nvme().errors));
  if (log == 0x02) std::memcpy(whole.data(), command.Nvme().health, 512);
  if (log == 0x03) PutSlots(command, whole.data());
  if (log == 0xCA) PutAttributes(command.Nvme(), whole.data());
  if (offset + size > whole.size()) return command.Fail(kNvmeInvalidField);
  command.Data().Reply(whole.data() + offset, size);
}

// A vendor log in pieces: cdw10 dwords from the dword cdw13 of log cdw12.
void NvmeVendorLog(NvmeCommand& command) {
  char name[24];
  std::snprintf(name, sizeof name, "nvme-D2-%u", command.Cdw(12));
  const auto size = static_cast<std::size_t>(command.Cdw(10)) * 4;
  if (size == 0 || size > command.Data().length) return command.Fail(kNvmeInvalidField);
  std::vector<std::uint8_t> piece(size);
  const auto offset = static_cast<std::uint64_t>(command.Cdw(13)) * 4;
  if (!command.TheDrive().HasLog(name)) {
    if (command.Cdw(12) > 1) return command.Fail(kNvmeInvalidField);
    const auto& log = command.Cdw(12) == 0 ? BuiltInNvmeNlog() : BuiltInNvmeEventLog();
    const auto at = static_cast<std::size_t>(std::min<std::uint64_t>(offset, log.size()));
    std::memcpy(piece.data(), log.data() + at, std::min(size, log.size() - at));
  } else if (!command.TheDrive().ReadLog(name, offset, piece.data(), size))
    return command.Fail(kNvmeInvalidField);
  command.Data().Reply(piece.data(), size);
}

namespace {

// Whether the command may name its namespace for the feature; fails it otherwise.
bool FitsScope(NvmeCommand& command, const NvmeFeature& feature) {
  const auto nsid = command.Nsid();
  if (feature.scope == FeatureScope::Controller && nsid != 0 && nsid != kBroadcast) {
    command.Fail(kNvmeFeatureNotNamespaceSpecific);
    return false;
  }
  if (feature.scope == FeatureScope::Namespace && command.Namespace() == nullptr) {
    command.Fail(kNvmeInvalidNamespace);
    return false;
  }
  return true;
}

}  // namespace

// SEL (NVMe 1.1, 5.9): 0 the current value, 1 the default, 2 the saved one, 3 what the
// feature can do.
void NvmeGetFeatures(NvmeCommand& command) {
  const auto id = static_cast<std::uint8_t>(command.Cdw(10));
  const auto& feature = command.Nvme().features[id];
  if (!feature.supported) return command.Fail(kNvmeInvalidField);
  if (!FitsScope(command, feature)) return;
  switch (command.Cdw(10) >> 8 & 7) {
    case 0:
      command.Result(feature.value);
      break;
    case 1:
      return command.Result(feature.defaultValue);
    case 2:
      return command.Result(feature.isSaved ? feature.savedValue : feature.defaultValue);
    case 3:
      return command.Result(feature.saveable |
                            (feature.scope == FeatureScope::Namespace ? 2u : 0u) |
                            (feature.changeable ? 4u : 0u));
    default:
      return command.Fail(kNvmeInvalidField);
  }
  if (id != 0xC2) return;
  // The native maximum, in 512-byte sectors whatever the format: whole in the
  // data, where the host has asked for any, and its low half in the completion.
  std::uint8_t last[8];
  const auto& state = command.TheDrive().State();
  PutLittle<std::uint64_t>(last, state.sectors * state.sectorSize / 512 - 1);
  command.Result(GetLittle<std::uint32_t>(last));
  command.Data().Reply(last, sizeof last);
}

namespace {

// The first namespace ends where the vendor's maximum LBA, in the unit of the native one, says.
void SetMaximum(NvmeCommand& command, const NvmeFeature& feature) {
  constexpr std::uint64_t kUnit = 512;
  const auto last = command.Cdw(11) | static_cast<std::uint64_t>(command.Cdw(12)) << 32;
  const auto& state = command.TheDrive().State();
  auto& spaces = command.Nvme().namespaces;
  const auto first = std::ranges::find_if(spaces, [](const auto& space) { return space.exists; });
  if (first == std::end(spaces)) return command.Fail(kNvmeInvalidField);
  const std::uint64_t sector = NvmeSectorSize(*first);
  if (last >= state.sectors * state.sectorSize / kUnit) return command.Fail(kNvmeInvalidField);
  const auto bytes = (last + 1) * kUnit / sector * sector;
  if (bytes == 0) return command.Fail(kNvmeInvalidField);
  if (!feature.forgets) first->bytes = bytes;
}

}  // namespace

constexpr std::uint8_t kResetWorkloadFeature = 0xD5;

void NvmeSetFeatures(NvmeCommand& command) {
  const auto id = static_cast<std::uint8_t>(command.Cdw(10));
  auto& feature = command.Nvme().features[id];
  if (!feature.supported) return command.Fail(kNvmeInvalidField);
  if (!feature.changeable) return command.Fail(kNvmeFeatureNotChangeable);
  if (!FitsScope(command, feature)) return;
  const bool saves = command.Cdw(10) >> 31 != 0;
  if (saves && !feature.saveable) return command.Fail(kNvmeFeatureNotSaveable);
  if (id == 0xC6 && command.Cdw(11) > 2) return command.Fail(kNvmeInvalidField);
  if (id == 0xC1) SetMaximum(command, feature);
  if (id == kResetWorkloadFeature && command.Cdw(11) == 1) ResetWorkload(command.Nvme().attributes);
  if (command.Data().nvmeStatus != 0 || feature.forgets) return;
  feature.value = command.Cdw(11);
  if (saves) feature.savedValue = feature.value;
  if (saves) feature.isSaved = 1;
  feature.value12 = command.Cdw(12);
}

void NvmeFirmwareDownload(NvmeCommand& command) {
  auto& firmware = command.Nvme().firmware;
  const auto dwords = command.Cdw(10) + 1;
  const auto size = static_cast<std::uint64_t>(dwords) * 4;
  auto& data = command.Data();
  if (dwords == 0 || size > data.length) return command.Fail(kNvmeDataTransfer);
  if (!TakePiece(firmware, command.Cdw(11), dwords, 4,
                 {data.data, static_cast<std::size_t>(size)})) {
    return command.Fail(kNvmeOverlappingRange);
  }
  ++firmware.transfers;
  data.transferred = static_cast<std::uint32_t>(size);
}

// Actions: 0 store, 1 store and activate at the next reset, 2 activate a slot
// at the next reset, 3 store and activate at once.
void NvmeFirmwareCommit(NvmeCommand& command) {
  auto& nvme = command.Nvme();
  auto& firmware = nvme.firmware;
  const auto action = command.Cdw(10) >> 3 & 7;
  auto slot = command.Cdw(10) & 7;
  if (action > 3) return command.Fail(kNvmeInvalidField);
  if (slot == 0) slot = nvme.activeSlot;
  if (slot > kFirmwareSlots) return command.Fail(kNvmeInvalidFirmwareSlot);
  auto& revision = nvme.slots[slot - 1];
  if (action != 2) {
    if (!IsWhole(firmware)) return command.Fail(kNvmeInvalidFirmwareImage);
    SetText(revision, Revision(firmware));
    firmware.running = 0;
  }
  if (revision[0] == '\0') return command.Fail(kNvmeInvalidFirmwareImage);
  if (action == 0) return;
  if (action == 3) {
    nvme.activeSlot = static_cast<std::uint8_t>(slot);
    SetText(command.TheDrive().State().firmware, GetText(revision));
    ++firmware.activations;
    return;
  }
  nvme.nextSlot = static_cast<std::uint8_t>(slot);
  if (nvme.activationStatus != 0) command.Fail(static_cast<NvmeStatus>(nvme.activationStatus));
}

namespace {

// Bits 2:0 of the end-to-end capabilities are the types of protection, bits 3 and 4
// where in the metadata it may stand.
bool CanProtect(const NvmeNamespace& space, std::uint32_t type, bool first) {
  if (type == 0) return true;
  return type <= 3 && (space.endToEnd >> (type - 1) & 1) != 0 &&
         (space.endToEnd & (first ? 0x08 : 0x10)) != 0;
}

}  // namespace

void NvmeFormat(NvmeCommand& command) {
  const auto cdw = command.Cdw(10);
  const auto format = cdw & 0x0F, erase = cdw >> 9 & 7, protection = cdw >> 5 & 7;
  if (format >= std::size(kLbaFormats)) return command.Fail(kNvmeInvalidFormat);
  if (erase > 2) return command.Fail(kNvmeInvalidField);
  const bool all = command.Nsid() == kBroadcast;
  if (!all && command.Namespace() == nullptr) return command.Fail(kNvmeInvalidNamespace);
  const bool first = (cdw >> 8 & 1) != 0;
  if (protection != 0 && kLbaFormats[format].metadata < 8) return command.Fail(kNvmeInvalidFormat);
  for (std::uint32_t nsid = 1; nsid <= kMaxNamespaces; ++nsid) {
    const auto& space = command.Nvme().namespaces[nsid - 1];
    const bool meant = space.exists && (all || nsid == command.Nsid());
    if (meant && !CanProtect(space, protection, first)) return command.Fail(kNvmeInvalidFormat);
  }
  for (std::uint32_t nsid = 1; nsid <= kMaxNamespaces; ++nsid) {
    auto& space = command.Nvme().namespaces[nsid - 1];
    if (!space.exists || (!all && nsid != command.Nsid())) continue;
    space.format = static_cast<std::uint8_t>(format);
    space.metadata = static_cast<std::uint8_t>(cdw >> 4 & 1);
    space.protection = static_cast<std::uint8_t>(protection | (first ? 8 : 0));
    command.TheDrive().EraseMedium(nsid);
  }
}

bool NvmeIsSanitizing(Drive& drive) {
  auto& sanitize = drive.State().nvme.sanitize;
  if (!sanitize.running) return false;
  const auto now = drive.Now();
  if (now < sanitize.startedMs + sanitize.durationMs) return true;
  sanitize.running = 0;
  sanitize.completed = sanitize.willFail ? 0 : 1;
  sanitize.failed = sanitize.willFail ? 1 : 0;
  for (std::uint32_t nsid = 1; sanitize.completed && nsid <= kMaxNamespaces; ++nsid) {
    if (drive.State().nvme.namespaces[nsid - 1].exists) drive.EraseMedium(nsid);
  }
  return false;
}

void NvmeSanitize(NvmeCommand& command) {
  if (!command.Nvme().supportsSanitize) return command.Fail(kNvmeInvalidOpcode);
  const auto action = command.Cdw(10) & 7;
  if (action < 2 || action > 4) return command.Fail(kNvmeInvalidField);
  auto& sanitize = command.Nvme().sanitize;
  sanitize.running = 1;
  sanitize.completed = sanitize.failed = 0;
  sanitize.startedMs = command.TheDrive().Now();
}

}  // namespace Simulator
