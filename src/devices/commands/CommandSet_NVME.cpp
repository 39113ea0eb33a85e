#include "devices/commands/CommandSet_NVME.h"

#include <algorithm>
#include <atomic>
#include <boost/thread/thread.hpp>
#include <cstring>

#include "devices/commands/CommandPath_NVME.h"
#include "devices/commands/NvmeOpcodes.h"
#include "devices/properties/PropertyList.h"
#include "frame/Logger.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

// The low `width` bits of a value, moved to bit `position`.
constexpr std::uint32_t Bits(std::uint32_t value, int position, int width) {
  return (value & ((1u << width) - 1)) << position;
}
// Wider than the count, so that no count comes out as a short transfer.
constexpr std::uint64_t DwordBytes(std::uint32_t dwords) { return std::uint64_t{dwords} * 4; }
constexpr std::uint32_t High(std::uint16_t value) { return std::uint32_t{value} << 16; }
constexpr std::uint64_t Join(std::uint32_t low, std::uint32_t high) {
  return low | std::uint64_t{high} << 32;
}

// A command that lasts longer than the minute that the kernel gives by itself (a
// format may) needs the path's own time-out; 0 leaves it to the kernel.
std::uint32_t LongTimeoutMs(const CommandPath& path) {
  constexpr std::uint32_t kKernelSeconds = 60;
  return path.GetTimeout() > kKernelSeconds ? path.GetTimeout() * 1000 : 0;
}

using RecordBytes = std::array<std::uint8_t, sizeof(NvmeAdminCommand)>;

RecordBytes ToBytes(const NvmeAdminCommand& command) {
  RecordBytes bytes;
  std::memcpy(bytes.data(), &command, sizeof command);
  return bytes;
}

// The fields of the log text: name, place in the record, width shown.
struct LogField {
  std::string_view name;
  std::size_t offset;
  std::size_t width;
  int shift;
  int digits;
};
constexpr LogField kLogFields[] = {
    {"NSID      ", 4, 4, 0, 8},   {"CDW2      ", 8, 8, 8, 8},   {"CDW3      ", 8, 1, 0, 8},
    {"MPTR      ", 16, 8, 0, 16}, {"PRP1      ", 24, 8, 0, 16}, {"PRP2      ", 32, 8, 0, 16},
    {"CDW10     ", 40, 4, 0, 8},  {"CDW11     ", 44, 4, 0, 8},  {"CDW12     ", 48, 4, 0, 8},
    {"CDW13     ", 52, 4, 0, 8},  {"CDW14     ", 56, 4, 0, 8},  {"CDW15     ", 60, 4, 0, 8},
};

std::string LogLine(std::string_view name, std::uint64_t value, int digits) {
  return "  " + std::string(name) + ": " + std::to_string(value) + "(0x" +
         ToHexNumber(value, digits) + ") \n";
}

std::string ToLogText(const NvmeAdminCommand& command) {
  const auto bytes = ToBytes(command);
  std::string text = "NVMe Admin Command: \n";
  text += LogLine("OPCODE    ", command.opcode, 2);
  text += LogLine("FUSE      ", command.flags & 3, 1);
  for (const auto& field : kLogFields) {
    const auto value = ReadLittle(bytes, field.offset, field.width) >> field.shift;
    text += LogLine(field.name, value, field.digits);
  }
  return text;
}

// Whether an event thread runs in this process.
std::atomic<bool> eventThreadRuns = false;

}  // namespace

CommandSet_NVME::CommandSet_NVME(const PropertyList& properties, CommandPath& path)
    : CommandSet(properties, path, Protocol::Nvme) {}

CommandSet_NVME::CommandSet_NVME(const PropertyList& properties, std::unique_ptr<CommandPath> path)
    : CommandSet(properties, *path, Protocol::Nvme), ownPath_(std::move(path)) {}

