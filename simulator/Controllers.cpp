#include "Controllers.h"

#include <dlfcn.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "FleetFiles.h"
#include "Real.h"

namespace Simulator {

namespace {

constexpr std::string_view kPrefix = "LSI_";

std::string AdapterTable(const std::string& root, const char* name) {
  return root + "/tables/" + name;
}

template <typename Number>
bool ParseNumber(std::string_view text, Number& number) {
  const auto* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  return parsed.ec == std::errc() && parsed.ptr == end && !text.empty();
}

template <typename Number>
Number ToNumber(const std::string& text) {
  Number number = 0;
  ParseNumber(text, number);
  return number;
}

std::string JoinMembers(const std::vector<std::uint16_t>& members) {
  std::string text;
  for (const auto member : members) text += (text.empty() ? "" : ",") + std::to_string(member);
  return text.empty() ? "-" : text;
}

std::vector<std::uint16_t> SplitMembers(const std::string& text) {
  std::vector<std::uint16_t> members;
  std::istringstream stream(text);
  for (std::string word; text != "-" && std::getline(stream, word, ',');) {
    members.push_back(ToNumber<std::uint16_t>(word));
  }
  return members;
}

bool Exists(const std::string& path) { return Libc().access(path.c_str(), F_OK) == 0; }

// Beside this program or preload library, or where a build or an installation has it.
std::string FindBuiltLibrary() {
  Dl_info self{};
  if (dladdr(reinterpret_cast<const void*>(&kAdapterLibrary), &self) == 0) return {};
  std::error_code failure;
  const auto here =
      std::filesystem::path(std::filesystem::absolute(self.dli_fname, failure)).parent_path();
  for (const auto* folder : {".", "adapter", "../simulator/adapter"}) {
    auto path = (here / folder / kAdapterLibrary).lexically_normal().string();
    if (Exists(path)) return path;
  }
  return {};
}

}  // namespace

std::string BoundDrive::Name() const {
  return std::string(kPrefix) + std::to_string(controller) + "_" + std::to_string(device);
}

std::vector<Controller> ReadControllers(const std::string& root) {
  std::vector<Controller> controllers;
  for (const auto& row : ReadTable(AdapterTable(root, "adapters"))) {
    if (row.size() == 2) controllers.push_back({ToNumber<std::uint32_t>(row[0]), row[1] == "sat"});
  }
  return controllers;
}

std::vector<BoundDrive> ReadBoundDrives(const std::string& root) {
  std::vector<BoundDrive> drives;
  for (const auto& row : ReadTable(AdapterTable(root, "adapter_drives"))) {
    if (row.size() != 3) continue;
    drives.push_back(
        {ToNumber<std::uint32_t>(row[0]), ToNumber<std::uint16_t>(row[1]), row[2] == "hidden"});
  }
  return drives;
}

std::vector<Volume> ReadVolumes(const std::string& root) {
  std::vector<Volume> volumes;
  for (const auto& row : ReadTable(AdapterTable(root, "volumes"))) {
    if (row.size() != 4) continue;
    volumes.push_back({ToNumber<std::uint32_t>(row[0]), ToNumber<std::uint16_t>(row[1]),
                       ToNumber<std::uint16_t>(row[2]), SplitMembers(row[3])});
  }
  return volumes;
}

void Append(const std::string& root, const Controller& controller) {
  AppendLine(AdapterTable(root, "adapters"),
             std::to_string(controller.id) + (controller.passesThrough ? " sat" : " no-sat"));
}

void Append(const std::string& root, const BoundDrive& drive) {
  AppendLine(AdapterTable(root, "adapter_drives"), std::to_string(drive.controller) + " " +
                                                       std::to_string(drive.device) +
                                                       (drive.isHidden ? " hidden" : " shown"));
}

void Append(const std::string& root, const Volume& volume) {
  AppendLine(AdapterTable(root, "volumes"),
             std::to_string(volume.controller) + " " + std::to_string(volume.number) + " " +
                 std::to_string(volume.generic) + " " + JoinMembers(volume.members));
}

std::vector<std::string> ReadLibraryFaults(const std::string& root) {
  std::vector<std::string> faults;
  for (const auto& row : ReadTable(AdapterTable(root, "adapter_faults"))) {
    faults.insert(faults.end(), row.begin(), row.end());
  }
  return faults;
}

void WriteLibraryFaults(const std::string& root, const std::vector<std::string>& faults) {
  std::ofstream file(AdapterTable(root, "adapter_faults"));
  for (const auto& fault : faults) file << fault << '\n';
}

bool ParseBoundName(std::string_view name, BoundDrive& drive) {
  if (!name.starts_with(kPrefix)) return false;
  name.remove_prefix(kPrefix.size());
  const auto middle = name.find('_');
  return middle != name.npos && ParseNumber(name.substr(0, middle), drive.controller) &&
         ParseNumber(name.substr(middle + 1), drive.device);
}

std::string FindAdapterLibrary(const std::string& root, std::string_view path) {
  if (!path.ends_with(kAdapterLibrary)) return {};
  const auto folder = path.substr(0, path.size() - kAdapterLibrary.size());
  if (!folder.ends_with('/') || path.starts_with(root + "/")) return {};
  const auto own = root + "/lib/" + std::string(kAdapterLibrary);
  if (Exists(own)) return own;
  return ReadControllers(root).empty() ? std::string() : FindBuiltLibrary();
}

}  // namespace Simulator
