#pragma once

#include <array>
#include <memory>

#include "devices/commands/CommandSet.h"

namespace boost {
class thread;
}

namespace Morvu::DeviceManagement {

// Takes the answer of an asynchronous event request. Owned by the caller, and used
// on the event thread.
struct EventNotification {
  void (*completed)(EventNotification& notification) = nullptr;
  void (*cleanUp)(EventNotification& notification) = nullptr;  // may be null
  StatusCode result = 0;
  std::array<std::uint8_t, 64> reply{};
};

// The NVMe commands (NVMe 1.0). An operation fills the record, logs it and sends it;
// it checks nothing and returns 0, a positive NVMe status or the negative result of
// the call. The completion is written on failure too. `data` must hold the length
// that the operation tells; a shorter buffer gives 141 and nothing is sent.
//
// Commands go to the controller's node. A set that was cloned for a drive has a path
// of its own on it, so that no two threads share one and none outlives its adapter.
class CommandSet_NVME : public CommandSet {
 public:
  CommandSet_NVME(const PropertyList& properties, CommandPath& path);
  CommandSet_NVME(const PropertyList& properties, std::unique_ptr<CommandPath> path);
  // Waits for the event thread that this set started.
  ~CommandSet_NVME() override;
  std::unique_ptr<CommandSet> Clone(const PropertyList& properties,
                                    CommandPath& path) const override;

  // Starts a thread that waits for one asynchronous event on a path of its own. There
  // is one at a time in the process; false when it runs already. `notification` must
  // live until it was called.
  bool StartEventThread(std::uint32_t timeoutSeconds, EventNotification& notification);
  static bool IsEventThreadRunning();

  // ---- Admin commands (NVMe 1.0, section 5) ----
  StatusCode nvmeDeleteIOSubmissionQueue(std::uint16_t qid, NvmeCompletion& completion,
                                         ByteSpan data = {});
  StatusCode nvmeCreateIOSubmissionQueue(std::uint16_t qsize, std::uint16_t qid, std::uint16_t cqid,
                                         std::uint8_t priority, std::uint8_t contiguous,
                                         std::uint32_t prp1Low, std::uint32_t prp1High,
                                         NvmeCompletion& completion, ByteSpan data = {});
  StatusCode nvmeGetLogPage(std::uint8_t logId, std::uint16_t numd, std::uint32_t nsid,
                            NvmeCompletion& completion, ByteSpan data);
  StatusCode nvmeDeleteIOCompletionQueue(std::uint16_t qid, NvmeCompletion& completion,
                                         ByteSpan data = {});
  StatusCode nvmeCreateIOCompletionQueue(std::uint16_t qsize, std::uint16_t qid,
                                         std::uint16_t vector, std::uint8_t interruptsEnabled,
                                         std::uint8_t contiguous, std::uint32_t prp1Low,
                                         std::uint32_t prp1High, NvmeCompletion& completion,
                                         ByteSpan data = {});
  StatusCode nvmeIdentify(std::uint32_t cns, std::uint32_t nsid, NvmeCompletion& completion,
                          ByteSpan data);
  StatusCode nvmeAbort(std::uint16_t commandId, std::uint16_t sqid, NvmeCompletion& completion,
                       ByteSpan data = {});
  StatusCode nvmeSetFeatures(std::uint8_t featureId, std::uint32_t nsid, std::uint32_t cdw11,
                             std::uint32_t cdw12, std::uint32_t dwords, NvmeCompletion& completion,
                             ByteSpan data = {});
  StatusCode nvmeGetFeatures(std::uint8_t featureId, std::uint32_t nsid, std::uint32_t cdw11,
                             std::uint32_t dwords, NvmeCompletion& completion, ByteSpan data = {});
  StatusCode nvmeNamespaceManagement(std::uint32_t nsid, std::uint8_t select,
                                     NvmeCompletion& completion, ByteSpan data);
  StatusCode nvmeFirmwareActivate(std::uint8_t slot, std::uint8_t action,
                                  NvmeCompletion& completion, ByteSpan data = {});
  StatusCode nvmeFirmwareImageDownload(std::uint32_t dwords, std::uint32_t offsetDwords,
                                       NvmeCompletion& completion, ByteSpan data = {});
  StatusCode nvmeNamespaceAttachment(std::uint32_t nsid, std::uint8_t select,
                                     NvmeCompletion& completion, ByteSpan data);
  StatusCode nvmeFormatNVM(std::uint32_t nsid, std::uint8_t lbaf, std::uint8_t ms, std::uint8_t pi,
                           std::uint8_t pil, std::uint8_t ses, NvmeCompletion& completion,
                           ByteSpan data = {});
  StatusCode nvmeSecuritySend(std::uint32_t length, std::uint16_t spsp, std::uint8_t secp,
                              NvmeCompletion& completion, ByteSpan data);
  StatusCode nvmeSecurityReceive(std::uint32_t length, std::uint16_t spsp, std::uint8_t secp,
                                 NvmeCompletion& completion, ByteSpan data);
  StatusCode nvmeTestCmdWrite(std::uint32_t cdw12, std::uint8_t cdw13, std::uint32_t cdw11,
                              std::uint32_t dwords, NvmeCompletion& completion, ByteSpan data = {});
  StatusCode nvmeTestCmdRead(std::uint32_t cdw12, std::uint8_t cdw13, std::uint32_t cdw11,
                             std::uint32_t dwords, NvmeCompletion& completion, ByteSpan data = {});
  // Any admin command; `direction` is 0 for none, 1 to and 2 from the controller.
  StatusCode nvmeVendorSpecific(std::uint8_t opcode, std::uint32_t nsid, std::uint32_t cdw10,
                                std::uint32_t cdw11, std::uint32_t cdw12, std::uint32_t cdw13,
                                std::uint32_t cdw14, std::uint32_t cdw15, std::uint8_t direction,
                                std::uint32_t length, NvmeCompletion& completion, ByteSpan data);

