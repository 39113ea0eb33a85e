#include "messaging/jobs/JobTime.h"

#include <algorithm>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <sstream>

namespace Morvu {
namespace {

namespace pt = boost::posix_time;

constexpr auto kTimeFormat = "%Y%m%d%H%M%s+000";
constexpr auto kDurationFormat = "00000000%O%M%s+000";
constexpr auto kNotSet = "not-a-date-time";

// The classic locale below the facet keeps the decimal point a point, whatever locale
// the host has set. The locale owns its facet.
std::locale MakeLocale() {
  auto facet = std::make_unique<pt::time_facet>();
  facet->format(kTimeFormat);
  facet->time_duration_format(kDurationFormat);
  return std::locale(std::locale::classic(), facet.release());
}

std::string Write(const auto& value) {
  static const auto& locale = *new std::locale(MakeLocale());  // jobs use it while the process ends
  std::ostringstream out;
  out.imbue(locale);
  out << value;
  return std::move(out).str();
}

}  // namespace

JobTime GetSystemTime() {
  return std::chrono::time_point_cast<JobDuration>(std::chrono::system_clock::now());
}

std::string ToTimeText(const std::optional<JobTime>& time) {
  if (!time) return kNotSet;
  const pt::ptime epoch(boost::gregorian::date(1970, 1, 1));
  return Write(epoch + pt::microseconds(time->time_since_epoch().count()));
}

std::string ToDurationText(const std::optional<JobDuration>& duration) {
  if (!duration) return kNotSet;
  // A clock that was put back makes no negative time.
  return Write(
      pt::time_duration(pt::microseconds(std::max<JobDuration::rep>(duration->count(), 0))));
}

}  // namespace Morvu
