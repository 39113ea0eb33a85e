// A command set: the operations of one protocol on one device's path.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "devices/commands/CommandRecords.h"
#include "frame/Bytes.h"
#include "frame/StatusCode.h"

namespace Morvu::DeviceManagement {

class CommandPath;
class CommandRecorder;
class PropertyList;

// The names of a device's command sets.
namespace Protocol {
inline constexpr std::string_view Ata = "ATA";
inline constexpr std::string_view Scsi = "SCSI";
inline constexpr std::string_view Nvme = "NVME";
inline constexpr std::string_view SmartPt = "SMARTPT";
inline constexpr std::string_view Tcg = "TCG";
inline constexpr std::string_view Zmv = "ZMV";
inline constexpr std::string_view Mmio = "MMIO";
inline constexpr std::string_view Tgi = "TGI";
inline constexpr std::string_view Tcp = "TCP";
inline constexpr std::string_view Fmi = "FMI";
}  // namespace Protocol

// Base of the sets. The properties and the path belong to the device, which
// outlives its sets.
class CommandSet {
 public:
  virtual ~CommandSet() = default;
  CommandSet(const CommandSet&) = delete;
  CommandSet& operator=(const CommandSet&) = delete;

  const std::string& GetName() const { return name_; }
  CommandPath& GetPath() const { return *path_; }

  // From here on the set's ATA and SCSI commands are recorded; null ends it. Not owned.
  void SetRecording(CommandRecorder* recorder) { recorder_ = recorder; }

  // A set of the same class on a device's `properties` and `path`.
  virtual std::unique_ptr<CommandSet> Clone(const PropertyList& properties,
                                            CommandPath& path) const = 0;

 protected:
  CommandSet(const PropertyList& properties, CommandPath& path, std::string_view name)
      : properties_(&properties), path_(&path), name_(name) {}

  // Sends a command; one that `changesNothing` once more when the drive had something to
  // tell first (UNIT ATTENTION) and so has not carried it out.
  StatusCode Deliver(const Command& command, bool changesNothing);
  // The device's "SectorSize" in bytes, 0 without that property.
  std::uint32_t GetSectorSize() const;

  const PropertyList* properties_;
  CommandPath* path_;

 private:
  StatusCode SendRecorded(const Command& command);

  std::string name_;
  CommandRecorder* recorder_ = nullptr;
};

// The set for the path's protocol; null when the protocol selects none.
std::unique_ptr<CommandSet> CreateCommandSet(const PropertyList& properties, CommandPath& path);

}  // namespace Morvu::DeviceManagement
