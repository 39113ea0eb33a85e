#include "devices/commands/CommandPath_SCSI.h"

#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "devices/commands/SenseData.h"
#include "frame/Logger.h"
#include "frame/status/Commands.h"

namespace Morvu::DeviceManagement {
namespace {

static_assert(SG_IO == 0x2285);
static_assert(sizeof(sg_io_hdr) == (sizeof(void*) == 4 ? 64 : 88));

// Values of masked_status (SAM-5 status shifted right by one) that are failures.
constexpr std::uint8_t kFailedStatuses[] = {
    4,   // BUSY
    12,  // RESERVATION CONFLICT
    17,  // COMMAND TERMINATED
    20,  // TASK SET FULL
};

constexpr std::uint8_t kDriverSense = 0x08;  // the driver got sense data: no failure by itself

constexpr std::array<std::uint8_t, 6> kRequestSenseCdb = {0x03, 0, 0, 0, 0xFF, 0};

int Direction(std::uint8_t flags) {
  if (flags & kNoData) return SG_DXFER_NONE;
  if (flags & kWrite) return SG_DXFER_TO_DEV;
  if (flags & kRead) return SG_DXFER_FROM_DEV;
  return 0;
}

// The command did not reach the device, or its end was not seen: a time-out, a
// reset, a node whose device is gone.
bool TransportFailed(const sg_io_hdr& header) {
  const auto driver = header.driver_status & 0x0F;
  return header.host_status != 0 || (driver != 0 && driver != kDriverSense);
}

}  // namespace

CommandPath_SCSI::CommandPath_SCSI(std::string devicePath)
    : CommandPath_SCSI(std::move(devicePath), Transport::Scsi, "SCSI") {}

CommandPath_SCSI::CommandPath_SCSI(std::string devicePath, std::string_view protocol,
                                   std::string_view description)
    : CommandPath(std::move(devicePath), protocol, description, 5) {}

std::unique_ptr<CommandPath> CommandPath_SCSI::Clone() const {
  auto clone = std::make_unique<CommandPath_SCSI>(devicePath_);
  CopyTo(*clone);
  return clone;
}

bool CommandPath_SCSI::TestDevice() {
  auto cdb = kRequestSenseCdb;
  SenseBuffer sense{};
  std::array<std::uint8_t, 512> data{};
  const auto result = SendOpcode(cdb, sense, kRead, data);
  // Fixed-format sense, whatever it tells, comes from a SCSI device.
  if (sense[0] == Sense::kFixed) return !result.IsSystemError();
  return result == Status::Completed && sense[0] == 0;
}

StatusCode CommandPath_SCSI::SendOpcodeCore(ByteSpan command, ByteSpan reply, std::uint8_t flags,
                                            ByteSpan data, std::uintptr_t asyncMarker) {
  sentBuffer_.fill(0);
  std::copy_n(command.begin(), std::min(command.size(), kImageSize), sentBuffer_.begin());
  const auto result = SendCdb(command, reply, flags, data, asyncMarker);
  if (result != Status::Completed) return result;
  // No data came with such sense, and what the buffer holds is older.
  return ReadSense(reply).TellsFailure() ? Status::ScsiCommandFailed : Status::Completed;
}

StatusCode CommandPath_SCSI::SendCdb(ByteSpan cdb, ByteSpan sense, std::uint8_t flags,
                                     ByteSpan data, std::uintptr_t asyncMarker) {
  sg_io_hdr header{};
  header.interface_id = 'S';
  header.dxfer_direction = Direction(flags);
  header.cmd_len = static_cast<unsigned char>(cdb.size());
  header.mx_sb_len = static_cast<unsigned char>(sense.size());
  header.dxfer_len = static_cast<unsigned>(data.size());
  header.dxferp = data.empty() ? nullptr : data.data();
  header.cmdp = cdb.data();
  header.sbp = sense.data();
  header.timeout = timeoutSeconds_ * 1000;
  if (!sense.empty()) sense[0] = 0;

  lastOsError_ = 0;
  const auto result = asyncMarker != 0 ? static_cast<int>(write(handle_, &header, sizeof header))
                                       : ioctl(handle_, SG_IO, &header);
  if (result < 0) {
    lastOsError_ = result;
    MORVU_LOG(kLogError, "SendOpcodeCore", "ioctl failed: " + std::to_string(result));
    return StatusCode::FromValue(result);
  }
  std::copy_n(sense.begin(), std::min(sense.size(), kImageSize), receivedBuffer_.begin());
  if (std::ranges::find(kFailedStatuses, header.masked_status) != std::end(kFailedStatuses)) {
    return Status::ScsiCommandFailed;
  }
  const auto told = ReadSense(sense);
  if (told.IsDescriptor() && told.IsIllegalRequest(kInvalidOpcode)) {
    return Status::ScsiCommandFailed;
  }
  return TransportFailed(header) ? Status::ScsiCommandFailed : Status::Completed;
}

}  // namespace Morvu::DeviceManagement
