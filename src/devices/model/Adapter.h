#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "devices/model/Device.h"

namespace Morvu::DeviceManagement {

class SystemFacts;

// A device that holds drives.
class Adapter : public Device {
 public:
  using Devices = std::vector<std::unique_ptr<Device>>;

  // Tells the adapter from others over scans.
  virtual std::string GetIdentifier() const = 0;
  // Finds the adapter's drives by what the kernel shows, and asks them.
  virtual void ScanDrives(const ScanOptions& options, const SystemFacts& facts) = 0;
  // Takes over, in the same scan, what of the operating system's own disks is this adapter's.
  virtual void TakeDisks(Adapter& /*generic*/, const ScanOptions& /*options*/,
                         const SystemFacts& /*facts*/) {}
  // Whether a drive of the adapter's is, or may be, a member of a volume by now, whatever the scan
  // has found. Any thread may ask.
  virtual bool MayBeMember(const Device& /*drive*/) const { return false; }
  // Makes the drives of a newer look at the same adapter this one's: in place of the old
  // objects, or merged into them, as `options.replaceObjects` says. No drive is asked.
  void TakeDrives(Adapter& newer, const ScanOptions& options) {
    SyncDrives(std::move(newer.drives_), options);
  }

  // Starts the controller anew, so that its drives run the firmware they were given.
  // An adapter that cannot do so leaves it to the drives' next reset, and gives 0.
  virtual StatusCode ResetAdapter() { return Status::Completed; }

  void CopyFrom(const Device& other) override;
  std::string ToText() const override;

  const std::string& GetType() const { return type_; }
  Devices& GetDrives() { return drives_; }
  const Devices& GetDrives() const { return drives_; }
  // What the adapter offers: its drives, and with `listChildrenOnly` their members too.
  std::vector<Device*> ListDrives(const ScanOptions& options) const;

 protected:
  explicit Adapter(std::string_view type);
  // Sorts `found` and makes it the adapter's drives: in place of the old objects,
  // or merged into them, as `options.replaceObjects` says.
  void SyncDrives(Devices found, const ScanOptions& options);

  std::string type_;  // "generic", "nvme", "lsi"
  Devices drives_;
};

// Clones of drives may outlive the manager's hold on an adapter.
using AdapterList = std::vector<std::shared_ptr<Adapter>>;

}  // namespace Morvu::DeviceManagement
