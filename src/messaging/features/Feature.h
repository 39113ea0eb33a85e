// Feature: one operation on one device, driven by a job or by the command line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "devices/model/Device.h"
#include "frame/StatusCode.h"
#include "messaging/ProgressReporter.h"

namespace Morvu {

namespace DeviceManagement {
class Adapter;
class CommandSet_ATA;
class CommandSet_NVME;
class CommandSet_SCSI;
}  // namespace DeviceManagement

// The values of Feature state.
namespace FeatureState {
inline constexpr std::int32_t Finished = 0;
inline constexpr std::int32_t Failed = 1;
inline constexpr std::int32_t Running = 2;
}  // namespace FeatureState

// The life of a Feature: construct it (the constructor of the concrete class calls
// its Initialize last, which leaves code 1 or the reason of a refusal); on code 1
// call Execute; read GetErrorCode. It runs once, on one thread, and owns neither the
// device nor the reporter.
class Feature {
 public:
  virtual ~Feature() = default;
  Feature(const Feature&) = delete;
  Feature& operator=(const Feature&) = delete;

  virtual std::int32_t Execute() = 0;
  virtual void Initialize() = 0;

  // A setter that changes nothing reports nothing.
  void SetErrorCode(StatusCode code);
  void SetState(std::int32_t state);
  void SetPercent(std::int32_t percent);
  void SetDetail(std::string_view detail) { reporter_.SetDetail(detail); }
  StatusCode GetErrorCode() const { return errorCode_; }
  std::int32_t GetState() const { return state_; }
  std::int32_t GetPercent() const { return percent_; }
  bool IsCancelRequested() const { return reporter_.IsCancelRequested(); }
  DeviceManagement::Device* GetDevice() const { return device_; }

  // What the code does not tell of the run. Whoever had it run passes it on to a Face.
  struct Remark {
    bool isWarning;
    std::string text;
  };
  const std::vector<Remark>& GetRemarks() const { return remarks_; }

 protected:
  // The device may be null.
  Feature(DeviceManagement::Device* device, ProgressReporter& reporter);

  // The beginning of every Execute: logs under its caller's file and line, connects, and on failure
  // sets code 4 and state 1. False when the run ends here.
  [[nodiscard]] bool BeginExecute(const char* file = __builtin_FILE(), int line = __builtin_LINE());
  // The end of a run: code, and the state that goes with it.
  void End(StatusCode code);
  // The end of every Initialize: sets the code and logs it, likewise.
  void EndInitialize(StatusCode code, const char* file = __builtin_FILE(),
                     int line = __builtin_LINE());

  void Tell(Remark remark) { remarks_.push_back(std::move(remark)); }
  void Note(std::string text) { Tell({false, std::move(text)}); }
  void Warn(std::string text) { Tell({true, std::move(text)}); }

  // Takes over code, state, percent and remarks of the Feature that did the work.
  void TakeResult(const Feature& other);
  // For the Features that this one runs: their percent is its own, their ends are not.
  ProgressReporter& GetReporter() { return innerReporter_; }

  DeviceManagement::Device* device_;
  DeviceManagement::Drive* drive_ = nullptr;
  DeviceManagement::Adapter* adapter_ = nullptr;
  DeviceManagement::CommandSet_ATA* ata_ = nullptr;
  DeviceManagement::CommandSet_SCSI* scsi_ = nullptr;
  DeviceManagement::CommandSet* smart_ = nullptr;
  DeviceManagement::CommandSet_NVME* nvme_ = nullptr;
  DeviceManagement::CommandSet* tcg_ = nullptr;
  DeviceManagement::DeviceKind deviceType_ = DeviceManagement::DeviceKind::Plain;
  std::string osName_;
  std::string statusText_;

 private:
  ProgressReporter& reporter_;
  InnerReporter innerReporter_;
  StatusCode errorCode_ = Status::NotRun;
  std::int32_t state_ = FeatureState::Running;
  std::int32_t percent_ = 0;
  std::vector<Remark> remarks_;
};

// An operation that does something to a drive.
class Function : public Feature {
 protected:
  using Feature::Feature;

  // ATA standby under a time-out of 20 seconds. False without an ATA command set,
  // and when the drive refuses.
  bool StandbyImmediate();
};

}  // namespace Morvu
