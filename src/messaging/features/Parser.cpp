#include "messaging/features/Parser.h"

#include "devices/properties/BasicProperties.h"
#include "messaging/XmlMessaging.h"

namespace Morvu {

void Parser::Initialize() {
  SetErrorCode(Status::ReadyToRun);
  SetState(FeatureState::Running);
}

std::unique_ptr<XmlMessaging::List> Parser::ToXml(bool asProperties) const {
  using DeviceManagement::Properties::SerialNumber;
  return table_.ToXml(asProperties,
                      device_ == nullptr ? std::string() : device_->GetString(SerialNumber));
}

}  // namespace Morvu
