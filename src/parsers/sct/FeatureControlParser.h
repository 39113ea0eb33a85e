#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "messaging/features/CimClass.h"
#include "messaging/features/Parser.h"
#include "operations/settings/SCT.h"

namespace Morvu {

class GetFeature_NVMe;

// A setting that SCT feature control holds, and what is said of it.
struct FeatureControl {
  const PropertyEntry* property;
  std::string_view description;  // the row's title
  const SctFeature* feature;
  std::string (*show)(std::uint16_t state);
  std::uint16_t least;  // what a set may bring
  std::uint16_t most;
  StatusCode rangeError;
  std::string_view option;
};

// The state of a setting, and whether it is kept over a power cycle, as a table. The power
// governor's mode has no such flag, and on an NVMe drive is a feature of the controller.
class FeatureControlParser : public Parser {
 public:
  // The setting is a row of the table of settings.
  FeatureControlParser(DeviceManagement::Device* device, const FeatureControl& control,
                       ProgressReporter& reporter = NoReporter());
  ~FeatureControlParser() override;

  void Initialize() override;
  std::int32_t Execute() override;
  void WriteData(boost::property_tree::ptree&) const override {}

 private:
  bool Get(SCT_Feature_Control& get, std::string& text);
  bool ExecuteNvme();

  const FeatureControl& control_;
  std::unique_ptr<GetFeature_NVMe> nvmeFeature_;
  std::unique_ptr<SCT_Feature_Control> stateFeature_;
  std::unique_ptr<SCT_Feature_Control> optionFeature_;  // null without options
  std::string stateText_ = "Unknown";
  std::string optionText_ = "Unknown";
};

// The drive's properties "WriteCacheState", "TempLoggingInterval", "PLITestTimeInterval" and
// "PowerGovernorMode".
std::unique_ptr<XmlMessaging::Property> GetFeatureControlProperty(JobContext* context,
                                                                  const PropertyEntry& entry,
                                                                  DeviceManagement::Device* device);
StatusCode SetFeatureControlProperty(XmlMessaging::Property& request,
                                     DeviceManagement::Device& device);

}  // namespace Morvu
