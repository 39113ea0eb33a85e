// The log pages of NVMe drives: those of NVMe 1.0, 5.10.1, and the vendor's own.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "messaging/PageTable.h"
#include "messaging/features/Parser.h"
#include "parsers/nvme/NvmeHealth.h"

namespace Morvu {

// Reads one log page and tabulates it. 200 when it could not be read; a remark says why.
class NVMeLogParser : public Parser {
 public:
  void Initialize() override;
  std::int32_t Execute() override;
  std::string GetTitle() const override { return std::string(title_); }
  void WriteData(boost::property_tree::ptree&) const override {}

 protected:
  NVMeLogParser(DeviceManagement::Device* device, ProgressReporter& reporter, std::uint8_t logId,
                std::string_view title)
      : Parser(device, reporter), logId_(logId), title_(title) {
    NVMeLogParser::Initialize();
  }

  // Fills the table from the page.
  virtual void ParseData() = 0;
  // The page as a table of two columns, with a row for each field.
  void SetData(std::span<const PageField> fields, std::string_view first = "Field",
               std::string_view second = "Value");
  ByteView GetPage() const { return ByteView(logBuffer_).first(kPageSize); }

 private:
  struct Rules;
  static constexpr std::uint32_t kNumd = 128;  // counts from 0
  static constexpr std::size_t kPageSize = kNumd * 4;

  std::uint8_t logId_;
  std::string_view title_;
  std::array<std::uint8_t, (kNumd + 1) * 4> logBuffer_{};  // as long as the transfer
};

// A log whose page is rows of fields and nothing else is a class of its name and number.
class SMARTHealthLogParser : public NVMeLogParser {
 public:
  static constexpr std::uint8_t kLogId = NvmeHealth::kLogId;
  explicit SMARTHealthLogParser(DeviceManagement::Device* device,
                                ProgressReporter& reporter = NoReporter())
      : NVMeLogParser(device, reporter, kLogId, "SMART / Health Information (Log ID = 2)") {}

 private:
  void ParseData() override;
};

class FirmwareSlotInfoParser : public NVMeLogParser {
 public:
  static constexpr std::uint8_t kLogId = 3;
  explicit FirmwareSlotInfoParser(DeviceManagement::Device* device,
                                  ProgressReporter& reporter = NoReporter())
      : NVMeLogParser(device, reporter, kLogId, "Firmware Slot Information (Log ID = 3)") {}

 private:
  void ParseData() override;
};

class ErrorInfoParser : public NVMeLogParser {
 public:
  static constexpr std::uint8_t kLogId = 1;
  explicit ErrorInfoParser(DeviceManagement::Device* device,
                           ProgressReporter& reporter = NoReporter())
      : NVMeLogParser(device, reporter, kLogId, "Error Information (Log ID = 1)") {}

 private:
  // Entries that count no error are empty.
  void ParseData() override;
};

class EMStatisticsParser : public NVMeLogParser {
 public:
  static constexpr std::uint8_t kLogId = 196;
  explicit EMStatisticsParser(DeviceManagement::Device* device,
                              ProgressReporter& reporter = NoReporter())
      : NVMeLogParser(device, reporter, kLogId, "") {}

 private:
  void ParseData() override;
};

class TempStatisticsParser : public NVMeLogParser {
 public:
  static constexpr std::uint8_t kLogId = 197;
  explicit TempStatisticsParser(DeviceManagement::Device* device,
                                ProgressReporter& reporter = NoReporter())
      : NVMeLogParser(device, reporter, kLogId, "Temperature Statistics (Log ID = 197)") {}

  // In degrees Celsius; nothing when the log holds nothing, or what is no temperature.
  std::optional<std::int16_t> GetCurrentTemperature() const;

 private:
  void ParseData() override;
};

}  // namespace Morvu
