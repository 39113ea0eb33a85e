#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "frame/StatusCode.h"

namespace Morvu {

// How a Feature reaches whoever runs it. Called on the Feature's thread.
class ProgressReporter {
 public:
  virtual ~ProgressReporter() = default;
  virtual void SetPercent(std::int32_t percent) = 0;
  // What a person sees beside the percent, such as a rate.
  virtual void SetDetail(std::string_view) {}
  virtual void SetState(std::int32_t state) = 0;
  virtual void SetErrorCode(StatusCode code) = 0;
  virtual bool IsCancelRequested() = 0;
};

// Hears nothing and never asks to stop.
class SilentReporter : public ProgressReporter {
 public:
  void SetPercent(std::int32_t) override {}
  void SetState(std::int32_t) override {}
  void SetErrorCode(StatusCode) override {}
  bool IsCancelRequested() override { return false; }
};

// The reporter of a run that nobody watches. It has no state: any thread may use it.
inline ProgressReporter& NoReporter() {
  static auto& reporter = *new SilentReporter;  // jobs use it while the process ends
  return reporter;
}

// The reporter of a run inside another: it hands on percent and the request to stop. State and
// code are those of the outermost run, whose end they tell.
class InnerReporter : public SilentReporter {
 public:
  // Of a run that is one of several equal parts, counted from 0, the percent is that of the
  // whole. The outer reporter must outlive this one.
  explicit InnerReporter(ProgressReporter& outer, std::size_t part = 0, std::size_t parts = 1)
      : outer_(outer),
        part_(static_cast<std::int32_t>(part)),
        parts_(static_cast<std::int32_t>(parts)) {}

  // What is reported from here on is of this part.
  void Begin(std::size_t part, std::size_t parts) {
    part_ = static_cast<std::int32_t>(part);
    parts_ = static_cast<std::int32_t>(parts);
  }

  void SetPercent(std::int32_t percent) override {
    outer_.SetPercent((100 * part_ + percent) / parts_);
  }
  void SetDetail(std::string_view detail) override { outer_.SetDetail(detail); }
  bool IsCancelRequested() override { return outer_.IsCancelRequested(); }

 private:
  ProgressReporter& outer_;
  std::int32_t part_;
  std::int32_t parts_;
};

}  // namespace Morvu
