// Drives that answer anything to their identification. The first byte says which kind of
// drive it is and how it is attached, the second which of its commands fail; the rest is
// what the commands give, one after the other.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "AnsweringPath.h"
#include "devices/commands/CommandSet.h"
#include "devices/identification/DeviceIdentification.h"
#include "devices/model/Drive.h"
#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"

namespace {

using namespace Morvu;
using namespace Morvu::DeviceManagement;
using Morvu::Fuzz::AnsweringPath;
using Morvu::Fuzz::Require;

void Check(const Drive& drive) {
  const auto sectorSize = drive.GetUInt(Properties::SectorSize);
  Require(sectorSize >= 512 && sectorSize <= 65536);
  for (const auto& property : drive.GetProperties()) {
    Require(std::ranges::all_of(property.ToText(), [](char c) { return c >= ' ' && c <= '~'; }));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ByteView input(data, size);
  if (input.size() < 2) return 0;
  constexpr std::string_view kProtocols[] = {Transport::Ata, Transport::Nvme, Transport::Scsi};
  const auto kind = input[0];

  Drive drive;
  drive.SetPath(
      std::make_unique<AnsweringPath>(kProtocols[(kind & 3) % 3], input[1], input.subspan(2)));
  drive.AddCommandSet(CreateCommandSet(drive.GetProperties(), drive.GetPath()));
  if (kind & 0x04) drive.AddProperty(Properties::CSMI, true);
  if (kind & 0x08) drive.AddProperty(Properties::ControllerIDEMode, true);
  if (kind & 0x10) drive.AddProperty(Properties::RAID, true);
  UpdateProperties(drive);
  Check(drive);
  return 0;
}
