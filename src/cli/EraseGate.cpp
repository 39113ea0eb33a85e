#include "cli/EraseGate.h"

namespace Morvu {
namespace {

struct GateRow {
  bool (*holds)(const EraseLine& line);
  std::string_view reason;
};

// From the top; the first that holds is told.
constexpr GateRow kGate[] = {
    {[](const EraseLine& line) { return line.isDoubtful; },
     "Error: Nothing was done: an option stands twice, or a word of the command line is not "
     "understood."},
    {[](const EraseLine& line) { return line.features != 1; },
     "Error: Nothing was done: an option that destroys data must be the only feature."},
    {[](const EraseLine& line) { return line.drives == 0; }, kSelectDrive},
    {[](const EraseLine& line) { return line.drives > 1; },
     "Error: Nothing was done: more than one drive is selected."},
    {[](const EraseLine& line) { return line.isShared; },
     "Error: Nothing was done: several drives answer to the selection. Use -drive_path."},
    {[](const EraseLine& line) { return line.isNameless; },
     "Error: Nothing was done: the drive tells neither a serial number nor a World Wide Name, so "
     "another may stand in its place."},
};

}  // namespace

std::string_view FindEraseRefusal(const EraseLine& line) {
  for (const auto& row : kGate) {
    if (row.holds(line)) return row.reason;
  }
  return {};
}

}  // namespace Morvu
