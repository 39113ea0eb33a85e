#include "devices/commands/CommandPath.h"

#include <fcntl.h>
#include <unistd.h>

#include "devices/commands/CommandPath_ATA_SCSI.h"
#include "devices/commands/CommandPath_NVME.h"
#include "devices/commands/CommandPath_SCSI.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/PropertyList.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Commands.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::uint32_t kDefaultTimeoutSeconds = 5;

std::string AsText(const CommandPath::Image& image) {
  std::string text;
  for (const auto byte : image) {
    if (!text.empty()) text += '~';
    text += std::to_string(byte);
  }
  return text;
}

bool IsNvmeNode(std::string_view path) {
  return path.substr(path.rfind('/') + 1).starts_with("nvme");
}

template <typename Path>
std::unique_ptr<CommandPath> TryPath(const std::string& devicePath) {
  auto path = std::make_unique<Path>(devicePath);
  if (!path->IsOpen() || !path->TestDevice()) return nullptr;
  return path;
}

}  // namespace

CommandPath::CommandPath(std::string devicePath)
    : CommandPath(std::move(devicePath), Transport::None, "None", kDefaultTimeoutSeconds) {}

CommandPath::CommandPath(std::string devicePath, std::string_view protocol,
                         std::string_view description, std::uint32_t timeoutSeconds)
    : devicePath_(std::move(devicePath)),
      protocol_(protocol),
      description_(description),
      timeoutSeconds_(timeoutSeconds) {
  (void)CommandPath::Open();
}

CommandPath::~CommandPath() { (void)CommandPath::Close(); }

StatusCode CommandPath::Open() {
  if (IsOpen()) (void)CommandPath::Close();
  // Read-only: commands pass all the same, and the close of a block node that was open for
  // writing makes udev read the disk anew. An empty path would be refused after a call.
  if (!devicePath_.empty()) handle_ = open(devicePath_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  return IsOpen() ? Status::Completed : Status::NoCommunication;
}

StatusCode CommandPath::Close() {
  if (!IsOpen()) return Status::Completed;
  const int result = close(handle_);
  handle_ = -1;
  return result < 0 ? Status::CloseFailed : Status::Completed;
}

StatusCode CommandPath::SendOpcode(ByteSpan command, ByteSpan reply, std::uint8_t flags,
                                   ByteSpan data, std::uintptr_t) {
  const auto result = SendOpcodeCore(command, reply, flags, data, 0);
  LogCommand();
  return result;
}

StatusCode CommandPath::SendOpcodeCore(ByteSpan, ByteSpan, std::uint8_t, ByteSpan, std::uintptr_t) {
  return Status::NotImplemented;
}

bool CommandPath::TestDevice() { return false; }

std::unique_ptr<CommandPath> CommandPath::Clone() const {
  auto clone = std::make_unique<CommandPath>(devicePath_);
  CopyTo(*clone);
  return clone;
}

void CommandPath::CopyTo(CommandPath& clone) const {
  clone.protocol_ = protocol_;
  clone.description_ = description_;
  clone.deviceFault_ = deviceFault_;
}

std::string CommandPath::GetSentAsText() const { return AsText(sentBuffer_); }

std::string CommandPath::GetReceivedAsText() const { return AsText(receivedBuffer_); }

void CommandPath::LogCommand() const {
  MORVU_LOG(kLogInfo, "LogCommand", "Sent:\n" + HexDump(sentBuffer_));
  MORVU_LOG(kLogInfo, "LogCommand", "Received:\n" + HexDump(receivedBuffer_));
}

std::string HexDump(ByteView bytes) {
  constexpr std::size_t kPerLine = 16;
  std::string dump;
  for (std::size_t offset = 0; offset < bytes.size(); offset += kPerLine) {
    const auto line = bytes.subspan(offset, std::min(kPerLine, bytes.size() - offset));
    if (offset != 0) dump += '\n';
    dump += ToHexNumber(offset, 4) + ": ";
    std::string text;
    for (std::size_t i = 0; i < line.size(); ++i) {
      dump += ToHex(line.subspan(i, 1)) + (i == 7 ? "  " : " ");
      text += line[i] >= 33 && line[i] <= 126 ? static_cast<char>(line[i]) : '.';
    }
    dump += " " + text;
  }
  return dump;
}

std::unique_ptr<CommandPath> CreateCommandPath(const PropertyList& properties) {
  const auto devicePath = properties.GetString(Properties::DevicePath);
  if (auto path = TryPath<CommandPath_ATA_SCSI>(devicePath)) return path;
  if (auto path = TryPath<CommandPath_SCSI>(devicePath)) return path;
  // Today's kernels refuse SG_IO on the nodes of NVMe drives.
  if (IsNvmeNode(devicePath)) return TryPath<CommandPath_NVME>(devicePath);
  return nullptr;
}

std::unique_ptr<CommandPath> CreateBasePath(const PropertyList& properties, bool generic) {
  if (!generic) return CreateCommandPath(properties);
  return std::make_unique<CommandPath>(properties.GetString(Properties::DevicePath));
}

}  // namespace Morvu::DeviceManagement
