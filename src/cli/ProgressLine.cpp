#include "cli/ProgressLine.h"

#include <algorithm>
#include <ostream>
#include <system_error>

#include "frame/Text.h"

namespace Morvu {
namespace {

constexpr std::chrono::seconds kRenewal{1};
constexpr std::string_view kErase = "\r\x1b[K";  // to the line's begin, and clear it (ECMA-48, EL)

// "1:02:03"
std::string TimeText(std::chrono::seconds time) {
  const std::int64_t seconds = time.count();
  return std::to_string(seconds / 3600) + ":" + ToDecimalText(seconds / 60 % 60, 2) + ":" +
         ToDecimalText(seconds % 60, 2);
}

}  // namespace

ProgressLine::ProgressLine(std::ostream& out, Duration delay, bool (*mayDraw)())
    : out_(&out), delay_(delay), mayDraw_(mayDraw) {}

ProgressLine::~ProgressLine() { Stop(); }

ProgressLine& ProgressLine::None() {
  static auto& none = *new ProgressLine;
  return none;
}

void ProgressLine::Run::Stop() {
  if (isOwner_) line_.Stop();
  isOwner_ = false;
}

ProgressLine::Gap::Gap(ProgressLine& line) : line_(line) {
  if (line.out_ == nullptr) return;
  lock_ = std::unique_lock(line.mutex_);
  line.Erase();
}

bool ProgressLine::Start(std::string_view what) {
  if (out_ == nullptr) return false;
  {
    const std::lock_guard lock(mutex_);
    if (isRunning_) return false;
    isRunning_ = true;
    what_ = what;
    percent_.reset();
    detail_.clear();
    begin_ = Clock::now();
    Draw();
  }
  try {
    ticker_ = std::make_unique<Thread>([this] { Tick(); });
  } catch (const std::system_error&) {
    // Without a thread the line is renewed by what the run reports.
  }
  return true;
}

void ProgressLine::Stop() {
  {
    const std::lock_guard lock(mutex_);
    isRunning_ = false;
    Erase();
  }
  stopped_.notify_all();
  ticker_.reset();
}

void ProgressLine::SetPercent(std::int32_t percent) {
  if (out_ == nullptr) return;
  const std::lock_guard lock(mutex_);
  percent_ = std::clamp(percent, 0, 100);
  Draw();
}

void ProgressLine::SetDetail(std::string_view detail) {
  if (out_ == nullptr) return;
  const std::lock_guard lock(mutex_);
  detail_ = detail;
}

void ProgressLine::Tick() {
  std::unique_lock lock(mutex_);
  while (!stopped_.wait_for(lock, kRenewal, [this] { return !isRunning_; })) Draw();
}

void ProgressLine::Draw() {
  const auto time = Clock::now() - begin_;
  if (!isRunning_ || time < delay_ || (mayDraw_ != nullptr && !mayDraw_())) return;
  auto text = std::string(kErase) + what_;
  if (percent_) text += "  " + std::to_string(*percent_) + " %";
  text += "  " + TimeText(std::chrono::duration_cast<std::chrono::seconds>(time));
  if (!detail_.empty()) text += "  " + detail_;
  *out_ << text << std::flush;  // as a whole
  isDrawn_ = true;
}

void ProgressLine::Erase() {
  if (isDrawn_) *out_ << kErase << std::flush;
  isDrawn_ = false;
}

}  // namespace Morvu
