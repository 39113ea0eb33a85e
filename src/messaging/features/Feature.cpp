#include "messaging/features/Feature.h"

#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/commands/CommandSet_SCSI.h"
#include "devices/model/Adapter.h"
#include "devices/model/Drive.h"
#include "frame/Logger.h"
#include "frame/Platform.h"

namespace Morvu {

using namespace DeviceManagement;

Feature::Feature(Device* device, ProgressReporter& reporter)
    : device_(device), osName_(GetOsName()), reporter_(reporter), innerReporter_(reporter) {
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

bool Feature::BeginExecute(const char* file, int line) {
  const auto log = [&](LogLevel level, std::string_view text) {
    Log(SourceBaseName(file), "Execute", line, level, text);
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
  remarks_.insert(remarks_.end(), other.remarks_.begin(), other.remarks_.end());
}

void Feature::EndInitialize(StatusCode code, const char* file, int line) {
  SetErrorCode(code);
  Log(SourceBaseName(file), "Initialize", line, kLogInfo,
      "Initialized with status: " + std::to_string(GetErrorCode().Value()) + ".");
}

bool Function::StandbyImmediate() {
  return ata_ != nullptr && ata_->ataStandbyImmediate() == Status::Completed;
}

}  // namespace Morvu
