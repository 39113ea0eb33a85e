// The times of jobs: UTC, to the microsecond, in the forms that the wire has for them.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace Morvu {

using JobDuration = std::chrono::microseconds;
using JobTime = std::chrono::time_point<std::chrono::system_clock, JobDuration>;

JobTime GetSystemTime();

// "20150102030405.123456+000"; "not-a-date-time" for a time that is not set.
std::string ToTimeText(const std::optional<JobTime>& time);
// Five minutes are "00000000000500.000000+000"; hours take two digits or more.
std::string ToDurationText(const std::optional<JobDuration>& duration);

}  // namespace Morvu
