// A scene of a test: a fleet with one drive, and one run of something on it.
#pragma once

#include <cstdint>

#include "TestFleet.h"
#include "frame/StatusCode.h"
#include "messaging/ProgressReporter.h"

namespace Morvu {

namespace Testing {

// One scene at a time may live: it stands for the machine.
class Scene {
 public:
  explicit Scene(const Simulator::DriveSpec& spec) : drive(fleet.Add(spec)) {}
  virtual ~Scene() = default;
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  // What stands before the run and is no part of it.
  virtual void Prepare() {}
  // One run, and its status.
  virtual StatusCode Run(ProgressReporter& reporter) = 0;
  // A time-out that the run must leave as it was, in seconds.
  virtual std::uint32_t GetTimeout() const { return 0; }

  Simulator::TestFleet fleet;
  Simulator::SimulatedDrive drive;
};

}  // namespace Testing
}  // namespace Morvu
