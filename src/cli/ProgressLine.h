// The line that shows a person that a long run goes on, and how far it is.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "frame/Thread.h"

namespace Morvu {

// One line of a terminal, "secure_erase  40 %  0:12:34  530 MB/s", which is renewed in place each
// second and is gone at the end of the run. Others who write to the terminal hold a Gap meanwhile.
// Without a stream it does nothing. SetPercent may be called by any thread; runs and gaps belong
// to one.
class ProgressLine {
 public:
  using Duration = std::chrono::milliseconds;
  static constexpr Duration kDelay{1000};

  ProgressLine() = default;
  // Draws on `out`, which is not owned, once a run has taken the delay, and only while
  // `mayDraw`, null for always, allows it.
  explicit ProgressLine(std::ostream& out, Duration delay = kDelay, bool (*mayDraw)() = nullptr);
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  // The line of nobody. It has no state: any thread may use it.
  static ProgressLine& None();

  // A run: what it does stands in front of its line. The outermost one counts.
  class Run {
   public:
    Run(ProgressLine& line, std::string_view what) : line_(line), isOwner_(line.Start(what)) {}
    ~Run() { Stop(); }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    void Stop();

   private:
    ProgressLine& line_;
    bool isOwner_;
  };

  // While it lives, the line is not there.
  class Gap {
   public:
    explicit Gap(ProgressLine& line);
    ~Gap() = default;
    Gap(const Gap&) = delete;
    Gap& operator=(const Gap&) = delete;
    // A run goes on: what is written must be out before the line is drawn again.
    bool IsInRun() const { return lock_.owns_lock() && line_.isRunning_; }

   private:
    ProgressLine& line_;
    std::unique_lock<std::recursive_mutex> lock_;
  };

  void SetPercent(std::int32_t percent);
  // Stands behind the percent from the next time that the line is drawn.
  void SetDetail(std::string_view detail);

 private:
  using Clock = std::chrono::steady_clock;

  bool Start(std::string_view what);
  void Stop();
  void Tick();
  // With the lock held.
  void Draw();
  void Erase();

  std::ostream* out_ = nullptr;
  Duration delay_{};
  bool (*mayDraw_)() = nullptr;

  std::recursive_mutex mutex_;  // guards what follows, and the terminal
  std::condition_variable_any stopped_;
  bool isRunning_ = false;
  bool isDrawn_ = false;
  std::string what_;
  std::optional<std::int32_t> percent_;  // nobody has told it yet
  std::string detail_;
  Clock::time_point begin_;

  std::unique_ptr<Thread> ticker_;  // while a run goes on
};

}  // namespace Morvu
