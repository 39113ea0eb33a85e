// Logs that are read as they are: a page of the general purpose log, the Event Log and the NLog.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/Bytes.h"
#include "messaging/features/Feature.h"
#include "parsers/logs/Log.h"
#include "parsers/logs/NlogFilter.h"
#include "parsers/logs/SendReadLog.h"

namespace Morvu::ReadLog {

// `sectors` blocks of 512 bytes of any log, from a page on. A drive whose log does not go on by
// itself gives no more than 255 blocks that follow each other: every command names the first
// page. Of an NVMe drive the vendor logs 0 to 3 are read, from their beginning.
class ReadLog : public Function {
 public:
  ReadLog(DeviceManagement::Device* device, std::uint8_t address, std::uint16_t page,
          std::uint16_t sectors, ProgressReporter& reporter = NoReporter());

  void Initialize() override;
  std::int32_t Execute() override;

  // What was read; empty but after a good run, and after an NLog that could not be filtered (254).
  ByteView GetData() const { return buffer_; }

 protected:
  ReadLog(DeviceManagement::Device* device, ProgressReporter& reporter);

  // What a kind of log adds to the refusals: the code, and its log where it has one.
  struct Choice {
    StatusCode code;
    Log log;
  };
  using LogChooser = Log (*)(const DeviceManagement::Device& device);
  // The vendor's log of an ATA drive, or of an NVMe drive, of the products that have one.
  Choice ChooseVendorLog(LogChooser ataLog, const Log& nvmeLog);
  StatusCode FindRefusal();

  // Reads the log into the buffer. The percents are the reporter's; false when the run ended.
  bool Read(ByteSpan buffer, const LogPart& part, ProgressReporter& reporter);
  // The beginning of a log, whose header tells how much there is; no percents.
  bool ReadBeginning();
  // The end of a run that has to give up what it has read.
  bool Fail(std::string_view text, StatusCode code);
  bool Pass();

  Log log_;
  std::vector<std::uint8_t> buffer_;
  std::unique_ptr<SendReadLog> sender_;  // of the last read

 private:
  struct Rules;

  LogPart part_;
};

class ReadLog_EventLog : public ReadLog {
 public:
  explicit ReadLog_EventLog(DeviceManagement::Device* device,
                            ProgressReporter& reporter = NoReporter());
  void Initialize() override;
  std::int32_t Execute() override;

 private:
  bool ReadNvme();
};

// Entries that serve the maker alone are left out.
class ReadLog_Nlog : public ReadLog {
 public:
  explicit ReadLog_Nlog(DeviceManagement::Device* device,
                        ProgressReporter& reporter = NoReporter());
  void Initialize() override;
  std::int32_t Execute() override;

 private:
  bool ReadAta();
  bool ReadNvme();
  bool End(NlogFilter outcome);
};

}  // namespace Morvu::ReadLog
