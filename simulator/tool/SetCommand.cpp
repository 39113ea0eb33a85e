// morvu-simdrives set: fields of a drive's record by name.
#include <cstdio>
#include <cstring>

#include "Bytes.h"
#include "Commands.h"
#include "Fleet.h"
#include "Options.h"

namespace Simdrives {

namespace {

using namespace Simulator;

struct FieldRow {
  std::string_view name;
  std::uint64_t most;
  void (*set)(DriveState&, std::uint64_t);
};

template <typename T>
T As(std::uint64_t value) {
  return static_cast<T>(value);
}

// clang-format off
// name, greatest value, what it sets
constexpr FieldRow kFields[] = {
    {"frozen", 1, [](DriveState& s, std::uint64_t v) { s.ata.security.frozen = As<std::uint8_t>(v); }},
    {"frozen-at-power-on", 1, [](DriveState& s, std::uint64_t v) { s.ata.security.frozenAtPowerOn = As<std::uint8_t>(v); }},
    {"security-supported", 1, [](DriveState& s, std::uint64_t v) { s.ata.security.supported = As<std::uint8_t>(v); }},
    {"sanitize-frozen", 1, [](DriveState& s, std::uint64_t v) { s.ata.sanitize.frozen = As<std::uint8_t>(v); }},
    {"sanitize-fails", 1, [](DriveState& s, std::uint64_t v) { s.ata.sanitize.willFail = s.nvme.sanitize.willFail = As<std::uint32_t>(v); }},
    {"sanitize-seconds", 1000000, [](DriveState& s, std::uint64_t v) { s.ata.sanitize.durationMs = s.nvme.sanitize.durationMs = As<std::uint32_t>(v * 1000); }},
    {"self-test-seconds", 1000000, [](DriveState& s, std::uint64_t v) { s.ata.selfTest.shortMs = s.ata.selfTest.extendedMs = s.ata.selfTest.conveyanceMs = As<std::uint32_t>(v * 1000); }},
    {"self-test-result", 8, [](DriveState& s, std::uint64_t v) { s.ata.selfTest.nextResult = As<std::uint32_t>(v); }},
    {"smart-failing", 1, [](DriveState& s, std::uint64_t v) { s.ata.smartFailing = As<std::uint32_t>(v); }},
    {"standby-stays-active", 1, [](DriveState& s, std::uint64_t v) { s.ata.standbyStaysActive = As<std::uint8_t>(v); }},
    {"sct-saves", 0xFFFF, [](DriveState& s, std::uint64_t v) { s.ata.sct.savesLeft = As<std::uint16_t>(v); }},
    {"sct-refuses-action", 0xFFFF, [](DriveState& s, std::uint64_t v) { s.ata.sct.refusedAction = As<std::uint16_t>(v); }},
    {"sct-refuses-feature", 0xFFFF, [](DriveState& s, std::uint64_t v) { s.ata.sct.refusedFeature = As<std::uint16_t>(v); }},
    {"sct-forgets", 1, [](DriveState& s, std::uint64_t v) { s.ata.sct.forgets = As<std::uint16_t>(v); }},
    {"phy-waits", 1, [](DriveState& s, std::uint64_t v) { s.ata.sct.phyWaits = As<std::uint8_t>(v); }},
    {"link-away-ms", 0xFFFF, [](DriveState& s, std::uint64_t v) { s.ata.sct.linkAwayMs = As<std::uint16_t>(v); }},
    {"forgets-maximum", 1, [](DriveState& s, std::uint64_t v) { s.ata.forgetsMaximum = As<std::uint8_t>(v); }},
    {"refuses-diagnostic", 1, [](DriveState& s, std::uint64_t v) { s.ata.refusesDiagnosticProtocol = As<std::uint8_t>(v); }},
    {"stale-data", 1, [](DriveState& s, std::uint64_t v) { s.staleData = As<std::uint8_t>(v); }},
    {"journal", 1, [](DriveState& s, std::uint64_t v) { s.journalOff = v == 0; }},
    {"standby", 1, [](DriveState& s, std::uint64_t v) { s.ata.powerMode = v != 0 ? Simulator::PowerMode::Standby : Simulator::PowerMode::Active; }},
    {"statistics", 1, [](DriveState& s, std::uint64_t v) { s.ata.hasStatistics = As<std::uint8_t>(v); }},
    {"predicts-failure", 1, [](DriveState& s, std::uint64_t v) { s.scsi.predictsFailure = As<std::uint8_t>(v); }},
    {"percentage-used", 255, [](DriveState& s, std::uint64_t v) { s.scsi.percentageUsed = As<std::uint8_t>(v); }},
    {"temperature", 200, [](DriveState& s, std::uint64_t v) { PutLittle<std::uint16_t>(s.nvme.health + 1, As<std::uint16_t>(v + 273)); }},
    {"activation-status", 0x7FF, [](DriveState& s, std::uint64_t v) { s.nvme.activationStatus = As<std::uint16_t>(v); }},
    {"supports-sanitize", 1, [](DriveState& s, std::uint64_t v) { s.nvme.supportsSanitize = As<std::uint8_t>(v); }},
};
// clang-format on

bool SetText(DriveState& state, const std::string& name, const std::string& value) {
  if (name != "next-firmware" && name != "error-text") return false;
  if (name == "next-firmware") {
    for (auto* firmware : {&state.ata.firmware, &state.nvme.firmware, &state.scsi.firmware}) {
      Simulator::SetText(firmware->next, value.substr(0, 8));
    }
    return true;
  }
  // The drive's own status text: identify words 140 to 149, bytes exchanged.
  std::uint8_t text[20];
  PutText(text, sizeof text, value);
  for (int i = 0; i < 10; ++i)
    state.ata.identify[140 + i] = static_cast<std::uint16_t>(text[2 * i] << 8 | text[2 * i + 1]);
  std::memcpy(state.nvme.controller + 3076, text, sizeof text);
  return true;
}

// A field of the health log (NVMe 1.0, 5.10.1.2). Of the 16 bytes of a count the lower 8 are set.
struct HealthRow {
  std::string_view name;
  std::uint16_t offset, width;
};
constexpr HealthRow kHealth[] = {
    {"critical-warning", 0, 1},    {"temperature", 1, 2},     {"spare", 3, 1},
    {"spare-threshold", 4, 1},     {"percentage-used", 5, 1}, {"data-units-read", 32, 8},
    {"data-units-written", 48, 8}, {"host-reads", 64, 8},     {"host-writes", 80, 8},
    {"busy-minutes", 96, 8},       {"power-cycles", 112, 8},  {"power-on-hours", 128, 8},
    {"unsafe-shutdowns", 144, 8},  {"media-errors", 160, 8},  {"error-entries", 176, 8},
};

void SetHealth(NvmeState& nvme, const std::string& name, const std::string& value) {
  for (const auto& row : kHealth) {
    if (row.name != name) continue;
    const auto most = row.width == 8 ? ~std::uint64_t{0} : (std::uint64_t{1} << 8 * row.width) - 1;
    auto number = ToNumber(value, most, name);
    for (unsigned i = 0; i < row.width; ++i, number >>= 8) {
      nvme.health[row.offset + i] = static_cast<std::uint8_t>(number);
    }
    return;
  }
  std::string names;
  for (const auto& row : kHealth) names += ", health." + std::string(row.name);
  throw UsageError("there is no field \"health." + name + "\"; there are " + names.substr(2));
}

// word.N of IDENTIFY DEVICE; controller.N, a byte of an NVMe controller's identify data,
// feature.ID, health.NAME and slot.N of it; attribute.ID of SMART.
bool SetIndexed(DriveState& state, const std::string& name, const std::string& value) {
  if (name.starts_with("word.")) {
    const auto word = ToNumber(name.substr(5), 255, "a word");
    state.ata.identify[word] = static_cast<std::uint16_t>(ToNumber(value, 0xFFFF, name));
    return true;
  }
  if (name.starts_with("controller.")) {
    const auto byte = ToNumber(name.substr(11), 4095, "a byte");
    state.nvme.controller[byte] = static_cast<std::uint8_t>(ToNumber(value, 0xFF, name));
    return true;
  }
  if (name.starts_with("health.")) {
    SetHealth(state.nvme, name.substr(7), value);
    return true;
  }
  if (name.starts_with("slot.")) {
    const auto slot = ToNumber(name.substr(5), kFirmwareSlots, "a slot");
    if (slot == 0) throw UsageError("slots count from 1");
    Simulator::SetText(state.nvme.slots[slot - 1], value.substr(0, 8));
    return true;
  }
  if (name.starts_with("feature.")) {
    auto& feature = state.nvme.features[ToHexByte(name.substr(8))];
    feature.supported = 1;
    feature.value = static_cast<std::uint32_t>(ToNumber(value, 0xFFFFFFFF, name));
    return true;
  }
  if (!name.starts_with("attribute.")) return false;
  const auto id = ToHexByte(name.substr(10));
  auto& attributes = state.kind == Kind::Nvme ? state.nvme.attributes : state.ata.attributes;
  for (auto& attribute : attributes) {
    if (attribute.id != id && attribute.id != 0) continue;
    if (attribute.id == 0) attribute = {id, 100, 100, 0, 0x0032, 0, 0};
    attribute.raw = ToNumber(value, 0xFFFFFFFFFFFF, name);
    return true;
  }
  throw Failure("the drive has as many attributes as it can");
}

void SetField(DriveState& state, const std::string& name, const std::string& value) {
  if (SetText(state, name, value) || SetIndexed(state, name, value)) return;
  for (const auto& row : kFields) {
    if (row.name == name) return row.set(state, ToNumber(value, row.most, name));
  }
  std::string names =
      "next-firmware, error-text, word.N, controller.N, feature.ID, health.NAME, slot.N, "
      "attribute.ID";
  for (const auto& row : kFields) names += ", " + std::string(row.name);
  throw UsageError("there is no field \"" + name + "\"; there are " + names);
}

}  // namespace

int Set(const Arguments& arguments) {
  const Options options(arguments, {}, {});
  options.NeedWords(3, 1000, "set FLEET NODE FIELD=VALUE...");
  const auto fleet = Fleet::Open(options.Words()[0]);
  if (fleet == nullptr) throw Failure("there is no fleet in " + options.Words()[0]);
  const auto node = fleet->Find(options.Words()[1]);
  if (!node) throw Failure("there is no simulated drive " + options.Words()[1] + " in the fleet");
  for (std::size_t i = 2; i < options.Words().size(); ++i) {
    const auto& word = options.Words()[i];
    const auto split = word.find('=');
    if (split == word.npos) throw UsageError("\"" + word + "\" is not FIELD=VALUE");
    SetField(node.drive->State(), word.substr(0, split), word.substr(split + 1));
  }
  return 0;
}

}  // namespace Simdrives
