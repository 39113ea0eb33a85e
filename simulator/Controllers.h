// The RAID controllers of a fleet: the drives behind them, which have no node, and the volumes
// that they make of those. A drive behind a controller bears the name "LSI_0_12": controller,
// device.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Simulator {

struct Controller {
  std::uint32_t id = 0;
  bool passesThrough = true;  // SCSI commands may hold ATA commands
};

struct BoundDrive {
  std::uint32_t controller = 0;
  std::uint16_t device = 0;
  bool isHidden = false;  // the controller keeps it for itself

  std::string Name() const;
};

struct Volume {
  static constexpr std::uint16_t kNoDisk = 65535;

  std::uint32_t controller = 0;
  std::uint16_t number = 0;
  std::uint16_t generic = kNoDisk;  // N of /dev/sgN
  std::vector<std::uint16_t> members{};
};

std::vector<Controller> ReadControllers(const std::string& root);
std::vector<BoundDrive> ReadBoundDrives(const std::string& root);
std::vector<Volume> ReadVolumes(const std::string& root);
void Append(const std::string& root, const Controller& controller);
void Append(const std::string& root, const BoundDrive& drive);
void Append(const std::string& root, const Volume& volume);

// What goes wrong with the vendor's library, by names that AdapterCalls.cpp has; none at first.
std::vector<std::string> ReadLibraryFaults(const std::string& root);
void WriteLibraryFaults(const std::string& root, const std::vector<std::string>& faults);

// Nothing (false) for a name of any other form.
bool ParseBoundName(std::string_view name, BoundDrive& drive);

// The vendor's library as a machine with controllers has it, whatever folder it is looked for
// in; empty for any other path. A file of that name in the fleet's folder "lib" takes its place.
inline constexpr std::string_view kAdapterLibrary = "libLSI.AdapterAPI.so.4.02";
std::string FindAdapterLibrary(const std::string& root, std::string_view path);

}  // namespace Simulator
