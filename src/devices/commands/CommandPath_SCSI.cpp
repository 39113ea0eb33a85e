#include "devices/commands/CommandPath_SCSI.h"

#include <scsi/sg.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>

#include "devices/commands/ScsiCommands.h"
#include "frame/BlockedSignals.h"
#include "frame/Logger.h"
#include "frame/status/Commands.h"

namespace Morvu::DeviceManagement {
namespace {

static_assert(SG_IO == 0x2285);
static_assert(sizeof(sg_io_hdr) == (sizeof(void*) == 4 ? 64 : 88));

constexpr std::chrono::seconds kScsiTimeout{5};

// Statuses with which a device has carried a command out (SAM-5, table 40); with any
// other but CHECK CONDITION it has not begun it.
constexpr std::uint8_t kGood = 0x00;
constexpr std::uint8_t kConditionMet = 0x04;

constexpr std::uint8_t kDriverSense = 0x08;  // the driver got sense data: no failure by itself

int Direction(const Command& command) {
  if ((command.flags & kNoData) || command.data.empty()) return SG_DXFER_NONE;
  if (command.flags & kWrite) return SG_DXFER_TO_DEV;
  return command.flags & kRead ? SG_DXFER_FROM_DEV : SG_DXFER_NONE;
}

// The command did not reach the device, or its end was not seen: a time-out, a
// reset, a node whose device is gone. The data may be an earlier command's.
bool TransportFailed(const SgReply& reply) {
  const auto driver = reply.driverStatus & 0x0F;
  return reply.hostStatus != 0 || (driver != 0 && driver != kDriverSense);
}

}  // namespace

CommandPath_SCSI::CommandPath_SCSI(std::string devicePath)
    : CommandPath_SCSI(std::move(devicePath), Transport::Scsi, "SCSI") {}

CommandPath_SCSI::CommandPath_SCSI(std::string devicePath, std::string_view protocol,
                                   std::string_view description)
    : CommandPath(std::move(devicePath), protocol, description, kScsiTimeout) {}

std::unique_ptr<CommandPath> CommandPath_SCSI::Clone() const {
  auto clone = std::make_unique<CommandPath_SCSI>(devicePath_);
  CopyTo(*clone);
  return clone;
}

bool CommandPath_SCSI::TestDevice() {
  std::array<std::uint8_t, 512> data{};
  const auto cdb = EncodeScsi(ScsiRow::RequestSense, {});
  (void)SendOpcode({.record = cdb.View(), .flags = kRead, .data = data});
  const auto& outcome = GetOutcome();
  // Fixed-format sense, whatever it tells, comes from a SCSI device.
  if (outcome.reached == Reached::Done) return !outcome.sense.IsThere() || outcome.sense.IsFixed();
  const bool isAnswer = outcome.reached == Reached::Device || outcome.reached == Reached::Layer;
  return isAnswer && outcome.sense.format == Sense::kFixed;
}

Outcome CommandPath_SCSI::SendOpcodeCore(const Command& command) {
  sentBuffer_.fill(0);
  std::copy_n(command.record.begin(), std::min(command.record.size(), kImageSize),
              sentBuffer_.begin());
  const auto reply = Exchange(command.record, command);
  auto outcome = BeginOutcome(reply, CommandKind::Scsi);
  if (outcome.reached != Reached::Done) return outcome;
  if (outcome.sense.TellsFailure()) {
    outcome.reached = outcome.sense.IsLayersRefusal() ? Reached::Layer : Reached::Device;
  }
  CheckLength(command, outcome);
  return outcome;
}

SgReply CommandPath_SCSI::Exchange(ByteView cdb, const Command& command) {
  const auto reply = CallDevice(cdb, command);
  receivedBuffer_.fill(0);
  std::ranges::copy(reply.GetSense(), receivedBuffer_.begin());
  return reply;
}

SgReply CommandPath_SCSI::CallDevice(ByteView cdb, const Command& command) {
  SgReply reply;
  sg_io_hdr header{};
  header.interface_id = 'S';
  header.dxfer_direction = Direction(command);
  header.cmd_len = static_cast<unsigned char>(cdb.size());
  header.mx_sb_len = static_cast<unsigned char>(reply.buffer.size());
  header.dxfer_len = static_cast<unsigned>(command.data.size());
  header.dxferp = command.data.empty() ? nullptr : command.data.data();
  header.cmdp = const_cast<unsigned char*>(cdb.data());  // the kernel only reads it
  header.sbp = reply.buffer.data();
  header.timeout = GetTimeoutMs(command);
  {
    const BlockedSignals blocked;
    if (ioctl(handle_, SG_IO, &header) < 0) reply.osError = errno;
  }
  if (reply.osError != 0) {
    MORVU_LOG(kLogError, "SendOpcodeCore", "ioctl failed: " + std::to_string(-reply.osError));
    return reply;
  }
  reply.status = header.status;
  reply.hostStatus = header.host_status;
  reply.driverStatus = header.driver_status;
  reply.senseLength = std::min<std::size_t>(header.sb_len_wr, reply.buffer.size());
  if (header.resid >= 0 && static_cast<unsigned>(header.resid) <= header.dxfer_len) {
    reply.residual = static_cast<std::uint32_t>(header.resid);
  }
  return reply;
}

Outcome CommandPath_SCSI::BeginOutcome(const SgReply& reply, CommandKind kind) {
  Outcome outcome;
  outcome.kind = kind;
  outcome.osError = reply.osError;
  outcome.residual = reply.residual;
  outcome.sense = ReadSense(reply.GetSense());
  if (reply.osError != 0) {
    outcome.reached = Reached::CallFailed;
  } else if (TransportFailed(reply)) {
    outcome.reached = Reached::Transport;
  } else if (reply.status == kCheckCondition) {
    // A device that does not say why has refused all the same.
    outcome.reached = outcome.sense.IsThere() ? Reached::Done : Reached::Device;
  } else {
    const bool isCarriedOut = reply.status == kGood || reply.status == kConditionMet;
    outcome.reached = isCarriedOut ? Reached::Done : Reached::Transport;
  }
  return outcome;
}

void CommandPath_SCSI::CheckLength(const Command& command, Outcome& outcome) {
  if (outcome.reached != Reached::Done || !outcome.residual) return;
  const auto moved = command.data.size() - *outcome.residual;
  if ((command.flags & kRead) && moved < command.least) outcome.reached = Reached::Short;
}

}  // namespace Morvu::DeviceManagement