CommandSet_NVME::~CommandSet_NVME() {
  if (eventThread_ == nullptr) return;
  // A callback that destroys the set runs on the thread itself, which cannot join itself.
  if (eventThread_->get_id() == boost::this_thread::get_id()) {
    eventThread_->detach();
  } else {
    eventThread_->join();
  }
}

bool CommandSet_NVME::StartEventThread(std::uint32_t timeoutSeconds,
                                       EventNotification& notification) {
  if (eventThreadRuns.exchange(true)) return false;
  if (eventThread_ != nullptr) eventThread_->join();
  const auto wait = [node = path_->GetDevicePath(), protocol = path_->GetProtocol(), timeoutSeconds,
                     &notification] {
    aerThreadFunc(node, protocol, timeoutSeconds, notification);
    eventThreadRuns = false;
  };
  try {
    eventThread_ = std::make_unique<boost::thread>(wait);
  } catch (const boost::thread_resource_error&) {
    eventThreadRuns = false;
    return false;
  }
  return true;
}

bool CommandSet_NVME::IsEventThreadRunning() { return eventThreadRuns; }

std::unique_ptr<CommandSet> CommandSet_NVME::Clone(const PropertyList& properties,
                                                   CommandPath&) const {
  return std::make_unique<CommandSet_NVME>(properties, path_->Clone());
}

StatusCode CommandSet_NVME::Send(std::string_view operation, NvmeAdminCommand command,
                                 std::uint8_t code, std::uint64_t length,
                                 NvmeCompletion& completion, ByteSpan data) {
  if (operation != "nvmeSetFeatures") MORVU_LOG(kLogDebug, operation, ToLogText(command));
  if (data.size() < length) return Status::BufferTooSmall;
  const ByteSpan record(reinterpret_cast<std::uint8_t*>(&command), sizeof command);
  const ByteSpan reply(reinterpret_cast<std::uint8_t*>(&completion), sizeof completion);
  return path_->SendOpcode(record, reply, code, data.first(static_cast<std::size_t>(length)));
}

StatusCode CommandSet_NVME::nvmeVendorSpecific(std::uint8_t opcode, std::uint32_t nsid,
                                               std::uint32_t cdw10, std::uint32_t cdw11,
                                               std::uint32_t cdw12, std::uint32_t cdw13,
                                               std::uint32_t cdw14, std::uint32_t cdw15,
                                               std::uint8_t direction, std::uint32_t length,
                                               NvmeCompletion& completion, ByteSpan data) {
  return Send("nvmeVendorSpecific",
              {.opcode = opcode,
               .nsid = nsid,
               .cdw10 = cdw10,
               .cdw11 = cdw11,
               .cdw12 = cdw12,
               .cdw13 = cdw13,
               .cdw14 = cdw14,
               .cdw15 = cdw15},
              static_cast<std::uint8_t>(direction * 2), length, completion, data);
}

StatusCode CommandSet_NVME::nvmeDeleteIOSubmissionQueue(std::uint16_t qid,
                                                        NvmeCompletion& completion, ByteSpan data) {
  return Send("nvmeDeleteIOSubmissionQueue",
              {.opcode = AdminOpcode::DeleteIOSubmissionQueue, .cdw10 = qid}, 0, 0, completion,
              data);
}

StatusCode CommandSet_NVME::nvmeCreateIOSubmissionQueue(std::uint16_t qsize, std::uint16_t qid,
                                                        std::uint16_t cqid, std::uint8_t priority,
                                                        std::uint8_t contiguous,
                                                        std::uint32_t prp1Low,
                                                        std::uint32_t prp1High,
                                                        NvmeCompletion& completion, ByteSpan data) {
  return Send("nvmeCreateIOSubmissionQueue",
              {.opcode = AdminOpcode::CreateIOSubmissionQueue,
               .address = Join(prp1Low, prp1High),
               .cdw10 = High(qsize) | qid,
               .cdw11 = Bits(contiguous, 0, 1) | Bits(priority, 1, 2) | High(cqid)},
              2, 0, completion, data);
}

