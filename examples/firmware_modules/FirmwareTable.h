// What one firmware module knows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

// One product line: which firmware its drives are to run, and the images that lead
// there, in the order in which they are sent.
struct FirmwareRow {
  std::string_view modelPrefix;
  std::string_view destination;
  std::span<const std::string_view> images;
};

struct FirmwareTable {
  std::string_view audience;
  std::uint64_t date;     // rises from build to build
  std::size_t imageSize;  // bytes
  std::span<const FirmwareRow> rows;
};

// Each module defines its own.
extern const FirmwareTable kFirmwareTable;
