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
  // `number` is the controller's position among all that a scan lists. One that is held by
  // somebody is not asked whether it answers.
  Adapter_NVMe_Linux(std::int32_t number, std::string nodePath, bool isHeld = false);

  // Appends the controllers that answer, each with its drives. The controllers of a
  // subsystem share namespaces: one of them has the drive.
  static void FindAdapters(AdapterList& list, const ScanOptions& options, const SystemFacts& facts);

  // Asks the namespaces that the kernel shows behind the controller, but for those that
  // another adapter has taken. A controller that has none is offered as a drive itself.
  void ScanDrives(const ScanOptions& options, const SystemFacts& facts) override;
  std::unique_ptr<Device> Clone() const override;

  bool IsUsable() const { return HasCommandSet(Protocol::Nvme); }

 private:
  class Subsystem;
  void TakeNamespaces(const ScanOptions& options, const SystemFacts& facts, Subsystem& subsystem);
  void Describe(Device& drive, const ScanOptions& options, const SystemFacts& facts) const;
  std::unique_ptr<Device> MakeControllerDrive();
  void GiveCommandSet(Device& drive) const;

  const bool isHeld_;
};

}  // namespace Morvu::DeviceManagement
