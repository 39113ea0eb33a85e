// A command path: one open device node and the transport that it speaks.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "devices/commands/CommandRecords.h"
#include "frame/Bytes.h"
#include "frame/StatusCode.h"

namespace Morvu::DeviceManagement {

class PropertyList;

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

  explicit CommandPath(std::string devicePath);
  virtual ~CommandPath();
  CommandPath(const CommandPath&) = delete;
  CommandPath& operator=(const CommandPath&) = delete;

  virtual StatusCode Open();   // 0 or 4
  virtual StatusCode Close();  // 0 or 135

  // Sends one command and logs what went out and came back. `command` is a task
  // file, a CDB or an NVMe record, and `reply` the previous task file, a sense
  // buffer or an NvmeCompletion; both are changed. `data` goes to the kernel as it
  // is. Returns a status, a positive NVMe status or the negative result of ioctl.
  StatusCode SendOpcode(ByteSpan command, ByteSpan reply, std::uint8_t flags, ByteSpan data,
                        std::uintptr_t asyncMarker = 0);

  // Whether a device of this path's kind answers.
  virtual bool TestDevice();
  virtual bool IsPathReady() const { return true; }
  virtual bool IsDirectPath() const { return true; }
  // A new path of the same class on the same node, opened, with the default time-out.
  virtual std::unique_ptr<CommandPath> Clone() const;

  bool IsOpen() const { return handle_ >= 0; }
  int GetHandle() const { return handle_; }  // -1 while closed

  const std::string& GetDevicePath() const { return devicePath_; }
  const std::string& GetProtocol() const { return protocol_; }
  const std::string& GetDescription() const { return description_; }
  void SetDevicePath(std::string path) { devicePath_ = std::move(path); }
  void SetProtocol(std::string_view protocol) { protocol_ = protocol; }
  void SetDescription(std::string_view description) { description_ = description; }

  std::uint32_t GetTimeout() const { return timeoutSeconds_; }
  void SetTimeout(std::uint32_t seconds) { timeoutSeconds_ = seconds; }
  std::int32_t GetLastOsError() const { return lastOsError_; }
  bool GetDeviceFault() const { return deviceFault_; }
  void SetDeviceFault(bool fault) { deviceFault_ = fault; }

  // Images of the last command and of the last reply.
  const Image& GetSentBuffer() const { return sentBuffer_; }
  const Image& GetReceivedBuffer() const { return receivedBuffer_; }
  // The last reply brought the upper halves of the ATA registers, or told that they
  // are zero.
  bool HasUpperRegisters() const { return hasUpperRegisters_; }
  // The 64 bytes as decimal numbers joined by "~".
  std::string GetSentAsText() const;
  std::string GetReceivedAsText() const;

 protected:
  CommandPath(std::string devicePath, std::string_view protocol, std::string_view description,
              std::uint32_t timeoutSeconds);

  // The transport. The base has none and returns 21.
  virtual StatusCode SendOpcodeCore(ByteSpan command, ByteSpan reply, std::uint8_t flags,
                                    ByteSpan data, std::uintptr_t asyncMarker);
  virtual StatusCode SendOpcodeSecond() { return Status::NotImplemented; }
  virtual StatusCode SendOpcodeThird() { return Status::NotImplemented; }

  // Copies protocol, description and device fault to a fresh clone.
  void CopyTo(CommandPath& clone) const;

  std::string devicePath_;
  int handle_ = -1;
  std::string protocol_;
  std::string description_;
  Image sentBuffer_{};
  Image receivedBuffer_{};
  std::int32_t lastOsError_ = 0;
  bool deviceFault_ = false;
  bool hasUpperRegisters_ = true;
  std::uint32_t timeoutSeconds_;

 private:
  void LogCommand() const;
};

// The path for a device's "DevicePath": ATA over SCSI if that answers, else SCSI,
// else null.
std::unique_ptr<CommandPath> CreateCommandPath(const PropertyList& properties);
// A plain path on the node with `generic`, else what CreateCommandPath gives.
std::unique_ptr<CommandPath> CreateBasePath(const PropertyList& properties, bool generic);

// 16 bytes a line: offset, hexadecimal bytes, the bytes as text.
std::string HexDump(ByteView bytes);

// Puts a path's time-out back when it goes out of scope.
class TimeoutGuard {
 public:
  TimeoutGuard(CommandPath& path, std::uint32_t seconds) : path_(path), old_(path.GetTimeout()) {
    path_.SetTimeout(seconds);
  }
  ~TimeoutGuard() { path_.SetTimeout(old_); }
  TimeoutGuard(const TimeoutGuard&) = delete;
  TimeoutGuard& operator=(const TimeoutGuard&) = delete;

 private:
  CommandPath& path_;
  std::uint32_t old_;
};

}  // namespace Morvu::DeviceManagement
