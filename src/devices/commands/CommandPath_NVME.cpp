#include "devices/commands/CommandPath_NVME.h"

#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "frame/BlockedSignals.h"
#include "frame/Logger.h"

namespace Morvu::DeviceManagement {
namespace {

static_assert(sizeof(nvme_admin_cmd) == sizeof(NvmeAdminCommand));
static_assert(offsetof(nvme_admin_cmd, addr) == 24 && offsetof(nvme_admin_cmd, result) == 68);
static_assert(sizeof(nvme_user_io) == (sizeof(void*) == 4 ? 44 : 48));
static_assert(NVME_IOCTL_ADMIN_CMD == 0xC0484E41);
static_assert(NVME_IOCTL_SUBMIT_IO == (sizeof(void*) == 4 ? 0x402C4E42 : 0x40304E42));

constexpr std::chrono::seconds kNvmeTimeout{60};

constexpr std::uint8_t kIdentify = 0x06;
constexpr std::uint32_t kIdentifyController = 1;
constexpr std::size_t kIdentifySize = 4096;

// The status field of a completion as the kernel returns it (NVMe 1.0, figure 16).
constexpr std::uint32_t kStatusMask = 0x7FF;
constexpr std::uint32_t kMoreBit = 1 << 13;
constexpr std::uint32_t kDoNotRetryBit = 1 << 14;
constexpr int kStatusShift = 17;

std::uint64_t Address(ByteSpan data) {
  return data.empty() ? 0 : reinterpret_cast<std::uintptr_t>(data.data());
}

// Copies whole dwords of a record to dwords of an image.
void CopyDwords(ByteView record, std::size_t from, ByteSpan image, std::size_t to,
                std::size_t count) {
  std::ranges::copy(record.subspan(from * 4, count * 4), image.begin() + to * 4);
}

template <typename Record>
ByteView BytesOf(const Record& record) {
  return {reinterpret_cast<const std::uint8_t*>(&record), sizeof record};
}

}  // namespace

CommandPath_NVME::CommandPath_NVME(std::string devicePath)
    : CommandPath(std::move(devicePath), Transport::Nvme, "NVMe", kNvmeTimeout) {}

std::unique_ptr<CommandPath> CommandPath_NVME::Clone() const {
  auto clone = std::make_unique<CommandPath_NVME>(devicePath_);
  CopyTo(*clone);
  return clone;
}

bool CommandPath_NVME::TestDevice() {
  if (!IsOpen()) return false;
  std::array<std::uint8_t, kIdentifySize> data{};
  nvme_admin_cmd command{};
  command.opcode = kIdentify;
  command.cdw10 = kIdentifyController;
  command.addr = Address(data);
  command.data_len = kIdentifySize;
  const BlockedSignals blocked;
  return ioctl(handle_, NVME_IOCTL_ADMIN_CMD, &command) == 0;
}

std::optional<std::uint32_t> CommandPath_NVME::ReadNamespace() const {
  const int identifier = ioctl(handle_, NVME_IOCTL_ID, nullptr);
  if (identifier <= 0) return std::nullopt;
  return static_cast<std::uint32_t>(identifier);
}

Outcome CommandPath_NVME::SendOpcodeCore(const Command& command) {
  if (command.record.size() == sizeof(nvme_admin_cmd)) return SendAdmin(command);
  if (command.record.size() == sizeof(nvme_user_io)) return SendIo(command);
  return NotSent(Status::BufferTooSmall);
}

Outcome CommandPath_NVME::SendAdmin(const Command& command) {
  nvme_admin_cmd record;
  std::memcpy(&record, command.record.data(), sizeof record);
  record.addr = Address(command.data);
  record.data_len = static_cast<std::uint32_t>(command.data.size());
  if (command.timeout.count() != 0) record.timeout_ms = GetTimeoutMs(command);
  // The submission queue entry (NVMe 1.0, figure 6), as far as the record has it.
  const auto bytes = BytesOf(record);
  sentBuffer_.fill(0);
  CopyDwords(bytes, 0, sentBuffer_, 0, 8);
  WriteLittle16(0, 2, sentBuffer_);
  CopyDwords(bytes, 10, sentBuffer_, 10, 6);

  auto outcome = Call(NVME_IOCTL_ADMIN_CMD, &record);
  outcome.nvmeResult = record.result;
  KeepCompletion(outcome, record.rsvd1);
  return outcome;
}

Outcome CommandPath_NVME::SendIo(const Command& command) {
  nvme_user_io record;
  std::memcpy(&record, command.record.data(), sizeof record);
  record.addr = Address(command.data);
  const auto bytes = BytesOf(record);
  sentBuffer_.fill(0);
  CopyDwords(bytes, 0, sentBuffer_, 0, 1);
  WriteLittle16(0, 2, sentBuffer_);
  CopyDwords(bytes, 2, sentBuffer_, 4, 4);

  const auto outcome = Call(NVME_IOCTL_SUBMIT_IO, &record);
  KeepCompletion(outcome, 0);
  return outcome;
}

Outcome CommandPath_NVME::Call(unsigned long request, void* record) {
  Outcome outcome;
  outcome.kind = CommandKind::Nvme;
  int result = 0;
  {
    const BlockedSignals blocked;
    // EINTR also ends a command that the kernel gave up on: the controller may have
    // carried it out, so it is not sent again.
    result = ioctl(handle_, request, record);
    if (result < 0) outcome.osError = errno;
  }
  if (result < 0) {
    outcome.reached = Reached::CallFailed;
    MORVU_LOG(kLogError, "SendOpcodeCore", "ioctl failed: " + std::to_string(-outcome.osError));
    return outcome;
  }
  const auto status = static_cast<std::uint32_t>(result);
  outcome.reached = status == 0 ? Reached::Done : Reached::Device;
  outcome.nvmeStatus = static_cast<std::uint16_t>(status & kStatusMask);
  outcome.more = (status & kMoreBit) != 0;
  outcome.doNotRetry = (status & kDoNotRetryBit) != 0;
  return outcome;
}

void CommandPath_NVME::KeepCompletion(const Outcome& outcome, std::uint32_t dword1) {
  const bool isCallsFailure = outcome.reached == Reached::CallFailed;
  const auto status =
      isCallsFailure ? static_cast<std::uint32_t>(-outcome.osError) : outcome.nvmeStatus;
  receivedBuffer_.fill(0);
  WriteLittle32(outcome.nvmeResult, 0, receivedBuffer_);
  WriteLittle32(dword1, 4, receivedBuffer_);
  WriteLittle32((status & kStatusMask) << kStatusShift, 12, receivedBuffer_);
}

}  // namespace Morvu::DeviceManagement
