#include "devices/commands/CommandSet_SCSI.h"

#include <algorithm>

#include "devices/commands/CommandPath.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::uint64_t kScsiBlock = 512;

constexpr std::uint64_t LowBits(std::uint64_t value, int bits) {
  return bits == 64 ? value : value & ((std::uint64_t{1} << bits) - 1);
}

}  // namespace

ScsiCdb EncodeScsi(const ScsiCommand& command, const ScsiArguments& arguments) {
  ScsiCdb cdb;
  cdb.length = command.length;
  cdb.bytes[0] = command.opcode;
  for (const auto& field : command.fields) {
    const auto value = LowBits(arguments.*field.argument, field.bits) << field.low;
    const auto before = ReadBig(cdb.bytes, field.byte, field.width);
    WriteBig(before | value, field.byte, field.width, cdb.bytes);
  }
  for (const auto& fixed : command.bytes) cdb.bytes[fixed.byte] = fixed.value;
  return cdb;
}

std::unique_ptr<CommandSet> CommandSet_SCSI::Clone(const PropertyList& properties,
                                                   CommandPath& path) const {
  return std::make_unique<CommandSet_SCSI>(properties, path);
}

std::uint64_t CommandSet_SCSI::GetLength(const ScsiCommand& row,
                                         const ScsiArguments& arguments) const {
  switch (row.data) {
    case ScsiData::None:
      break;
    case ScsiData::Block:
      return kScsiBlock;
    case ScsiData::Sectors:
      return arguments.count * GetSectorSize();
    case ScsiData::Blocks:
      return arguments.blocks * kScsiBlock;
    case ScsiData::Security:
      return kScsiBlock * (arguments.inc512 != 0
                               ? arguments.length
                               : (arguments.length + kScsiBlock - 1) / kScsiBlock);
  }
  return 0;
}

StatusCode CommandSet_SCSI::Send(const ScsiCommand& row, const ScsiArguments& arguments,
                                 ByteSpan data) {
  const auto length = GetLength(row, arguments);
  if (data.size() < length) return Status::BufferTooSmall;
  const auto cdb = EncodeScsi(row, arguments);
  const auto moved = static_cast<std::size_t>(length);
  const bool changesNothing = (row.flags & kRead) || row.opcode == ScsiRow::TestUnitReady.opcode;
  return Deliver({.record = cdb.View(),
                  .flags = row.flags,
                  .data = data.first(moved),
                  .least = std::min(row.least, moved)},
                 changesNothing);
}

StatusCode CommandSet_SCSI::scsiInquiry(ByteSpan data, std::uint8_t length) {
  return Send(ScsiRow::Inquiry, {.length = length, .blocks = 1}, data);
}

StatusCode CommandSet_SCSI::scsiReadCapacity10(ByteSpan data) {
  return Send(ScsiRow::ReadCapacity10, {}, data);
}

StatusCode CommandSet_SCSI::scsiReadCapacity16(ByteSpan data, std::uint32_t length) {
  return Send(ScsiRow::ReadCapacity16, {.length = length, .blocks = 1}, data);
}

StatusCode CommandSet_SCSI::scsiWriteBuffer(ByteSpan data, const ScsiArguments& arguments) {
  return Send(ScsiRow::WriteBuffer, arguments, data);
}

}  // namespace Morvu::DeviceManagement
