// Puts a drive in standby, before its power is taken away.
#pragma once

#include <string_view>

#include "messaging/features/Face.h"
#include "messaging/features/Feature.h"

namespace Morvu {

class StandbyImmediate : public Function {
 public:
  StandbyImmediate(DeviceManagement::Device* device, ProgressReporter& reporter);

  void Initialize() override;
  std::int32_t Execute() override;

  static StatusCode Runner(DeviceManagement::Device& device, Face& face);

 private:
  struct Rules;

  std::string_view GetLogName() const override { return "StandbyImmediate"; }
  bool Fail(std::string_view text, StatusCode code);
};

}  // namespace Morvu
