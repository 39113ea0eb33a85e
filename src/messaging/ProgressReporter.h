#pragma once

#include <cstdint>

#include "frame/StatusCode.h"

namespace Morvu {

// How a Feature reaches whoever runs it. Called on the Feature's thread.
class ProgressReporter {
 public:
  virtual ~ProgressReporter() = default;
  virtual void SetPercent(std::int32_t percent) = 0;
  virtual void SetState(std::int32_t state) = 0;
  virtual void SetErrorCode(StatusCode code) = 0;
  virtual bool IsCancelRequested() = 0;
};

// Hears nothing and never asks to stop.
class SilentReporter : public ProgressReporter {
 public:
  void SetPercent(std::int32_t) override {}
  void SetState(std::int32_t) override {}
  void SetErrorCode(StatusCode) override {}
  bool IsCancelRequested() override { return false; }
};

// The reporter of a run that nobody watches. It has no state: any thread may use it.
inline ProgressReporter& NoReporter() {
  static SilentReporter reporter;
  return reporter;
}

}  // namespace Morvu
