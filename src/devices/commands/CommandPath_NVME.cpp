#include "devices/commands/CommandPath_NVME.h"

#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "frame/Logger.h"

namespace Morvu::DeviceManagement {
namespace {

static_assert(sizeof(nvme_admin_cmd) == sizeof(NvmeAdminCommand));
static_assert(offsetof(nvme_admin_cmd, addr) == 24 && offsetof(nvme_admin_cmd, result) == 68);
static_assert(sizeof(nvme_user_io) == (sizeof(void*) == 4 ? 44 : 48));
static_assert(NVME_IOCTL_ADMIN_CMD == 0xC0484E41);
static_assert(NVME_IOCTL_SUBMIT_IO == (sizeof(void*) == 4 ? 0x402C4E42 : 0x40304E42));

constexpr std::uint8_t kIdentify = 0x06;
constexpr std::uint32_t kIdentifyController = 1;
constexpr std::size_t kIdentifySize = 4096;
constexpr std::uint32_t kStatusMask = 0x7FF;
constexpr int kStatusShift = 17;

std::uint64_t Address(ByteSpan data) { return reinterpret_cast<std::uintptr_t>(data.data()); }

// Copies whole dwords of a record to dwords of an image.
void CopyDwords(ByteView record, std::size_t from, ByteSpan image, std::size_t to,
                std::size_t count) {
  std::ranges::copy(record.subspan(from * 4, count * 4), image.begin() + to * 4);
}

}  // namespace

CommandPath_NVME::CommandPath_NVME(std::string devicePath)
    : CommandPath(std::move(devicePath), Transport::Nvme, "NVMe", 60) {}

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
  return ioctl(handle_, NVME_IOCTL_ADMIN_CMD, &command) == 0;
}

StatusCode CommandPath_NVME::SendOpcodeCore(ByteSpan command, ByteSpan reply, std::uint8_t,
                                            ByteSpan data, std::uintptr_t) {
  NvmeCompletion completion;
  const ByteSpan image(reinterpret_cast<std::uint8_t*>(&completion), sizeof completion);
  StatusCode result = Status::NotRun;
  if (command.size() == sizeof(nvme_admin_cmd)) {
    result = SendAdmin(command, data, image);
  } else if (command.size() == sizeof(nvme_user_io)) {
    result = SendIo(command, data, image);
  } else {
    return Status::BufferTooSmall;
  }
  receivedBuffer_.fill(0);
  std::ranges::copy(image, receivedBuffer_.begin());
  std::copy_n(image.begin(), std::min(image.size(), reply.size()), reply.begin());
  return result;
}

StatusCode CommandPath_NVME::SendAdmin(ByteSpan command, ByteSpan data, ByteSpan completion) {
  WriteLittle64(Address(data), offsetof(nvme_admin_cmd, addr), command);
  WriteLittle32(static_cast<std::uint32_t>(data.size()), offsetof(nvme_admin_cmd, data_len),
                command);
  // The submission queue entry (NVMe 1.0, figure 6), as far as the record has it.
  sentBuffer_.fill(0);
  CopyDwords(command, 0, sentBuffer_, 0, 8);
  WriteLittle16(0, 2, sentBuffer_);
  CopyDwords(command, 10, sentBuffer_, 10, 6);

  nvme_admin_cmd record;
  std::memcpy(&record, command.data(), sizeof record);
  const int result = ioctl(handle_, NVME_IOCTL_ADMIN_CMD, &record);
  std::memcpy(command.data(), &record, sizeof record);
  return Finish(result, record.result, record.rsvd1, completion);
}

StatusCode CommandPath_NVME::SendIo(ByteSpan command, ByteSpan data, ByteSpan completion) {
  WriteLittle64(Address(data), offsetof(nvme_user_io, addr), command);
  sentBuffer_.fill(0);
  CopyDwords(command, 0, sentBuffer_, 0, 1);
  WriteLittle16(0, 2, sentBuffer_);
  CopyDwords(command, 2, sentBuffer_, 4, 4);

  nvme_user_io record;
  std::memcpy(&record, command.data(), sizeof record);
  return Finish(ioctl(handle_, NVME_IOCTL_SUBMIT_IO, &record), 0, 0, completion);
}

StatusCode CommandPath_NVME::Finish(int result, std::uint32_t dword0, std::uint32_t dword1,
                                    ByteSpan completion) {
  lastOsError_ = std::min(result, 0);
  if (result < 0) {
    MORVU_LOG(kLogError, "SendOpcodeCore", "ioctl failed: " + std::to_string(result));
  }
  WriteLittle32(dword0, 0, completion);
  WriteLittle32(dword1, 4, completion);
  WriteLittle32((static_cast<std::uint32_t>(result) & kStatusMask) << kStatusShift, 12, completion);
  return StatusCode::FromValue(result);
}

}  // namespace Morvu::DeviceManagement
