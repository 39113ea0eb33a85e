#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "frame/Platform.h"

namespace Morvu {

// One loaded firmware module: code from outside, whose answers are checked against the
// buffers that they came in (include/morvu/firmware_module.h has its exports).
class FirmwareModule {
 public:
  // Loads the file if it is a tagged shared object; nothing otherwise.
  static std::optional<FirmwareModule> Open(const std::string& path);

  // Whether the exports are there that the calls below need.
  bool CanMap() const;
  bool CanSupply() const;

  // The answers; nothing when the module fails or breaks the rules.
  std::optional<std::int32_t> GetType() const;
  std::optional<std::uint64_t> GetDate() const;
  std::optional<std::string> GetTargetAudience() const;
  std::optional<std::string> GetTargetFirmwareMappingAttributes(const std::string& request) const;
  std::optional<std::vector<std::uint8_t>> GetTargetFirmwareBinary(const std::string& name) const;

 private:
  explicit FirmwareModule(Library library) : library_(std::move(library)) {}

  bool Exports(std::initializer_list<const char*> names) const;
  template <typename Export>
  Export* Find(const char* name) const {
    return reinterpret_cast<Export*>(GetSymbol(library_, name));
  }

  Library library_;
};

}  // namespace Morvu
