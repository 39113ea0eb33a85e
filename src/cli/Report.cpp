#include "cli/Report.h"

#include "frame/Text.h"

namespace Morvu {

void Report::Lines::Add(std::string_view text) {
  for (auto& line : Split(StripMarkup(text), '\n')) {
    while (!line.empty() && line.back() == ' ') line.pop_back();
    const bool isRule = line.find_first_not_of("-=") == line.npos;  // or empty
    if (!isRule) lines_.push_back(std::move(line));
  }
}

Report::Run& Report::AddRun(const DeviceManagement::Device* drive, std::string_view feature) {
  const std::lock_guard lock(mutex_);
  auto& run = runs_.emplace_back();
  run.drive = drive;
  run.feature = feature;
  return run;
}

void Report::AddLine(std::string_view text) {
  const std::lock_guard lock(mutex_);
  lines.Add(text);
}

}  // namespace Morvu
