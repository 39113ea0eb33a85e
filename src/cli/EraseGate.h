// The gate before an option that destroys data: a line with anything doubtful about it
// erases nothing.
#pragma once

#include <cstddef>
#include <string_view>

namespace Morvu {

// What is missing on a line whose feature needs a drive.
inline constexpr std::string_view kSelectDrive =
    "Error: Nothing was done: select the drive with -drive_serial, -drive_index or -drive_path.";

// What a line with such an option says.
struct EraseLine {
  bool isDoubtful;       // a word was not understood, or an option stands twice
  std::size_t features;  // options that are carried out on a drive
  std::size_t drives;    // different ones that the selections name
  bool isShared;         // a selection names several drives by one word
  bool isNameless;       // the drive has neither serial number nor World Wide Name
};

// Why the line is refused, for a person; empty when the option may be carried out.
std::string_view FindEraseRefusal(const EraseLine& line);

}  // namespace Morvu
