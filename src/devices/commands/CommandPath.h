// A command path: one open device node and the transport that it speaks.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "devices/commands/CommandRecords.h"
#include "devices/commands/Outcome.h"
#include "frame/Bytes.h"
#include "frame/StatusCode.h"

namespace Morvu::DeviceManagement {

class PropertyList;
class CommandQueue;
class TransferDisk;
struct TransferNotification;

// The names that a path gives its transport; "ATA", "NVMe", "SCSI" and "ZMV" select
// a command set.
namespace Transport {
inline constexpr std::string_view None = "None";
inline constexpr std::string_view Ata = "ATA";
inline constexpr std::string_view Nvme = "NVMe";
inline constexpr std::string_view Scsi = "SCSI";
inline constexpr std::string_view Smart = "SMART";
inline constexpr std::string_view Zmv = "ZMV";
inline constexpr std::string_view Tcp = "TCP";
inline constexpr std::string_view Mmio = "MMIO";
inline constexpr std::string_view FmiIopt = "FMI_IOPT";
}  // namespace Transport

// Base of the paths. A path is open from its construction on, unless the node
// could not be opened. It has no lock and one command in flight at a time.
class CommandPath {
 public:
  static constexpr std::size_t kImageSize = 64;
  using Image = std::array<std::uint8_t, kImageSize>;

  virtual ~CommandPath();
  CommandPath(const CommandPath&) = delete;
  CommandPath& operator=(const CommandPath&) = delete;

  virtual StatusCode Open();   // 0 or 4
  virtual StatusCode Close();  // 0 or 135

  // Sends one command, once, whatever interrupts it, and logs what went out and came
  // back. GetOutcome tells what became of it, the code is ToStatus of that.
  StatusCode SendOpcode(const Command& command);
  // Of the last command.
  const Outcome& GetOutcome() const { return outcome_; }

  // Whether a device of this path's kind answers.
  virtual bool TestDevice() = 0;
  // A new path of the same class on the same node, opened, with the default time-out.
  virtual std::unique_ptr<CommandPath> Clone() const = 0;

  // From here on commands go by a copy of this descriptor, which is open already, whatever
  // the node's name leads to by now. False when there is none to be had.
  [[nodiscard]] bool Adopt(int handle);

  // Opens the disk behind the node for transfers, which is looked up anew; `serialNumber` is
  // the drive's that is meant. As TransferDisk has it, and 4 while the path is closed.
  StatusCode OpenDisk(std::string_view serialNumber);
  // The disk that is open for reading; null while none is.
  const TransferDisk* GetDisk() const { return disk_.get(); }
  // Moves bytes of the disk, which is opened if it is not: those from `offset` on, by the
  // direction in `flags` (CommandFlags). Codes as TransferFile has them.
  StatusCode SendFile(std::uint64_t offset, std::uint8_t flags, ByteSpan data);
  // The same without waiting for it: 0 once it is queued, and the notification's callbacks tell
  // the end; of a read the data stand in the notification alone. Without workers it runs at once
  // and calls nobody; 129 where no worker has a slot.
  StatusCode SendFile(std::uint64_t offset, std::uint8_t flags, ByteSpan data,
                      const TransferNotification& notification);
  // The workers of this path's transfers, as CommandQueue has them.
  bool CreateWorkers(std::uint32_t total, std::uint32_t count);
  void StopWorkers();
  bool WorkersIdle() const;

  virtual bool IsOpen() const { return handle_ >= 0; }
  int GetHandle() const { return handle_; }  // -1 while closed

  const std::string& GetDevicePath() const { return devicePath_; }
  const std::string& GetProtocol() const { return protocol_; }
  const std::string& GetDescription() const { return description_; }

  // For commands that bring no time-out of their own.
  std::chrono::seconds GetTimeout() const { return timeout_; }
  void SetTimeout(std::chrono::seconds timeout) { timeout_ = timeout; }
  // -errno of the last command's call, 0 when it did not fail.
  std::int32_t GetLastOsError() const { return -outcome_.osError; }
  // Of the last ATA command whose registers came back.
  bool GetDeviceFault() const { return deviceFault_; }
  void SetDeviceFault(bool fault) { deviceFault_ = fault; }

  // Images of the last command and of the last reply, for the log and for hosts: no
  // code takes facts from them.
  const Image& GetSentBuffer() const { return sentBuffer_; }
  const Image& GetReceivedBuffer() const { return receivedBuffer_; }
  // The 64 bytes as decimal numbers joined by "~".
  std::string GetSentAsText() const;
  std::string GetReceivedAsText() const;

 protected:
  CommandPath(std::string devicePath, std::string_view protocol, std::string_view description,
              std::chrono::seconds timeout);

  // The transport. Fills the images as well.
  virtual Outcome SendOpcodeCore(const Command& command) = 0;

  // The command's own time-out or the path's, in milliseconds, as much as the kernel's
  // field holds.
  std::uint32_t GetTimeoutMs(const Command& command) const;
  // Copies protocol, description and device fault to a fresh clone.
  void CopyTo(CommandPath& clone) const;
  // Makes the images, and the device fault, of an ATA command and what is known of its answer.
  void KeepAtaImages(ByteView record, const AtaAnswer& answer);

  std::string devicePath_;
  int handle_ = -1;
  std::string protocol_;
  std::string description_;
  Image sentBuffer_{};
  Image receivedBuffer_{};
  bool deviceFault_ = false;
  std::chrono::seconds timeout_;

 private:
  void LogCommand() const;

  Outcome outcome_;
  StatusCode OpenFor(std::uint8_t flags, std::shared_ptr<const TransferDisk>& disk);

  std::shared_ptr<const TransferDisk> disk_;  // open for reading
  std::string diskSerial_;                    // of the drive that is meant
  std::unique_ptr<CommandQueue> queue_;       // of transfers; null before there are workers
};

// A path to a node whose transport is not known: nothing can be sent (21).
class CommandPath_Plain final : public CommandPath {
 public:
  explicit CommandPath_Plain(std::string devicePath);

  bool TestDevice() override { return false; }
  std::unique_ptr<CommandPath> Clone() const override;

 protected:
  Outcome SendOpcodeCore(const Command& command) override;
};

// The path for a device's "DevicePath": the first transport of the table that answers,
// null when none does.
std::unique_ptr<CommandPath> CreateCommandPath(const PropertyList& properties);
// A plain path on the node with `generic`, else what CreateCommandPath gives.
std::unique_ptr<CommandPath> CreateBasePath(const PropertyList& properties, bool generic);

// 16 bytes a line: offset, hexadecimal bytes, the bytes as text.
std::string HexDump(ByteView bytes);

// Puts a path's time-out back when it goes out of scope: for a row of commands that the
// drive may be slow with. A single command brings its own.
class TimeoutGuard {
 public:
  TimeoutGuard(CommandPath& path, std::chrono::seconds timeout)
      : path_(path), old_(path.GetTimeout()) {
    path_.SetTimeout(timeout);
  }
  ~TimeoutGuard() { path_.SetTimeout(old_); }
  TimeoutGuard(const TimeoutGuard&) = delete;
  TimeoutGuard& operator=(const TimeoutGuard&) = delete;

 private:
  CommandPath& path_;
  std::chrono::seconds old_;
};

}  // namespace Morvu::DeviceManagement
