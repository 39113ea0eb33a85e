#pragma once

#include <cstdint>

#include "frame/StatusCode.h"

namespace Morvu {

// How a Feature reaches whoever runs it. Any pointer may be null. The functions
// are called on the Feature's thread, with `owner` as their first argument.
struct ProgressReporter {
  void* owner = nullptr;
  void (*setPercent)(void* owner, std::int32_t percent) = nullptr;
  void (*setState)(void* owner, std::int32_t state) = nullptr;
  void (*setErrorCode)(void* owner, StatusCode code) = nullptr;
  bool (*isCancelRequested)(void* owner) = nullptr;
};

}  // namespace Morvu
