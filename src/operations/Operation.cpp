#include "operations/Operation.h"

#include <algorithm>
#include <charconv>

#include "cli/QRKCLI.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "operations/MethodDescriptions.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::SelectedDevices;
using XmlMessaging::Object;
using XmlMessaging::Property;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

namespace {

// The last parameter of this name; null when it is missing.
const Property* FindParameter(const Object& method, std::string_view name) {
  const Property* found = nullptr;
  for (const auto& property : method.properties) {
    if (property->GetAttribute("name") == name) found = property.get();
  }
  return found;
}

}  // namespace

namespace Refuse {

bool NotConnected(Device& device) { return !device.TestConnection(); }
bool RaidVolume(Device& device) { return device.GetBool(Properties::RAID); }
bool NotMorvu(Device& device) { return !device.GetBool(Properties::Morvu); }
bool RaidMember(Device& device) { return device.GetBool(Properties::RAIDMember); }
bool StorageSpaceMember(Device& device) { return device.GetBool(Properties::StorageSpaceMember); }
bool DeviceFault(Device& device) { return device.GetPath().GetDeviceFault(); }
bool FailureReported(Device& device) { return !device.GetString(Properties::ErrorString).empty(); }
bool NoAta(Device& device) { return !device.HasCommandSet(Protocol::Ata); }
bool NoNvme(Device& device) { return !device.HasCommandSet(Protocol::Nvme); }
bool PartitionsUnknown(Device& device) {
  return device.CheckPartitions() == Status::NoCommunication;
}
bool PartitionsUnasked(Device& device) { return !device.ArePartitionsKnown(); }
bool HasPartition(Device& device) {
  return device.CheckPartitions() != Status::NoPartition || !device.GetPartitions().empty();
}

}  // namespace Refuse

bool MayErase(Device& device, bool force) {
  return force || device.CheckPartitions() == Status::NoPartition;
}

Device* OnlyDevice(SelectedDevices& devices) {
  return devices.devices.size() == 1 ? devices.devices.front().get() : nullptr;
}

Device* BeginMethod(JobContext& context, SelectedDevices& devices) {
  if (context.setNotifyProgress != nullptr) context.setNotifyProgress(context.job, true);
  return OnlyDevice(devices);
}

std::string GetTextParameter(const Object& method, std::string_view name,
                             std::string_view missing) {
  const auto* parameter = FindParameter(method, name);
  return parameter == nullptr ? std::string(missing) : parameter->value;
}

bool GetBoolParameter(const Object& method, std::string_view name) {
  return GetTextParameter(method, name) == BoolText(true);
}

std::uint64_t GetNumberParameter(const Object& method, std::string_view name,
                                 std::uint64_t largest) {
  const auto text = GetTextParameter(method, name);
  std::uint64_t unused = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), unused);
  if (parsed.ec == std::errc::result_out_of_range) return largest;
  // A negative number parses as a very large one.
  return std::min(ParseDecimal(text), largest);
}

std::unique_ptr<Object> DescribeMethod(std::string_view name) {
  const auto* row = FindMethodDescription(name);
  return row == nullptr ? nullptr : BuildMethodObject(*row);
}

std::unique_ptr<Object> DescribeMethod(std::string_view name, StatusCode status,
                                       std::initializer_list<StatusCode> hidden) {
  if (std::ranges::find(hidden, status) != hidden.end()) return nullptr;
  auto object = DescribeMethod(name);
  if (object != nullptr && FindMethodDescription(name)->hasStatus) AddStatusList(*object, status);
  return object;
}

bool BeginRunCLI(const QRKCLI& cli, std::string_view option, const char* file, int line) {
  Log(SourceBaseName(file), "RunCLI", line, kLogInfo, "Start");
  return cli.HasOption(option);
}

Device* GetPickedDrive(const QRKCLI& cli, std::span<Device* const> drives) {
  return cli.IsDrivePicked() && !drives.empty() ? drives.front() : nullptr;
}

StatusCode ConfirmErase(StatusCode code, QRKCLI* cli, bool force, const EraseTexts& texts) {
  const bool hasPartition = code == Status::HasPartition;
  if (code != Status::ReadyToRun && !hasPartition) {
    if (cli != nullptr) cli->PrintLine(texts.unable);
    return code;
  }
  if (force) return Status::ReadyToRun;
  if (cli == nullptr) return code;

  const std::string_view partition = "\nWARNING! Tool has detected a partition on the drive! ";
  const auto warning = std::string(texts.warning).append(hasPartition ? partition : " ");
  return cli->Confirm(warning, texts.prompt) ? Status::ReadyToRun : Status::CanceledByUser;
}

}  // namespace Morvu
