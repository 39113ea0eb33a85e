#include "messaging/features/Feature.h"

#include <array>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/commands/CommandSet_SCSI.h"
#include "devices/model/Adapter.h"
#include "devices/model/Drive.h"
#include "frame/Logger.h"
#include "frame/Platform.h"

namespace Morvu {

using namespace DeviceManagement;

namespace {
constexpr std::uint32_t kStandbyTimeoutSeconds = 20;
constexpr std::size_t kSectorSize = 512;
}  // namespace

Feature::Feature(Device* device, ProgressReporter& reporter)
    : device_(device), osName_(GetOsName()), reporter_(reporter) {
  if (device != nullptr) {
    deviceType_ = device->GetKind();
    drive_ = device->AsDrive();
    adapter_ = dynamic_cast<Adapter*>(drive_ == nullptr ? device : drive_->GetParent());
    ata_ = device->GetCommandSetAs<CommandSet_ATA>(Protocol::Ata);
    scsi_ = device->GetCommandSetAs<CommandSet_SCSI>(Protocol::Scsi);
    smart_ = device->GetCommandSet(Protocol::SmartPt);
    nvme_ = device->GetCommandSetAs<CommandSet_NVME>(Protocol::Nvme);
    tcg_ = device->GetCommandSet(Protocol::Tcg);
  }
  MORVU_LOG(kLogInfo, "Feature", "Detected OS: " + osName_);
}

void Feature::SetErrorCode(StatusCode code) {
  if (code == errorCode_) return;
  errorCode_ = code;
  reporter_.SetErrorCode(code);
}

void Feature::SetState(std::int32_t state) {
  if (state == state_) return;
  state_ = state;
  reporter_.SetState(state);
}

void Feature::SetPercent(std::int32_t percent) {
  if (percent == percent_) return;
  percent_ = percent;
  reporter_.SetPercent(percent);
}

bool Feature::BeginExecute() {
  const auto log = [&](LogLevel level, std::string_view text) {
    Log(GetLogName(), "Execute", __LINE__, level, text);
  };
  log(kLogInfo, "Executing...");
  if (device_ != nullptr && device_->TestConnection()) {
    log(kLogDebug, "Drive connection successful.");
    return true;
  }
  log(kLogError, "Drive connection failed.");
  End(Status::NoCommunication);
  return false;
}

void Feature::End(StatusCode code) {
  SetErrorCode(code);
  SetState(code == Status::Completed ? FeatureState::Finished : FeatureState::Failed);
}

void Feature::TakeResult(const Feature& other) {
  SetErrorCode(other.GetErrorCode());
  SetState(other.GetState());
  SetPercent(other.GetPercent());
}

void Feature::EndInitialize(StatusCode code) {
  SetErrorCode(code);
  Log(GetLogName(), "Initialize", __LINE__, kLogInfo,
      "Initialized with status: " + std::to_string(GetErrorCode().Value()) + ".");
}

bool Function::StandbyImmediate() {
  if (ata_ == nullptr) return false;
  const TimeoutGuard timeout(device_->GetPath(), kStandbyTimeoutSeconds);
  std::array<std::uint8_t, kSectorSize> sector{};
  return ata_->ataStandbyImmediate(sector) == Status::Completed;
}

}  // namespace Morvu
