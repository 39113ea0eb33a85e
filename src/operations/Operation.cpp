#include "operations/Operation.h"

#include <string>

#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "frame/status/Partitions.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

namespace Refuse {

bool NotConnected(Device& device) { return !device.TestConnection(); }
bool RaidVolume(Device& device) { return device.GetBool(Properties::RAID); }
bool NotMorvu(Device& device) { return !device.GetBool(Properties::Morvu); }
bool ForeignRaidVolume(Device& device) {
  return RaidVolume(device) && !device.GetBool(Properties::MorvuRAID);
}
bool Foreign(Device& device) { return NotMorvu(device) && !device.GetBool(Properties::MorvuRAID); }
bool RaidMember(Device& device) { return device.GetBool(Properties::RAIDMember); }
bool StorageSpaceMember(Device& device) { return device.GetBool(Properties::StorageSpaceMember); }
bool DeviceFault(Device& device) { return device.GetPath().GetDeviceFault(); }
bool FailureReported(Device& device) { return !device.GetString(Properties::ErrorString).empty(); }
bool NoAta(Device& device) { return !device.HasCommandSet(Protocol::Ata); }
bool NoNvme(Device& device) { return !device.HasCommandSet(Protocol::Nvme); }

}  // namespace Refuse

void TellRemarks(const Feature& feature, Face& face) {
  for (const auto& remark : feature.GetRemarks()) {
    if (remark.isWarning) {
      face.Warn(remark.text);
    } else {
      face.Say(remark.text);
    }
  }
}

StatusCode ConfirmErase(StatusCode code, Face& face, const EraseTexts& texts,
                        std::string_view details) {
  const bool hasPartition = code == Status::HasPartition;
  if (code != Status::ReadyToRun && !hasPartition) {
    face.Say(texts.unable);
    return code;
  }
  if (face.IsForced()) return Status::ReadyToRun;

  const std::string_view partition = "\nWARNING! Tool has detected a partition on the drive! ";
  auto warning = std::string(texts.warning).append(hasPartition ? partition : " ");
  if (!details.empty()) warning.append("\n").append(details);
  switch (face.Ask(warning, texts.prompt)) {
    case Answer::Yes:
      return Status::ReadyToRun;
    case Answer::No:
      return Status::CanceledByUser;
    case Answer::Unasked:
      return code;
  }
  return Status::CanceledByUser;
}

}  // namespace Morvu
