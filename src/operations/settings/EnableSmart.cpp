// Turning SMART on: -enable_smart.
#include "devices/commands/CommandSet_ATA.h"
#include "devices/identification/FreshIdentity.h"
#include "devices/model/Device.h"
#include "devices/properties/IdentityProperties.h"
#include "frame/status/Drives.h"
#include "frame/status/Health.h"
#include "messaging/features/FeatureRecord.h"
#include "operations/Operation.h"

namespace Morvu {

namespace Properties = DeviceManagement::Properties;

namespace {

// SMART ENABLE OPERATIONS (ACS-3, 7.47.5), and a look whether it did.
class EnableSmart : public Function {
 public:
  EnableSmart(DeviceManagement::Device* device, ProgressReporter& reporter)
      : Function(device, reporter) {
    EnableSmart::Initialize();
  }

  void Initialize() override;
  std::int32_t Execute() override {
    if (!BeginExecute()) return false;
    const bool isOn = ata_->ataSmartEnableOperations() == Status::Completed && IsOn();
    End(isOn ? Status::Completed : Status::SmartEnableFailed);
    return isOn;
  }

 private:
  struct Rules;

  bool IsOn() {
    const auto told = DeviceManagement::ReadFreshIdentity(*ata_);
    return told && told->properties.GetBool(Properties::SMARTEnabled);
  }
};

struct EnableSmart::Rules {
  // clang-format off
  static constexpr Refusal<EnableSmart> kTable[] = {
      {OfDevice<Refuse::NotConnected>, Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>,   Status::RaidVolume},
      {OfDevice<Refuse::NoAta>,        Status::NotSupportedByDrive},
  };
  // clang-format on
};

void EnableSmart::Initialize() { EndInitialize(FirstRefusal<EnableSmart>(Rules::kTable, *this)); }

StatusCode RunEnableSmart(const FeatureCall& call) {
  EnableSmart enable(&call.GetDevice(), call.face.GetReporter());
  if (enable.GetErrorCode() == Status::ReadyToRun) enable.Execute();
  return enable.GetErrorCode();
}

constexpr std::string_view kDescriptions[] = {
    "Turn on SMART of the selected SATA drive, so that it watches its attributes and tells whether "
    "it is failing. It stays on over power cycles."};
constexpr std::string_view kExamples[] = {"-drive_index 1 -enable_smart"};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-enable_smart",
     .kind = OptionKind::Flag,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = {},
     .examples = kExamples,
     .run = &RunEnableSmart},
};

}  // namespace

extern constexpr FeatureRecord EnableSmartRecord = {
    .name = "EnableSmart",
    .group = HelpGroup::Change,
    .needsDrive = true,
    .isSequence = true,
    .options = kOptions,
};

}  // namespace Morvu
