#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "devices/model/Adapter.h"
#include "devices/model/Drive_LSI.h"
#include "devices/system/SystemFacts.h"

namespace Morvu::DeviceManagement {

// One LSI RAID controller, reached by its vendor's library: the drives behind it, and the
// volumes that it makes of them, which the operating system has as disks.
class Adapter_LSI final : public Adapter {
 public:
  Adapter_LSI(std::string libraryPath, std::uint32_t controllerId);

  // Appends the controllers that the first library of a place's tells of, each with its drives.
  // Places: those of the options, beside the running program, beside this library.
  static void FindAdapters(AdapterList& list, const ScanOptions& options, const SystemFacts& facts);

  std::string GetIdentifier() const override { return std::to_string(controllerId_); }
  void ScanDrives(const ScanOptions& options, const SystemFacts& facts) override;
  // Takes the disks that are volumes of this controller over. A drive of which the system has a
  // node besides stays once: a member here, any other there.
  void TakeDisks(Adapter& generic, const ScanOptions& options, const SystemFacts& facts) override;
  bool MayBeMember(const Device& drive) const override;
  std::unique_ptr<Device> Clone() const override;

 private:
  bool IsLoaded() const { return library_.IsLoaded(); }

  // What the library says of the volumes. A drive is a member unless it says that it is not.
  struct Volumes {
    bool isWhole = true;                                       // every question was answered
    std::map<std::uint16_t, std::set<std::uint16_t>> members;  // volume -> device ids
    std::map<std::uint16_t, std::uint32_t> genericNumbers;     // volume -> N of /dev/sgN

    bool IsMember(std::uint16_t device) const;
    std::vector<std::string> FindNodes(const LsiDrive& drive) const;
  };

  std::shared_ptr<Adapter_LSI> CreateAdapter(const std::string& path,
                                             std::uint32_t controllerId) const;
  std::unique_ptr<Drive_LSI> CreateDrive(const LsiLocation& location, std::uint16_t deviceId) const;
  std::vector<std::uint32_t> ListControllers() const;
  Devices FindPhysical(const ScanOptions& options, const SystemFacts& facts);
  std::vector<std::unique_ptr<Drive_LSI>> ListPhysical() const;
  bool GetLogicalPhysicalMapping(Volumes& volumes) const;
  bool GetLogicalOSPhysicalMapping(Volumes& volumes) const;
  Volumes FindVolumes() const;
  void DropTwice(Adapter& generic);
  void FindLogical(Adapter& generic, const SystemFacts& facts);
  void BecomeVolume(Drive& disk, std::uint16_t volume) const;

  LsiLibrary library_;
  std::uint32_t controllerId_;
  Volumes volumes_;
};

// N of the generic node of a disk, "/dev/sgN"; nothing where the system does not tell one.
std::optional<std::uint32_t> GetOsDriveNumber(const Device& device, const SystemFacts& facts);

}  // namespace Morvu::DeviceManagement
