// One call of a family: by whom, on which drives, and with which arguments.
#pragma once

#include <chrono>
#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "messaging/features/Face.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
class Partition;
}  // namespace DeviceManagement

// The arguments by their names: a method's parameters, or the words of an option under the
// names that its declaration gives them, and the modifiers of the line under their own.
class CallArguments {
 public:
  void Set(std::string_view name, std::string_view text);

  bool Has(std::string_view name) const { return Find(name) != nullptr; }
  // `missing` stands for an argument that was not given.
  std::string GetText(std::string_view name, std::string_view missing = {}) const;
  // True only for "True".
  bool GetFlag(std::string_view name) const;
  // A decimal number, 0 when it was not given; none for a text that is no number: a slip
  // must not become a setting. One that no `Number` can hold reads as the largest, so that
  // the check of its range refuses it.
  template <std::unsigned_integral Number>
  std::optional<Number> GetNumber(std::string_view name) const {
    const auto number = GetNumber(name, std::numeric_limits<Number>::max());
    if (!number) return std::nullopt;
    return static_cast<Number>(*number);
  }

 private:
  const std::string* Find(std::string_view name) const;
  std::optional<std::uint64_t> GetNumber(std::string_view name, std::uint64_t largest) const;

  std::vector<std::pair<std::string, std::string>> arguments_;
};

struct FeatureCall {
  Face& face;
  // Not owned. Exactly one for a family that needs a drive; else all that there are.
  std::span<DeviceManagement::Device* const> devices;
  bool areChosen;  // somebody selected the drives
  const CallArguments& arguments;
  std::uint64_t job = 0;  // that asked; 0 for a person
  // That the request names; a person's are those of the drive.
  std::span<const DeviceManagement::Partition> partitions{};
  // When the scan for it began.
  std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();

  DeviceManagement::Device& GetDevice() const { return *devices.front(); }
};

}  // namespace Morvu
