// The commands that read a log of a drive.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "frame/Bytes.h"
#include "messaging/features/Feature.h"
#include "parsers/logs/Log.h"

namespace Morvu::ReadLog {

// Which part of a log is read.
struct LogPart {
  std::uint16_t page = 0;    // ATA: in the register of every command
  std::uint32_t offset = 0;  // NVMe: in dwords
};

// Fills a buffer with the log, command by command. Between two of them it tells how far it is
// and asks whether it is to stop (2). The buffer lives longer than this.
class SendReadLog : public Function {
 public:
  // The one for the drive's transport; null for a drive without any that has logs.
  static std::unique_ptr<SendReadLog> Make(DeviceManagement::Device& device, const Log& log,
                                           const LogPart& part, ByteSpan buffer,
                                           ProgressReporter& reporter);

  void Initialize() override;
  // The blocks that the drive's directory of logs has for this one; none where it was not read
  // or does not list it.
  virtual std::optional<std::uint16_t> GetListedBlocks() const { return std::nullopt; }

 protected:
  SendReadLog(DeviceManagement::Device* device, const Log& log, const LogPart& part,
              ByteSpan buffer, ProgressReporter& reporter)
      : Function(device, reporter), log_(log), part_(part), buffer_(buffer) {}

  // Sends `send(done, piece)` for each piece of the buffer, of at most `most` bytes.
  template <typename Send>
  bool SendPieces(std::size_t most, std::string_view failure, Send&& send);
  bool Fail(std::string_view text, StatusCode code);

  Log log_;
  LogPart part_;
  ByteSpan buffer_;
};

// READ LOG EXT (ACS-3, 7.25). Whole blocks alone are read.
class SendReadLog_ATA : public SendReadLog {
 public:
  SendReadLog_ATA(DeviceManagement::Device* device, const Log& log, const LogPart& part,
                  ByteSpan buffer, ProgressReporter& reporter);
  std::int32_t Execute() override;
  std::optional<std::uint16_t> GetListedBlocks() const override;

 private:
  void ReadDirectory();
  bool SendDirectory();

  std::array<std::uint8_t, kBlock> directory_{};
  bool hasDirectory_ = false;
};

// The vendor's command for the logs 0 to 3. Whole dwords alone are read.
class SendReadLog_NVMe : public SendReadLog {
 public:
  SendReadLog_NVMe(DeviceManagement::Device* device, const Log& log, const LogPart& part,
                   ByteSpan buffer, ProgressReporter& reporter);
  std::int32_t Execute() override;
};

}  // namespace Morvu::ReadLog
