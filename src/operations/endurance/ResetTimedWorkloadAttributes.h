// Starts the drive's timed workload counters, SMART attributes E2h to E4h, anew.
#pragma once

#include "messaging/features/Feature.h"

namespace Morvu {

class ResetTimedWorkloadAttributes : public Function {
 public:
  void Initialize() override;
  std::int32_t Execute() override;

 protected:
  using Function::Function;
  virtual bool reset() = 0;
  bool EndReset(StatusCode code);

 private:
  struct Rules;
};

class ResetTimedWorkloadAttributes_ATA final : public ResetTimedWorkloadAttributes {
 public:
  ResetTimedWorkloadAttributes_ATA(DeviceManagement::Device* device, ProgressReporter& reporter);

 protected:
  bool reset() override;  // 120 when the drive refuses
};

class ResetTimedWorkloadAttributes_NVMe final : public ResetTimedWorkloadAttributes {
 public:
  ResetTimedWorkloadAttributes_NVMe(DeviceManagement::Device* device, ProgressReporter& reporter);

  void Initialize() override;  // 118 also for a product without these attributes

 protected:
  bool reset() override;  // 108 when the drive refuses, and a remark tells its status
};

}  // namespace Morvu