StatusCode CommandSet_NVME::nvmeGetLogPage(std::uint8_t logId, std::uint16_t numd,
                                           std::uint32_t nsid, NvmeCompletion& completion,
                                           ByteSpan data) {
  return Send(
      "nvmeGetLogPage",
      {.opcode = AdminOpcode::GetLogPage, .nsid = nsid, .cdw10 = Bits(numd, 16, 12) | logId}, 4,
      numd * 4u + 4, completion, data);
}

StatusCode CommandSet_NVME::nvmeDeleteIOCompletionQueue(std::uint16_t qid,
                                                        NvmeCompletion& completion, ByteSpan data) {
  return Send("nvmeDeleteIOCompletionQueue",
              {.opcode = AdminOpcode::DeleteIOCompletionQueue, .cdw10 = qid}, 0, 0, completion,
              data);
}

StatusCode CommandSet_NVME::nvmeCreateIOCompletionQueue(
    std::uint16_t qsize, std::uint16_t qid, std::uint16_t vector, std::uint8_t interruptsEnabled,
    std::uint8_t contiguous, std::uint32_t prp1Low, std::uint32_t prp1High,
    NvmeCompletion& completion, ByteSpan data) {
  return Send("nvmeCreateIOCompletionQueue",
              {.opcode = AdminOpcode::CreateIOCompletionQueue,
               .address = Join(prp1Low, prp1High),
               .cdw10 = High(qsize) | qid,
               .cdw11 = Bits(contiguous, 0, 1) | Bits(interruptsEnabled, 1, 1) | High(vector)},
              2, 0, completion, data);
}

StatusCode CommandSet_NVME::nvmeIdentify(std::uint32_t cns, std::uint32_t nsid,
                                         NvmeCompletion& completion, ByteSpan data) {
  return Send("nvmeIdentify",
              {.opcode = AdminOpcode::Identify, .nsid = nsid, .cdw10 = Bits(cns, 0, 8)}, 4, 4096,
              completion, data);
}

StatusCode CommandSet_NVME::nvmeAbort(std::uint16_t commandId, std::uint16_t sqid,
                                      NvmeCompletion& completion, ByteSpan data) {
  return Send("nvmeAbort", {.opcode = AdminOpcode::Abort, .cdw10 = High(commandId) | sqid}, 0, 0,
              completion, data);
}

StatusCode CommandSet_NVME::nvmeSetFeatures(std::uint8_t featureId, std::uint32_t nsid,
                                            std::uint32_t cdw11, std::uint32_t cdw12,
                                            std::uint32_t dwords, NvmeCompletion& completion,
                                            ByteSpan data) {
  return Send("nvmeSetFeatures",
              {.opcode = AdminOpcode::SetFeatures,
               .nsid = nsid,
               .cdw10 = featureId,
               .cdw11 = cdw11,
               .cdw12 = cdw12},
              dwords != 0 ? 2 : 0, DwordBytes(dwords), completion, data);
}

StatusCode CommandSet_NVME::nvmeGetFeatures(std::uint8_t featureId, std::uint32_t nsid,
                                            std::uint32_t cdw11, std::uint32_t dwords,
                                            NvmeCompletion& completion, ByteSpan data) {
  return Send(
      "nvmeGetFeatures",
      {.opcode = AdminOpcode::GetFeatures, .nsid = nsid, .cdw10 = featureId, .cdw11 = cdw11},
      dwords != 0 ? 4 : 0, DwordBytes(dwords), completion, data);
}

StatusCode CommandSet_NVME::nvmeNamespaceManagement(std::uint32_t nsid, std::uint8_t select,
                                                    NvmeCompletion& completion, ByteSpan data) {
  return Send(
      "nvmeNamespaceManagement",
      {.opcode = AdminOpcode::NamespaceManagement, .nsid = nsid, .cdw10 = Bits(select, 0, 4)}, 2,
      4096, completion, data);
}

