#pragma once

#include <memory>
#include <string>

#include "messaging/features/CimClass.h"
#include "messaging/features/Parser.h"
#include "operations/settings/SCT.h"

namespace Morvu {

// The timers by which a SATA drive ends its error recovery, in steps of 100 ms; 0 is none
// (ACS-3, 8.3.3). They are lost with the power.
class ErrorRecoveryControl : public Parser {
 public:
  // `timer` is "read", "write" or "both".
  ErrorRecoveryControl(DeviceManagement::Device* device, std::string timer,
                       ProgressReporter& reporter = NoReporter());

  void Initialize() override;
  std::int32_t Execute() override;
  void WriteData(boost::property_tree::ptree&) const override {}

 private:
  std::string timer_;
};

// The drive's properties "ReadErrorRecoveryTimer" and "WriteErrorRecoveryTimer".
std::unique_ptr<XmlMessaging::Property> GetErrorRecoveryProperty(JobContext* context,
                                                                 const PropertyEntry& entry,
                                                                 DeviceManagement::Device* device);
StatusCode SetErrorRecoveryProperty(XmlMessaging::Property& request,
                                    DeviceManagement::Device& device);

}  // namespace Morvu
