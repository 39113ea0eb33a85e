#pragma once

#include <string>
#include <vector>

#include "devices/model/Adapter.h"
#include "devices/system/SystemFacts.h"

namespace Morvu::DeviceManagement {

// All that the operating system's own nodes lead to: SCSI generic nodes, and the block
// nodes of NVMe namespaces that no controller's adapter takes.
class Adapter_Generic_Linux : public Adapter {
 public:
  Adapter_Generic_Linux() : Adapter("generic") {}

  std::string GetIdentifier() const override { return "GENERIC"; }
  void ScanDrives(const ScanOptions& options, const SystemFacts& facts) override;
  std::unique_ptr<Device> Clone() const override;
};

// The generic nodes that a scan asks, by what the kernel shows; told to the log.
struct GenericCandidate {
  std::string path;  // "/dev/sg0"
  GenericDevice device;
};
std::vector<GenericCandidate> FindGenericCandidates(const ScanOptions& options,
                                                    const SystemFacts& facts);

// The drive of a namespace's node, on which nothing is asked yet; null when the node cannot be
// opened, or the namespace's identifier is not known.
std::unique_ptr<Device> MakeNamespaceDrive(const NvmeSpace& space);

}  // namespace Morvu::DeviceManagement
