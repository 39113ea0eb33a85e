// Statuses of NVMe commands among the library's codes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "frame/status/StatusCode.h"

namespace Morvu {

// NVMe statuses and status codes are two number spaces. Inside the library an NVMe
// status (SCT in bits 10:8, SC in 7:0; NVMe 1.0, 4.5.1) stands apart from every code, so
// that Invalid Field (002h) is never taken for a cancel (2).
StatusCode FromNvmeStatus(std::uint16_t status);
// Nothing for a code that is no NVMe status.
std::optional<std::uint16_t> ToNvmeStatus(StatusCode code);

// The number that a host is told: an NVMe status as it is, and every code.
std::int32_t ToToldNumber(StatusCode code);

// "NVMe status 0x002 (Invalid Field in Command)"; empty for a code that is no NVMe
// status.
std::string DescribeNvmeStatus(StatusCode code);

}  // namespace Morvu
