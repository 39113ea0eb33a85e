#pragma once

#include "messaging/features/JobContext.h"

namespace Morvu {

// A service that lives in a job: `Run` keeps the job's thread until another thread
// calls `Stop`.
class BackgroundService {
 public:
  explicit BackgroundService(JobContext& context) : context_(&context) {}
  virtual ~BackgroundService() = default;
  BackgroundService(const BackgroundService&) = delete;
  BackgroundService& operator=(const BackgroundService&) = delete;

  virtual void Run() = 0;
  virtual void Stop() = 0;

 protected:
  JobContext* context_;  // valid while the job's handler runs
};

}  // namespace Morvu
