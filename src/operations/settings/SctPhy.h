// The vendor's SCT actions on a SATA drive's PHY. What they set is kept, and comes into force
// with the next power cycle.
#pragma once

#include <memory>
#include <vector>

#include "messaging/features/CimClass.h"
#include "operations/settings/SCT.h"

namespace Morvu {

// An action behind which the link is brought up anew (COMINIT).
class SctPhyAction : public SCT {
 public:
  std::int32_t Execute() override;

 protected:
  SctPhyAction(DeviceManagement::Device* device, std::uint16_t actionCode,
               std::uint16_t functionCode, ProgressReporter& reporter)
      : SCT(device, actionCode, functionCode, Answer::None, reporter) {}

  virtual bool NeedsCominit() const { return true; }
};

class SCT_Custom_PHY : public SctPhyAction {
 public:
  static constexpr std::uint16_t kCustom = 6;  // with values of its own, else 0, 1 or 2

  SCT_Custom_PHY(DeviceManagement::Device* device, std::uint16_t config,
                 std::vector<std::uint16_t> values, ProgressReporter& reporter);

  void Initialize() override;
  std::int32_t Execute() override;

 private:
  std::vector<std::uint16_t> values_;  // six bytes for the custom configuration
};

class SCT_PHY_Speed : public SctPhyAction {
 public:
  // 0: 1.5 Gb/s, 1: 3, 2: 6.
  SCT_PHY_Speed(DeviceManagement::Device* device, std::uint16_t speed, ProgressReporter& reporter);
};

// Spread-spectrum clocking.
class SCT_SSC : public SctPhyAction {
 public:
  SCT_SSC(DeviceManagement::Device* device, bool enable, ProgressReporter& reporter);

  void Initialize() override;

 private:
  bool NeedsCominit() const override;
};

// Resets the link. The drive may be away for a while, and come back under another node.
class SCT_COMINIT : public SCT {
 public:
  SCT_COMINIT(DeviceManagement::Device* device, ProgressReporter& reporter);
};

// The drive's properties "PhyConfig", "PhySpeed" and "SSCEnabled". They show what the last scan
// has read.
std::unique_ptr<XmlMessaging::Property> GetPhyProperty(JobContext* context,
                                                       const PropertyEntry& entry,
                                                       DeviceManagement::Device* device);
StatusCode SetPhyConfig(XmlMessaging::Property& request, DeviceManagement::Device& device);
StatusCode SetPhySpeed(XmlMessaging::Property& request, DeviceManagement::Device& device);
StatusCode SetSscEnabled(XmlMessaging::Property& request, DeviceManagement::Device& device);

}  // namespace Morvu
