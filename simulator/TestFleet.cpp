#include "TestFleet.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "AdapterCalls.h"
#include "Controllers.h"
#include "FleetFiles.h"

namespace Simulator {

void SetFileHook(FileHook hook);

void TestFleet::OnFileTransfer(FileHook hook) { SetFileHook(std::move(hook)); }

namespace {

// The name holds decimal digits behind "fleet-" only: shell pipelines look for
// words such as "sg1" and "usb" in lines that carry the folder's path.
std::string NewFolder() {
  static int serial = 0;
  const char* base = std::getenv("TMPDIR");
  char name[64];
  std::snprintf(name, sizeof name, "/fleet-%d-%d", static_cast<int>(getpid()), ++serial);
  return std::string(base != nullptr && *base == '/' ? base : "/tmp") + name;
}

}  // namespace

SimulatedDrive::SimulatedDrive(std::shared_ptr<Fleet> fleet, std::string node)
    : fleet_(std::move(fleet)), node_(std::move(node)) {
  const auto found = fleet_->Find(node_);
  if (!found) throw std::runtime_error("no simulated drive " + node_);
  drive_ = found.drive;
  nsid_ = found.nsid;
}

std::vector<std::uint8_t> SimulatedDrive::Opcodes() const {
  std::vector<std::uint8_t> opcodes;
  for (const auto& entry : Journal()) opcodes.push_back(entry.Opcode());
  return opcodes;
}

std::string SimulatedDrive::AddPartition(std::uint64_t bytes, std::string_view mountPoint,
                                         std::string_view fileSystem,
                                         std::string_view volumeGroup) {
  return fleet_->AddPartition(node_, bytes, fileSystem, mountPoint, volumeGroup);
}

void SimulatedDrive::AddUnreadPartition(std::uint64_t bytes) {
  WriteUnreadPartition(fleet_->Root(), fleet_->DiskOf({drive_, nsid_, true}), {bytes, "", "", ""});
}

void SimulatedDrive::OpenPartition(std::string_view partition) {
  Simulator::OpenPartition(fleet_->Root(), partition);
}

std::string SimulatedDrive::AddLoop(std::string_view backingFile) {
  return MakeLoop(fleet_->Root(), backingFile);
}

void SimulatedDrive::TakeNames() {
  auto& state = State();
  std::fill(std::begin(state.serial), std::end(state.serial), '\0');
  std::fill_n(state.ata.identify + 108, 4, std::uint16_t{0});
}

void SimulatedDrive::AddBadSectors(std::uint64_t lba, std::uint64_t count) {
  const std::uint64_t size = State().sectorSize;
  if (!drive_->AddBadRange(nsid_, lba * size, count * size))
    throw std::runtime_error("too many bad ranges");
}

void SimulatedDrive::SetLog(std::uint8_t address, const std::vector<std::uint8_t>& content) {
  char name[16];
  std::snprintf(name, sizeof name, "%s-%02X", State().kind == Kind::Nvme ? "nvme" : "ata", address);
  drive_->WriteLog(name, content.data(), content.size());
}

void SimulatedDrive::SetVendorLog(std::uint32_t number, const std::vector<std::uint8_t>& content) {
  drive_->WriteLog("nvme-D2-" + std::to_string(number), content.data(), content.size());
}

void SimulatedDrive::WriteMedium(std::uint64_t offset, const std::vector<std::uint8_t>& bytes) {
  if (!drive_->WriteMedium(nsid_, offset, bytes.data(), bytes.size())) {
    throw std::runtime_error("cannot write the medium of " + node_);
  }
}

std::vector<std::uint8_t> SimulatedDrive::ReadMedium(std::uint64_t offset, std::size_t size) {
  std::vector<std::uint8_t> bytes(size);
  if (!drive_->ReadMedium(nsid_, offset, bytes.data(), size)) {
    throw std::runtime_error("cannot read the medium of " + node_);
  }
  return bytes;
}

TestFleet::TestFleet() {
  const auto folder = NewFolder();
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);  // of a process with this number that was killed
  std::string error;
  if (!Fleet::Make(folder, error)) throw std::runtime_error(error);
  fleet_ = Fleet::Open(folder);
  if (!fleet_) throw std::runtime_error("cannot open the fleet " + folder);
  fleet_->SkipWaits(true);
  SetActiveFleet(fleet_);
}

TestFleet::~TestFleet() {
  SetFileHook({});
  SetActiveFleet(nullptr);
  std::error_code ignored;
  std::filesystem::remove_all(fleet_->Root(), ignored);
}

std::vector<std::string> TestFleet::Events() const { return ReadEvents(fleet_->Root()); }

SimulatedDrive TestFleet::Add(const DriveSpec& spec) {
  std::string error;
  while (spec.controller >= static_cast<int>(ReadControllers(fleet_->Root()).size())) {
    fleet_->AddController();
  }
  const auto node = fleet_->Add(spec, error);
  if (node.empty()) throw std::runtime_error(error);
  return SimulatedDrive(fleet_, node);
}

SimulatedDrive TestFleet::Drive(std::string_view node) {
  return SimulatedDrive(fleet_, std::string(node));
}

std::string TestFleet::AddVolume(const std::vector<std::string>& drives, bool hasDisk) {
  std::string error;
  if (fleet_->AddVolume(drives, hasDisk, error) < 0) throw std::runtime_error(error);
  const auto volume = ReadVolumes(fleet_->Root()).back();
  return hasDisk ? "/dev/sg" + std::to_string(volume.generic) : std::string();
}

void TestFleet::SetLibraryFaults(const std::vector<std::string>& faults) {
  for (const auto& fault : faults) {
    if (!IsLibraryFault(fault)) throw std::runtime_error("no fault of the library: " + fault);
  }
  WriteLibraryFaults(fleet_->Root(), faults);
}

}  // namespace Simulator
