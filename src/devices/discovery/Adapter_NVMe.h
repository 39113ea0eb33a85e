#pragma once

#include "devices/model/Adapter.h"

namespace Morvu::DeviceManagement {

// One NVMe controller, with the drives that its namespaces are.
class Adapter_NVMe : public Adapter {
 public:
  // The decimal text of the "PortNumber" property.
  std::string GetIdentifier() const override;
  const std::string& GetNodePath() const { return nodePath_; }

 protected:
  Adapter_NVMe(std::int32_t number, std::string nodePath);

 private:
  std::string nodePath_;
};

// A controller by its character device, such as /dev/nvme0.
class Adapter_NVMe_Linux : public Adapter_NVMe {
 public:
  // `number` is the controller's position among all that a scan lists.
  Adapter_NVMe_Linux(std::int32_t number, std::string nodePath);

  // Appends the controllers that answer.
  static void FindAdapters(AdapterList& list, const ScanOptions& options);

  // Takes the controller's namespaces from `generic`. A controller without any is
  // offered as a drive itself.
  void ScanDrives(const ScanOptions& options, Adapter_Generic_Linux* generic) override;
  std::unique_ptr<Device> Clone() const override;

  bool IsUsable() const { return HasCommandSet(Protocol::Nvme); }

 private:
  void TakeNamespaces(Adapter_Generic_Linux& generic, Devices& found);
  std::unique_ptr<Device> MakeControllerDrive();
  void GiveCommandSet(Device& drive) const;
};

}  // namespace Morvu::DeviceManagement
