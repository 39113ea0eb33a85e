// How long a drive will last under the workload that it has: from the wear that it counted since
// its workload counters were reset.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "messaging/ResultTable.h"
#include "messaging/features/CimClass.h"
#include "messaging/features/Face.h"
#include "messaging/features/Feature.h"

namespace Morvu {

class SmartParser;
class ResetTimedWorkloadAttributes;

class EnduranceAnalyzer : public Function {
 public:
  explicit EnduranceAnalyzer(DeviceManagement::Device* device,
                             ProgressReporter& reporter = NoReporter());
  ~EnduranceAnalyzer() override;

  void Initialize() override;
  // 205 before there was any wear, 269 before an hour has passed since the reset.
  std::int32_t Execute() override;

  // 0 when the counters were reset, and are kept over a loss of power. What went wrong
  // behind the reset itself is told in the remarks.
  StatusCode ResetSmartAttributes();

  // "0.01 Years"; empty until it is calculated.
  const std::string& GetLifeSpanText() const { return statusText_; }
  ResultTable MakeTable() const;

  static StatusCode Runner(DeviceManagement::Device& device, const std::string& value, Face& face);

 private:
  struct Rules;

  StatusCode ReadSmartAttributes();
  StatusCode EndReset(StatusCode code);

  std::unique_ptr<SmartParser> smartParser_;
  std::unique_ptr<ResetTimedWorkloadAttributes> resetter_;
  // Raw values as the drive has them, of 48 bits; nothing where it has none.
  std::optional<std::uint64_t> hostWrites_;
  std::uint64_t workloadMediaWear_ = 0;  // in 1/1024 of a percent
  std::uint64_t readWriteRatio_ = 0;
  std::uint64_t workloadTime_ = 0;  // in minutes
};

// The property "EnduranceAnalyzer": its getter asks the drive when the request names it, and
// tells nothing in other lists; its setter takes "reset".
std::unique_ptr<XmlMessaging::Property> GetEnduranceProperty(JobContext* context,
                                                             const PropertyEntry& entry,
                                                             DeviceManagement::Device* device);
StatusCode SetEnduranceProperty(XmlMessaging::Property& request, DeviceManagement::Device& device);

}  // namespace Morvu
