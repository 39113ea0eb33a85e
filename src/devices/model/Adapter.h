#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "devices/model/Device.h"

namespace Morvu::DeviceManagement {

class Adapter_Generic_Linux;

// A device that holds drives.
class Adapter : public Device {
 public:
  using Devices = std::vector<std::unique_ptr<Device>>;

  // Tells the adapter from others over scans.
  virtual std::string GetIdentifier() const = 0;
  // Finds the adapter's drives. `generic` is the adapter of the operating system's
  // own nodes, from which others take theirs; null for that one itself.
  virtual void ScanDrives(const ScanOptions& options, Adapter_Generic_Linux* generic) = 0;

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
