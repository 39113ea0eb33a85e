// The health of a drive that answers with any bytes: the first byte says what it speaks, the second
// which of its commands fail.
#include <cstddef>
#include <cstdint>

#include "AnsweringPath.h"
#include "devices/commands/CommandSet.h"
#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/commands/CommandSet_SCSI.h"
#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "parsers/health/Health.h"
#include "parsers/health/HealthSources.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Morvu;
  using namespace Morvu::DeviceManagement;
  if (size < 2) return 0;
  constexpr std::string_view kTransports[] = {Transport::Ata, Transport::Nvme, Transport::Scsi};
  const auto kind = data[0] % std::size(kTransports);
  Drive drive;
  drive.AddProperty(Properties::Morvu, true);
  drive.AddProperty(Properties::SectorSize, std::uint32_t{512});
  Fuzz::AnsweringPath path(kTransports[kind], data[1], {data + 2, size - 2});
  const auto set = CreateCommandSet(drive.GetProperties(), path);
  DriveHealth health;
  health.access = DriveHealth::Access::Answered;
  if (auto* ata = dynamic_cast<CommandSet_ATA*>(set.get())) {
    HealthSources::Read(drive, *ata, health);
  } else if (auto* nvme = dynamic_cast<CommandSet_NVME*>(set.get())) {
    HealthSources::Read(drive, *nvme, health);
  } else if (auto* scsi = dynamic_cast<CommandSet_SCSI*>(set.get())) {
    HealthSources::Read(*scsi, health);
  }
  Fuzz::Require(health.lifeLeftPercent.value_or(0) <= 100);
  Fuzz::Require((FindHealthFindings(health) & ~0xFu) == 0);
  const HealthRow row{&drive, health};
  (void)TabulateHealth({&row, 1}, true).ToSeparated();
  return 0;
}
