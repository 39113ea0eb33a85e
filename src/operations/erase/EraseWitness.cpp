#include "operations/erase/EraseWitness.h"

#include <algorithm>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/NvmeMedium.h"
#include "devices/model/Medium.h"
#include "devices/properties/BasicProperties.h"
#include "frame/Logger.h"

namespace Morvu {

using DeviceManagement::CommandSet_ATA;
using DeviceManagement::CountBlocks;
using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

namespace {

constexpr std::uint64_t kFirstPartition = 1 << 20;  // where partition tables put it

std::uint64_t GetMediumSize(const Device& device) {
  return CountBlocks(device).value_or(0) * device.GetUInt(Properties::SectorSize);
}

// Beginning and end hold what file systems and partition tables are found by.
std::vector<std::uint64_t> ChoosePlaces(std::uint64_t size, std::uint64_t piece) {
  std::vector<std::uint64_t> places;
  if (size < piece) return places;
  for (const auto place :
       {std::uint64_t{0}, kFirstPartition, size / 4, size / 2, size / 4 * 3, size - piece}) {
    const auto aligned = place / piece * piece;
    if (aligned <= size - piece) places.push_back(aligned);
  }
  std::ranges::sort(places);
  places.erase(std::unique(places.begin(), places.end()), places.end());
  return places;
}

// What an empty medium reads as.
bool IsBlank(ByteView data) {
  const auto first = data.front();
  return (first == 0x00 || first == 0xFF) &&
         std::ranges::all_of(data, [first](std::uint8_t byte) { return byte == first; });
}

StatusCode ReadBlocks(Device& device, std::uint64_t lba, std::uint32_t blocks, ByteSpan data) {
  if (auto* ata = device.GetCommandSetAs<CommandSet_ATA>(Protocol::Ata)) {
    return ata->ReadBlocks(data, lba, blocks);
  }
  return DeviceManagement::ReadNvmeBlocks(device.GetPath(), lba, blocks, data);
}

}  // namespace

EraseWitness::EraseWitness(Device& device) : device_(device) {
  for (const auto place : ChoosePlaces(GetMediumSize(device), kPieceSize)) {
    Piece piece{place, {}};
    if (!Read(place, piece.data)) break;
    if (!IsBlank(piece.data)) pieces_.push_back(piece);
  }
}

bool EraseWitness::Read(std::uint64_t offset, ByteSpan data) {
  const auto sector = device_.GetUInt(Properties::SectorSize);
  if (sector == 0 || data.size() % sector != 0) return false;
  return ReadBlocks(device_, offset / sector, static_cast<std::uint32_t>(data.size() / sector),
                    data) == Status::Completed;
}

EraseWitness::Verdict EraseWitness::Compare() {
  std::size_t changed = 0, unchanged = 0;
  for (const auto& piece : pieces_) {
    auto data = piece.data;  // a read that brings nothing must not pass for a change
    if (!Read(piece.offset, data)) break;
    ++(data == piece.data ? unchanged : changed);
  }
  MORVU_LOG(unchanged != 0 ? kLogError : kLogInfo, "Compare",
            "Of " + std::to_string(pieces_.size()) +
                " places with data that were read before the erase, " + std::to_string(changed) +
                " have changed and " + std::to_string(unchanged) + " have not.");
  if (unchanged != 0) return Verdict::Unchanged;
  return changed != 0 ? Verdict::Changed : Verdict::Untold;
}

}  // namespace Morvu
