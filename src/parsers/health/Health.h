// The health of many drives as a table, and what is found in it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "messaging/ResultTable.h"
#include "parsers/health/DriveHealth.h"

namespace Morvu {

// What there is to act on; bits.
enum HealthFinding : std::uint32_t {
  kFailing = 1,  // a drive says that it fails
  kWornOut = 2,  // a drive's life or spare is nearly used up
  kFaults = 4,   // media errors, a failed self-test, SMART turned off
  kUnasked = 8,  // a drive could not be asked, or not for its verdict
};
std::uint32_t FindHealthFindings(const DriveHealth& health);

// A drive and its health.
struct HealthRow {
  const DeviceManagement::Device* device = nullptr;
  DriveHealth health;
};

// All drives side by side, in their order.
std::vector<HealthRow> ReadHealthRows(std::span<DeviceManagement::Device* const> devices);

// The worst first: by what there is to act on, then by the remaining life. Others keep their order.
void SortWorstFirst(std::vector<HealthRow>& rows);

// A row a drive. What could not be had is "-"; `isWhole` is for programs: it has columns that a
// screen has no room for, units in the titles, and empty cells for what could not be had.
ResultTable TabulateHealth(std::span<const HealthRow> rows, bool isWhole);

}  // namespace Morvu