  // ---- NVM commands (section 6), sent through the admin record ----
  StatusCode nvmeFlush(std::uint32_t cdw2, std::uint32_t nsid, NvmeCompletion& completion,
                       ByteSpan data = {});
  StatusCode nvmeWriteUncorrectable(std::uint32_t cdw2, std::uint32_t nsid, std::uint32_t slbaLow,
                                    std::uint32_t slbaHigh, std::uint16_t nlb,
                                    NvmeCompletion& completion, ByteSpan data = {});
  StatusCode nvmeCompare(std::uint32_t cdw2, std::uint32_t nsid, std::uint32_t slbaLow,
                         std::uint32_t slbaHigh, std::uint16_t nlb, std::uint8_t prinfo,
                         std::uint8_t fua, std::uint8_t lr, std::uint32_t reftag,
                         std::uint16_t apptag, std::uint16_t appmask, NvmeCompletion& completion,
                         ByteSpan data);
  StatusCode nvmeWriteZeroes(std::uint32_t cdw2, std::uint32_t nsid, std::uint32_t slbaLow,
                             std::uint32_t slbaHigh, std::uint8_t lr, std::uint8_t fua,
                             std::uint8_t prinfo, std::uint16_t nlb, std::uint32_t reftag,
                             std::uint16_t apptag, std::uint16_t appmask,
                             NvmeCompletion& completion, ByteSpan data = {});
  StatusCode nvmeDatasetManagement(std::uint32_t cdw2, std::uint32_t nsid, std::uint8_t nr,
                                   std::uint8_t idr, std::uint8_t idw, std::uint8_t ad,
                                   NvmeCompletion& completion, ByteSpan data);
  StatusCode nvmeReservationRegister(std::uint32_t cdw2, std::uint32_t nsid, std::uint8_t cptpl,
                                     std::uint8_t iekey, std::uint8_t rrega,
                                     NvmeCompletion& completion, ByteSpan data);
  StatusCode nvmeReservationReport(std::uint32_t cdw2, std::uint32_t nsid, std::uint32_t dwords,
                                   NvmeCompletion& completion, ByteSpan data = {});
  StatusCode nvmeReservationAcquire(std::uint32_t cdw2, std::uint32_t nsid, std::uint8_t rtype,
                                    std::uint8_t iekey, std::uint8_t racqa,
                                    NvmeCompletion& completion, ByteSpan data);
  StatusCode nvmeReservationRelease(std::uint32_t cdw2, std::uint32_t nsid, std::uint8_t rtype,
                                    std::uint8_t iekey, std::uint8_t rrela,
                                    NvmeCompletion& completion, ByteSpan data);

 private:
  StatusCode Send(std::string_view operation, NvmeAdminCommand command, std::uint8_t code,
                  std::uint64_t length, NvmeCompletion& completion, ByteSpan data);

  std::unique_ptr<CommandPath> ownPath_;  // null when the path is another's
  std::unique_ptr<boost::thread> eventThread_;
};

// The body of a thread that waits for one asynchronous event (NVMe 1.0, 5.2) on a
// path of its own. Blocks until the controller reports; then calls `notification`.
void aerThreadFunc(const std::string& devicePath, std::string_view protocol,
                   std::uint32_t timeoutSeconds, EventNotification& notification);

}  // namespace Morvu::DeviceManagement