StatusCode CommandSet_NVME::nvmeFirmwareActivate(std::uint8_t slot, std::uint8_t action,
                                                 NvmeCompletion& completion, ByteSpan data) {
  return Send(
      "nvmeFirmwareActivate",
      {.opcode = AdminOpcode::FirmwareActivate, .cdw10 = Bits(slot, 0, 3) | Bits(action, 3, 2)}, 0,
      0, completion, data);
}

StatusCode CommandSet_NVME::nvmeFirmwareImageDownload(std::uint32_t dwords,
                                                      std::uint32_t offsetDwords,
                                                      NvmeCompletion& completion, ByteSpan data) {
  return Send(
      "nvmeFirmwareImageDownload",
      {.opcode = AdminOpcode::FirmwareImageDownload, .cdw10 = dwords - 1, .cdw11 = offsetDwords}, 2,
      DwordBytes(dwords), completion, data);
}

StatusCode CommandSet_NVME::nvmeNamespaceAttachment(std::uint32_t nsid, std::uint8_t select,
                                                    NvmeCompletion& completion, ByteSpan data) {
  return Send(
      "nvmeNamespaceAttachment",
      {.opcode = AdminOpcode::NamespaceAttachment, .nsid = nsid, .cdw10 = Bits(select, 0, 4)}, 2,
      4096, completion, data);
}

StatusCode CommandSet_NVME::nvmeFormatNVM(std::uint32_t nsid, std::uint8_t lbaf, std::uint8_t ms,
                                          std::uint8_t pi, std::uint8_t pil, std::uint8_t ses,
                                          NvmeCompletion& completion, ByteSpan data) {
  return Send("nvmeFormatNVM",
              {.opcode = AdminOpcode::FormatNVM,
               .nsid = nsid,
               .cdw10 = Bits(lbaf, 0, 4) | Bits(ms, 4, 1) | Bits(pi, 5, 3) | Bits(pil, 8, 1) |
                        Bits(ses, 9, 3),
               .timeoutMs = LongTimeoutMs(*path_)},
              0, 0, completion, data);
}

StatusCode CommandSet_NVME::nvmeSecuritySend(std::uint32_t length, std::uint16_t spsp,
                                             std::uint8_t secp, NvmeCompletion& completion,
                                             ByteSpan data) {
  return Send("nvmeSecuritySend",
              {.opcode = AdminOpcode::SecuritySend,
               .cdw10 = Bits(secp, 24, 8) | Bits(spsp, 8, 16),
               .cdw11 = length},
              2, length, completion, data);
}

StatusCode CommandSet_NVME::nvmeSecurityReceive(std::uint32_t length, std::uint16_t spsp,
                                                std::uint8_t secp, NvmeCompletion& completion,
                                                ByteSpan data) {
  return Send("nvmeSecurityReceive",
              {.opcode = AdminOpcode::SecurityReceive,
               .cdw10 = Bits(secp, 24, 8) | Bits(spsp, 8, 16),
               .cdw11 = length},
              4, length, completion, data);
}

StatusCode CommandSet_NVME::nvmeTestCmdWrite(std::uint32_t cdw12, std::uint8_t cdw13,
                                             std::uint32_t cdw11, std::uint32_t dwords,
                                             NvmeCompletion& completion, ByteSpan data) {
  return Send("nvmeTestCmdWrite",
              {.opcode = AdminOpcode::TestCmdWrite,
               .cdw10 = dwords,
               .cdw11 = cdw11,
               .cdw12 = cdw12,
               .cdw13 = cdw13},
              2, DwordBytes(dwords), completion, data);
}

