// What all erases share: that nothing is destroyed without a permit, and the run around them.
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

#include "frame/status/Partitions.h"
#include "messaging/features/Face.h"
#include "messaging/features/Feature.h"
#include "operations/Operation.h"
#include "operations/erase/ErasePermit.h"

namespace Morvu {

// Until there is a permit a partition refuses the operation (13), and Execute does nothing (4).
// Initialize asks and changes nothing.
class Erasure : public Function {
 public:
  // The permit outlives the run.
  virtual void Allow(const ErasePermit& permit) { permit_ = &permit; }
  bool IsPermitted() const { return permit_ != nullptr; }

  // What a run does to a drive that its Initialize refused with this code; the run's code.
  virtual StatusCode Refuse(StatusCode code) { return code; }
  // Whether the erase is one that takes all namespaces where a secure erase does.
  virtual bool IsSecure() const { return false; }
  // How long the drive says it takes.
  virtual std::optional<std::chrono::minutes> GetDuration(
      const DeviceManagement::FreshIdentity&) const {
    return std::nullopt;
  }

 protected:
  Erasure(DeviceManagement::Device* device, const ErasePermit* permit, ProgressReporter& reporter)
      : Function(device, reporter), permit_(permit) {}

  const ErasePermit* GetPermit() const { return permit_; }
  // The beginning of every Execute: false when the run ends here.
  [[nodiscard]] bool BeginErase(const char* file = __builtin_FILE(), int line = __builtin_LINE());
  // The first lines of every Initialize: partitions are looked for once, when a row asks.
  void BeginInitialize() { partitions_.reset(); }

 public:
  // What the system shows now, or the scan has shown: 13, 14 or 128. Nothing is sent.
  StatusCode LookForPartitions();

 private:
  const ErasePermit* permit_;
  std::optional<StatusCode> partitions_;
};

// The rows for partitions, in the table of every erase.
namespace Refuse {
template <typename Erase>
bool PartitionsNotToldTo(Erase& erase) {
  return !erase.IsPermitted() && erase.LookForPartitions() == Status::PartitionCheckFailed;
}
template <typename Erase>
bool PartitionMet(Erase& erase) {
  return !erase.IsPermitted() && erase.LookForPartitions() == Status::HasPartition;
}
}  // namespace Refuse

// The run, of an operation built without a permit: refuses, asks, takes the permit, erases,
// and has the system forget the old content. Confirmed and forced are two things: who said yes
// to what he was told has not agreed to lose what came since.
StatusCode RunErase(Erasure& erase, Face& face, const EraseTexts& texts);

}  // namespace Morvu
