#include "devices/commands/CommandSet_NVME.h"

#include <iterator>

#include "devices/commands/CommandPath_NVME.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Testing.h"

namespace Morvu::DeviceManagement {
namespace {

ByteView BytesOf(const NvmeAdminCommand& command) {
  return {reinterpret_cast<const std::uint8_t*>(&command), sizeof command};
}

// The fields of the log text: name, place in the record, width shown.
struct LogField {
  std::string_view name;
  std::size_t offset;
  std::size_t width;
  int shift;
  int digits;
};
constexpr LogField kLogFields[] = {
    {"NSID      ", 4, 4, 0, 8},   {"CDW2      ", 8, 8, 8, 8},   {"CDW3      ", 8, 1, 0, 8},
    {"MPTR      ", 16, 8, 0, 16}, {"PRP1      ", 24, 8, 0, 16}, {"PRP2      ", 32, 8, 0, 16},
    {"CDW10     ", 40, 4, 0, 8},  {"CDW11     ", 44, 4, 0, 8},  {"CDW12     ", 48, 4, 0, 8},
    {"CDW13     ", 52, 4, 0, 8},  {"CDW14     ", 56, 4, 0, 8},  {"CDW15     ", 60, 4, 0, 8},
};

std::string LogLine(std::string_view name, std::uint64_t value, int digits) {
  return "  " + std::string(name) + ": " + std::to_string(value) + "(0x" +
         ToHexNumber(value, digits) + ") \n";
}

std::string ToLogText(const NvmeAdminCommand& command) {
  const auto bytes = BytesOf(command);
  std::string text = "NVMe Admin Command: \n";
  text += LogLine("OPCODE    ", command.opcode, 2);
  text += LogLine("FUSE      ", command.flags & 3, 1);
  for (const auto& field : kLogFields) {
    const auto value = ReadLittle(bytes, field.offset, field.width) >> field.shift;
    text += LogLine(field.name, value, field.digits);
  }
  return text;
}

// Wider than the counts, so that no count comes out as a short transfer.
std::uint64_t LengthOf(const NvmeCommand& row, const NvmeArguments& arguments) {
  switch (row.length) {
    case NvmeLength::None:
      break;
    case NvmeLength::Page:
      return 4096;
    case NvmeLength::Dwords:
      return std::uint64_t{arguments.dwords} * 4;
    case NvmeLength::Bytes:
      return arguments.length;
    case NvmeLength::Blocks:
      return std::uint64_t{arguments.blocks} * 512;
    case NvmeLength::Ranges:
      return std::uint64_t{arguments.ranges} * 16;
    case NvmeLength::Key:
      return 8;
    case NvmeLength::TwoKeys:
      return 16;
  }
  return 0;
}

// A count of nothing, or one that its field cannot hold, would move something else.
bool CountsFit(const NvmeCommand& row, const NvmeArguments& arguments) {
  for (const auto& field : row.fields) {
    if (field.base == NvmeBase::Zero) continue;
    const std::uint64_t count = arguments.*field.argument;
    if (count == 0 || (count - 1) >> field.width != 0) return false;
  }
  return true;
}

NvmeAdminCommand Encode(const NvmeCommand& row, const NvmeArguments& arguments) {
  std::uint32_t dwords[6] = {static_cast<std::uint32_t>(arguments.lba),
                             static_cast<std::uint32_t>(arguments.lba >> 32)};
  for (const auto& field : row.fields) {
    const auto value = arguments.*field.argument - (field.base == NvmeBase::One ? 1 : 0);
    const auto mask = static_cast<std::uint32_t>((std::uint64_t{1} << field.width) - 1);
    dwords[field.dword - 10] |= (value & mask) << field.low;
  }
  return {.opcode = row.opcode,
          .nsid = arguments.nsid,
          .cdw2 = arguments.cdw2,
          .cdw10 = dwords[0],
          .cdw11 = dwords[1],
          .cdw12 = dwords[2],
          .cdw13 = dwords[3],
          .cdw14 = dwords[4],
          .cdw15 = dwords[5]};
}

}  // namespace

CommandSet_NVME::CommandSet_NVME(const PropertyList& properties, CommandPath& path)
    : CommandSet(properties, path, Protocol::Nvme) {}

CommandSet_NVME::CommandSet_NVME(const PropertyList& properties, std::unique_ptr<CommandPath> path)
    : CommandSet(properties, *path, Protocol::Nvme), ownPath_(std::move(path)) {}

std::unique_ptr<CommandSet> CommandSet_NVME::Clone(const PropertyList& properties,
                                                   CommandPath&) const {
  return std::make_unique<CommandSet_NVME>(properties, path_->Clone());
}

StatusCode CommandSet_NVME::Send(const NvmeCommand& row, const NvmeArguments& arguments,
                                 ByteSpan data) {
  const auto record = Encode(row, arguments);
  if (row.opcode != NvmeRow::SetFeatures.opcode) {
    MORVU_LOG(kLogDebug, row.name, ToLogText(record));
  }
  if (!CountsFit(row, arguments)) return Status::CountOutOfRange;
  const auto length = LengthOf(row, arguments);
  if (data.size() < length) return Status::BufferTooSmall;
  // A command that may carry data tells a direction only when it does.
  const bool isIdle = row.length == NvmeLength::Dwords && length == 0;
  return Deliver({.record = BytesOf(record),
                  .flags = isIdle ? std::uint8_t{0} : row.direction,
                  .data = data.first(static_cast<std::size_t>(length)),
                  .timeout = row.timeout},
                 false);
}

StatusCode CommandSet_NVME::nvmeGetLogPage(std::uint8_t logId, std::uint32_t dwords,
                                           std::uint32_t nsid, ByteSpan data) {
  return Send(NvmeRow::GetLogPage, {.nsid = nsid, .dwords = dwords, .logId = logId}, data);
}

StatusCode CommandSet_NVME::nvmeIdentify(std::uint8_t cns, std::uint32_t nsid, ByteSpan data) {
  return Send(NvmeRow::Identify, {.nsid = nsid, .cns = cns}, data);
}

StatusCode CommandSet_NVME::nvmeGetFeatures(std::uint8_t featureId, std::uint32_t nsid,
                                            std::uint32_t dwords, ByteSpan data) {
  return Send(NvmeRow::GetFeatures, {.nsid = nsid, .dwords = dwords, .featureId = featureId}, data);
}

StatusCode CommandSet_NVME::nvmeFirmwareActivate(std::uint8_t slot, std::uint8_t action) {
  return Send(NvmeRow::FirmwareActivate, {.slot = slot, .action = action});
}

StatusCode CommandSet_NVME::nvmeFirmwareImageDownload(std::uint32_t dwords,
                                                      std::uint32_t offsetDwords, ByteSpan data) {
  return Send(NvmeRow::FirmwareImageDownload, {.dwords = dwords, .offset = offsetDwords}, data);
}

StatusCode CommandSet_NVME::nvmeFormatNVM(const NvmeArguments& arguments) {
  return Send(NvmeRow::FormatNVM, arguments);
}

}  // namespace Morvu::DeviceManagement
