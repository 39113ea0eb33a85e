#include "messaging/features/Parser.h"

#include "devices/properties/BasicProperties.h"
#include "messaging/XmlMessaging.h"

namespace Morvu {

void Parser::Initialize() {
  SetErrorCode(Status::ReadyToRun);
  SetState(FeatureState::Running);
}

std::string Parser::GetSerialNumber() const {
  using DeviceManagement::Properties::SerialNumber;
  return device_ == nullptr ? std::string() : device_->GetString(SerialNumber);
}

std::unique_ptr<XmlMessaging::List> Parser::ToXml(bool asProperties) const {
  return table_.ToXml(asProperties, GetSerialNumber());
}

}  // namespace Morvu