StatusCode CommandSet_NVME::nvmeTestCmdRead(std::uint32_t cdw12, std::uint8_t cdw13,
                                            std::uint32_t cdw11, std::uint32_t dwords,
                                            NvmeCompletion& completion, ByteSpan data) {
  return Send("nvmeTestCmdRead",
              {.opcode = AdminOpcode::TestCmdRead,
               .cdw10 = dwords,
               .cdw11 = cdw11,
               .cdw12 = cdw12,
               .cdw13 = cdw13},
              4, DwordBytes(dwords), completion, data);
}

StatusCode CommandSet_NVME::nvmeFlush(std::uint32_t cdw2, std::uint32_t nsid,
                                      NvmeCompletion& completion, ByteSpan data) {
  return Send("nvmeFlush", {.opcode = NvmOpcode::Flush, .nsid = nsid, .cdw2 = cdw2}, 1, 0,
              completion, data);
}

StatusCode CommandSet_NVME::nvmeWriteUncorrectable(std::uint32_t cdw2, std::uint32_t nsid,
                                                   std::uint32_t slbaLow, std::uint32_t slbaHigh,
                                                   std::uint16_t nlb, NvmeCompletion& completion,
                                                   ByteSpan data) {
  return Send("nvmeWriteUncorrectable",
              {.opcode = NvmOpcode::WriteUncorrectable,
               .nsid = nsid,
               .cdw2 = cdw2,
               .cdw10 = slbaLow,
               .cdw11 = slbaHigh,
               .cdw12 = nlb},
              1, 0, completion, data);
}

StatusCode CommandSet_NVME::nvmeCompare(std::uint32_t cdw2, std::uint32_t nsid,
                                        std::uint32_t slbaLow, std::uint32_t slbaHigh,
                                        std::uint16_t nlb, std::uint8_t prinfo, std::uint8_t fua,
                                        std::uint8_t lr, std::uint32_t reftag, std::uint16_t apptag,
                                        std::uint16_t appmask, NvmeCompletion& completion,
                                        ByteSpan data) {
  return Send("nvmeCompare",
              {.opcode = NvmOpcode::Compare,
               .nsid = nsid,
               .cdw2 = cdw2,
               .cdw10 = slbaLow,
               .cdw11 = slbaHigh,
               .cdw12 = nlb | Bits(prinfo, 26, 4) | Bits(fua, 30, 1) | Bits(lr, 31, 1),
               .cdw14 = reftag,
               .cdw15 = High(appmask) | apptag},
              3, (nlb + 1u) * 512, completion, data);
}

StatusCode CommandSet_NVME::nvmeWriteZeroes(std::uint32_t cdw2, std::uint32_t nsid,
                                            std::uint32_t slbaLow, std::uint32_t slbaHigh,
                                            std::uint8_t lr, std::uint8_t fua, std::uint8_t prinfo,
                                            std::uint16_t nlb, std::uint32_t reftag,
                                            std::uint16_t apptag, std::uint16_t appmask,
                                            NvmeCompletion& completion, ByteSpan data) {
  return Send("nvmeWriteZeroes",
              {.opcode = NvmOpcode::WriteZeroes,
               .nsid = nsid,
               .cdw2 = cdw2,
               .cdw10 = slbaLow,
               .cdw11 = slbaHigh,
               .cdw12 = nlb | Bits(prinfo, 26, 4) | Bits(fua, 30, 1) | Bits(lr, 31, 1),
               .cdw14 = reftag,
               .cdw15 = High(apptag) | appmask},
              1, 0, completion, data);
}

StatusCode CommandSet_NVME::nvmeDatasetManagement(std::uint32_t cdw2, std::uint32_t nsid,
                                                  std::uint8_t nr, std::uint8_t idr,
                                                  std::uint8_t idw, std::uint8_t ad,
                                                  NvmeCompletion& completion, ByteSpan data) {
  return Send("nvmeDatasetManagement",
              {.opcode = NvmOpcode::DatasetManagement,
               .nsid = nsid,
               .cdw2 = cdw2,
               .cdw10 = nr,
               .cdw11 = Bits(idr, 0, 1) | Bits(idw, 1, 1) | Bits(ad, 2, 1)},
              3, (nr + 1u) * 16, completion, data);
}

