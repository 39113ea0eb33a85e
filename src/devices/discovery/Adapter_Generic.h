#pragma once

#include "devices/model/Adapter.h"

namespace Morvu::DeviceManagement {

// All that the operating system's own nodes lead to: SCSI generic nodes and the
// block nodes of NVMe namespaces.
class Adapter_Generic_Linux : public Adapter {
 public:
  Adapter_Generic_Linux() : Adapter("generic") {}

  std::string GetIdentifier() const override { return "GENERIC"; }
  void ScanDrives(const ScanOptions& options, Adapter_Generic_Linux* generic) override;
  std::unique_ptr<Device> Clone() const override;

 private:
  void FindGenericDrives(const ScanOptions& options, Devices& found);
  void FindNvmeDrives(Devices& found);
};

}  // namespace Morvu::DeviceManagement
