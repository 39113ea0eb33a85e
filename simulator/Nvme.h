// The parts of a simulated NVMe controller (NVMe 1.0 to 1.3).
#pragma once

#include "Devices.h"

namespace Simulator {

// Status: status code type in bits 10:8, status code in 7:0.
enum NvmeStatus : std::uint16_t {
  kNvmeGood = 0x000,
  kNvmeInvalidOpcode = 0x001,
  kNvmeInvalidField = 0x002,
  kNvmeDataTransfer = 0x004,
  kNvmeInvalidNamespace = 0x00B,
  kNvmeSequence = 0x00C,
  kNvmeSanitizeInProgress = 0x01D,
  kNvmeLbaRange = 0x080,
  kNvmeInvalidFirmwareSlot = 0x106,
  kNvmeInvalidFirmwareImage = 0x107,
  kNvmeInvalidLogPage = 0x109,
  kNvmeInvalidFormat = 0x10A,
  kNvmeFirmwareNeedsReset = 0x10B,
  kNvmeFeatureNotSaveable = 0x10D,
  kNvmeFeatureNotChangeable = 0x10E,
  kNvmeFeatureNotNamespaceSpecific = 0x10F,
  kNvmeOverlappingRange = 0x114,
  kNvmeUnrecoveredRead = 0x281,
  kNvmeCompareFailure = 0x285,
};

// One command, its dwords by name.
class NvmeCommand {
 public:
  NvmeCommand(Drive& drive, Transaction& transaction) : drive_(drive), transaction_(transaction) {}

  Drive& TheDrive() { return drive_; }
  NvmeState& Nvme() { return drive_.State().nvme; }
  Transaction& Data() { return transaction_; }
  std::uint8_t Opcode() const { return transaction_.command[0]; }
  std::uint32_t Nsid() const;
  std::uint32_t Cdw(int number) const;  // 10 to 15
  NvmeNamespace* Namespace();           // of Nsid(); null when there is none

  void Fail(NvmeStatus status) { transaction_.nvmeStatus = status; }
  void Result(std::uint32_t result) { transaction_.nvmeResult = result; }

 private:
  Drive& drive_;
  Transaction& transaction_;
};

struct NvmeRow {
  std::uint8_t opcode;
  bool whileSanitizing;
  void (*handler)(NvmeCommand&);
};

struct LbaFormat {
  std::uint8_t dataSize;  // power of two
  std::uint8_t metadata;  // bytes
};

inline constexpr LbaFormat kLbaFormats[] = {{9, 0}, {9, 8}, {12, 0}, {12, 8}};

std::uint32_t NvmeSectorSize(const NvmeNamespace& space);
std::uint8_t CountNamespaces(const NvmeState& nvme);
bool NvmeIsSanitizing(Drive& drive);

// By the file that they stand in.
void NvmeIdentify(NvmeCommand& command);
void NvmeGetLog(NvmeCommand& command);
void NvmeGetFeatures(NvmeCommand& command);
void NvmeSetFeatures(NvmeCommand& command);
void NvmeFirmwareDownload(NvmeCommand& command);
void NvmeFirmwareCommit(NvmeCommand& command);
void NvmeFormat(NvmeCommand& command);
void NvmeSanitize(NvmeCommand& command);
void NvmeVendorLog(NvmeCommand& command);

void NvmeFlush(NvmeCommand& command);
void NvmeRead(NvmeCommand& command);
void NvmeWrite(NvmeCommand& command);
void NvmeCompare(NvmeCommand& command);
void NvmeWriteZeroes(NvmeCommand& command);
void NvmeDatasetManagement(NvmeCommand& command);

}  // namespace Simulator
