#include "parsers/smart/SmartParser.h"

#include <boost/property_tree/ptree.hpp>

#include "frame/Logger.h"
#include "frame/status/Drives.h"
#include "operations/Operation.h"
#include "parsers/smart/SmartParserCore_ATA.h"
#include "parsers/smart/SmartParserCore_NVMe.h"

namespace Morvu {
namespace {

constexpr Refusal<SmartParser> kRefusals[] = {
    {OfDevice<Refuse::NotConnected>, Status::NoCommunication},
    {OfDevice<Refuse::RaidVolume>, Status::RaidVolume},
    {OfDevice<Refuse::DeviceFault>, Status::DeviceFault},
    {OfDevice<Refuse::FailureReported>, Status::DisableLogical},
};

}  // namespace

SmartParser::SmartParser(DeviceManagement::Device* device, ProgressReporter& reporter)
    : Parser(device, reporter) {
  Initialize();
}

void SmartParser::Initialize() {
  core_.reset();
  auto code = FirstRefusal<SmartParser>(kRefusals, *this);
  if (code == Status::ReadyToRun) code = ChooseCore();
  EndInitialize(code);
}

StatusCode SmartParser::ChooseCore() {
  if (ata_ != nullptr || smart_ != nullptr) {
    core_ = std::make_unique<SmartParserCore_ATA>(device_);
  } else if (nvme_ != nullptr) {
    core_ = std::make_unique<SmartParserCore_NVMe>(device_);
  }
  const auto code = core_ ? core_->GetErrorCode() : Status::NotSupportedByDrive;
  if (code != Status::ReadyToRun) core_.reset();
  return code;
}

std::int32_t SmartParser::Execute() {
  MORVU_LOG(kLogInfo, "Execute", "Executing...");
  table_.Clear();
  if (!core_) {
    MORVU_LOG(kLogError, "Execute", "Drive connection failed.");
    End(Status::NoCommunication);
    return 0;
  }
  core_->Execute();
  SetErrorCode(core_->GetErrorCode());
  SetState(core_->GetState());
  if (GetState() != FeatureState::Finished) return 0;
  table_.Append(core_->GetTable());
  return 1;
}

void SmartParser::WriteData(boost::property_tree::ptree& tree) const {
  auto& data = tree.add_child("data", {});
  if (core_) core_->WriteData(data);
}

const SmartParserCore::Attributes& SmartParser::GetAttributes() const {
  static const SmartParserCore::Attributes none;
  return core_ ? core_->GetAttributes() : none;
}

}  // namespace Morvu