StatusCode CommandSet_NVME::nvmeReservationRegister(std::uint32_t cdw2, std::uint32_t nsid,
                                                    std::uint8_t cptpl, std::uint8_t iekey,
                                                    std::uint8_t rrega, NvmeCompletion& completion,
                                                    ByteSpan data) {
  return Send("nvmeReservationRegister",
              {.opcode = NvmOpcode::ReservationRegister,
               .nsid = nsid,
               .cdw2 = cdw2,
               .cdw10 = Bits(rrega, 0, 3) | Bits(iekey, 3, 1) | Bits(cptpl, 30, 2)},
              2, 16, completion, data);
}

StatusCode CommandSet_NVME::nvmeReservationReport(std::uint32_t cdw2, std::uint32_t nsid,
                                                  std::uint32_t dwords, NvmeCompletion& completion,
                                                  ByteSpan data) {
  return Send("nvmeReservationReport",
              {.opcode = NvmOpcode::ReservationReport, .nsid = nsid, .cdw2 = cdw2, .cdw10 = dwords},
              4, DwordBytes(dwords), completion, data);
}

StatusCode CommandSet_NVME::nvmeReservationAcquire(std::uint32_t cdw2, std::uint32_t nsid,
                                                   std::uint8_t rtype, std::uint8_t iekey,
                                                   std::uint8_t racqa, NvmeCompletion& completion,
                                                   ByteSpan data) {
  return Send("nvmeReservationAcquire",
              {.opcode = NvmOpcode::ReservationAcquire,
               .nsid = nsid,
               .cdw2 = cdw2,
               .cdw10 = Bits(racqa, 0, 3) | Bits(iekey, 3, 1) | Bits(rtype, 8, 2)},
              2, 16, completion, data);
}

StatusCode CommandSet_NVME::nvmeReservationRelease(std::uint32_t cdw2, std::uint32_t nsid,
                                                   std::uint8_t rtype, std::uint8_t iekey,
                                                   std::uint8_t rrela, NvmeCompletion& completion,
                                                   ByteSpan data) {
  return Send("nvmeReservationRelease",
              {.opcode = NvmOpcode::ReservationRelease,
               .nsid = nsid,
               .cdw2 = cdw2,
               .cdw10 = Bits(rrela, 0, 3) | Bits(iekey, 3, 1) | Bits(rtype, 8, 2)},
              2, 8, completion, data);
}

void aerThreadFunc(const std::string& devicePath, std::string_view protocol,
                   std::uint32_t timeoutSeconds, EventNotification& notification) {
  CommandPath_NVME path(devicePath);
  path.SetProtocol(protocol);
  path.SetTimeout(timeoutSeconds);
  NvmeAdminCommand command{.opcode = AdminOpcode::AsynchronousEventRequest};
  NvmeCompletion completion;
  MORVU_LOG(kLogDebug, "aerThreadFunc", ToLogText(command));
  MORVU_LOG(kLogDebug, "aerThreadFunc", "Issuing AER from thread..");
  const ByteSpan record(reinterpret_cast<std::uint8_t*>(&command), sizeof command);
  const ByteSpan reply(reinterpret_cast<std::uint8_t*>(&completion), sizeof completion);
  notification.result = path.SendOpcode(record, reply, 0, {});
  std::ranges::copy(reply, notification.reply.begin());
  MORVU_LOG(kLogDebug, "aerThreadFunc", "Executing callback from AER thread..");
  if (notification.completed) notification.completed(notification);
  if (notification.cleanUp) notification.cleanUp(notification);
}

}  // namespace Morvu::DeviceManagement
