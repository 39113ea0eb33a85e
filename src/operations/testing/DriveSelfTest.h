// The drive's own SMART self-tests (ATA8-ACS, 7.52.5).
#pragma once

#include <cstdint>
#include <string_view>

#include "messaging/ResultTable.h"
#include "messaging/features/Face.h"
#include "messaging/features/Feature.h"

namespace Morvu {

enum class SelfTestMode : std::int32_t {
  Offline = 0,         // started, and left to the drive
  Captive = 1,         // the command ends when the test does
  CaptiveOffline = 2,  // started off-line, and watched to its end
};

class DriveSelfTest : public Function {
 public:
  // `subcommand` is the LBA low value of SMART EXECUTE OFF-LINE IMMEDIATE. With 0 and
  // without a run it serves the status.
  DriveSelfTest(DeviceManagement::Device* device, std::uint8_t subcommand, SelfTestMode mode,
                ProgressReporter& reporter);

  void Initialize() override;
  std::int32_t Execute() override;

  // The self-test execution status byte: the state in bits 7:4, what is left in tens
  // of percent in bits 3:0. 0xFF, and code 23, when it cannot be read.
  std::uint8_t GetSelfTestStatus();
  // Adds lines that tell of the status, and sets the percent; a failed test leaves a warning.
  // True when no test runs.
  bool ReportSelfTestStatus(ResultTable& table);

  // `test` is "short", "extended", "conveyance" or "status"; `mode` is "offline",
  // "captive", "captiveOffline" or empty.
  static StatusCode Runner(DeviceManagement::Device& device, std::string_view test,
                           std::string_view mode, Face& face);

 protected:
  // The subcommand of a test, which has one of its own in captive mode.
  static constexpr std::uint8_t InMode(std::uint8_t test, SelfTestMode mode) {
    return mode == SelfTestMode::Captive ? test | 0x80 : test;
  }

 private:
  struct Rules;

  bool RunTest();
  // Waits for the end of a test that runs off-line. False when it was canceled.
  bool Watch();
  bool CheckResult();
  bool Fail(StatusCode code);

  std::uint8_t subcommand_;
  SelfTestMode mode_;
};

class ShortSelfTest : public DriveSelfTest {
 public:
  ShortSelfTest(DeviceManagement::Device* device, SelfTestMode mode, ProgressReporter& reporter)
      : DriveSelfTest(device, InMode(0x01, mode), mode, reporter) {}
};

class ExtendedSelfTest : public DriveSelfTest {
 public:
  ExtendedSelfTest(DeviceManagement::Device* device, SelfTestMode mode, ProgressReporter& reporter)
      : DriveSelfTest(device, InMode(0x02, mode), mode, reporter) {}
};

class ConveyanceSelfTest : public DriveSelfTest {
 public:
  ConveyanceSelfTest(DeviceManagement::Device* device, SelfTestMode mode,
                     ProgressReporter& reporter)
      : DriveSelfTest(device, InMode(0x03, mode), mode, reporter) {}
};

}  // namespace Morvu
