// The record of one simulated drive: all that the drive remembers.
//
// It is a file of the fleet, mapped by every process that uses the drive, so
// its layout is the same in 32 and in 64 bits: fixed widths, 8-byte numbers
// aligned to 8 bytes, no pointers, sizes asserted below. A test may read and
// write any field; the drive looks at them anew with each command.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Simulator {

// i386 aligns a plain 64-bit member to 4 bytes.
using Wide = std::uint64_t __attribute__((aligned(8)));

enum class Kind : std::uint8_t { Ata, Nvme, Scsi };

// How the registers of an ATA drive come back in the sense data.
enum class SenseFormat : std::uint8_t {
  Descriptor,      // always the ATA Status Return descriptor
  FixedSat3,       // always fixed format, with SAT-3's places
  FixedOldKernel,  // as Linux before 6.11: descriptor on success; a refusal and
                   // each PIO data-in command in fixed format at the wrong places
  None,            // a layer that does not honour CK_COND: GOOD without sense; a refusal
                   // in fixed format without registers
};

// CHECK POWER MODE's count register, ACS-3.
enum class PowerMode : std::uint8_t { Standby = 0x00, Idle = 0x80, Active = 0xFF };

inline constexpr std::uint32_t kStateMagic = 0x4D525653;
inline constexpr std::uint32_t kStateVersion = 10;

inline constexpr std::size_t kFaultSlots = 32;
inline constexpr std::size_t kSmartAttributes = 30;
inline constexpr std::size_t kMaxNamespaces = 16;
inline constexpr std::size_t kFirmwareSlots = 7;
inline constexpr std::size_t kBadRanges = 8;
inline constexpr std::size_t kErrorEntries = 64;

enum class FaultAction : std::uint8_t {
  None,
  Fail,        // as this kind of command fails: see Fault.h
  AtaError,    // status, error
  ScsiError,   // status, key, asc, ascq
  NvmeStatus,  // status (status code type in bits 10:8)
  IoctlError,  // error: an errno
  HostError,   // hostStatus, driverStatus
  Vanish,      // the node is gone until the fault is cleared
  Delay,       // milliseconds
  ShortData,   // bytes: only so many of the data are given
  Garbage,     // pattern: see Garbage below
  Hang,        // ends at the command's time-out, which passes on the fleet's clock
  Kill,        // the process dies; afterwards says whether the drive did its work first
  Signal,      // value: this signal comes to the thread while it waits; the drive works on
  RawSense,    // status, sense: these very bytes, and the drive has done nothing
};

enum class Garbage : std::uint8_t { Zeros, Ones, Random };

enum class CommandClass : std::uint8_t { Any, Ata, Scsi, NvmeAdmin, NvmeIo, Raw };

struct FaultSlot {
  FaultAction action;
  CommandClass commandClass;
  std::uint8_t anyOpcode;
  std::uint8_t opcode;
  std::uint8_t anyFeature;  // ATA: the Features register; NVMe: cdw10 7:0
  std::uint8_t feature;
  std::uint8_t afterwards;
  std::uint8_t error;    // ATA error register
  std::uint16_t status;  // ATA status, SCSI status or NVMe status
  std::uint8_t key, asc, ascq;
  Garbage garbage;
  std::uint16_t hostStatus, driverStatus;
  std::uint32_t skip;   // matching commands that still pass
  std::uint32_t times;  // matching commands that it then meets; 0: all
  std::uint32_t value;  // errno, milliseconds or bytes
  std::uint32_t lba;    // LBA register 31:0 of an ATA error
  std::uint8_t sense[32];
  std::uint8_t senseLength, reserved[3];
};
static_assert(sizeof(FaultSlot) == 72);

// Sectors that cannot be read, by any way.
struct BadRange {
  Wide offset, size;  // bytes of the medium; size 0: an empty slot
  std::uint32_t nsid, reserved;
};
static_assert(sizeof(BadRange) == 24);

struct SmartAttribute {
  std::uint8_t id, value, worst, threshold;
  std::uint16_t flags;  // bit 0: pre-failure
  std::uint16_t reserved;
  Wide raw;  // 48 bits
};
static_assert(sizeof(SmartAttribute) == 16);

// Sets the timed workload attributes, E2h to E4h, to what they are before an hour has passed;
// false when there are none.
inline bool ResetWorkload(SmartAttribute (&attributes)[kSmartAttributes]) {
  bool isFound = false;
  for (auto& attribute : attributes) {
    if (attribute.id < 0xE2 || attribute.id > 0xE4) continue;
    attribute.raw = 0xFFFF;
    isFound = true;
  }
  return isFound;
}

struct SecurityState {
  std::uint8_t supported, enabled, locked, frozen;
  std::uint8_t countExpired, prepared, maximumLevel, attemptsLeft;
  std::uint8_t frozenAtPowerOn, reserved[5];
  std::uint16_t masterIdentifier;
  std::uint8_t userPassword[32];
  std::uint8_t masterPassword[32];
};
static_assert(sizeof(SecurityState) == 80);

struct SanitizeState {
  std::uint8_t cryptoScramble, blockErase, overwrite;  // supported
  std::uint8_t frozen, antifreeze;
  std::uint8_t running, failed, completed;
  std::uint32_t durationMs;
  std::uint32_t willFail;  // the next one ends in failure
  Wide startedMs;
};
static_assert(sizeof(SanitizeState) == 24);

struct SelfTestState {
  std::uint8_t supported, type, running, status;  // status: byte 363 of the last one that ended
  std::uint32_t shortMs, extendedMs, conveyanceMs;
  std::uint32_t nextResult;  // status nibble with which the next test ends
  std::uint32_t reserved;
  Wide startedMs;
};
static_assert(sizeof(SelfTestState) == 32);

struct FirmwareState {
  char next[24];     // revision that an image without our mark brings; empty: made of its digest
  char pending[24];  // revision waiting for its activation
  // Where the next piece must begin: ATA blocks, NVMe dwords, SCSI bytes.
  std::uint32_t nextBlock;
  std::uint32_t imageBlocks;  // the image's own word for its size, 0 when it has none
  std::uint32_t transfers, activations;
  std::uint8_t running, deferred, refuseImages, reserved[5];
  Wide digest;
};
static_assert(sizeof(FirmwareState) == 80);

inline constexpr std::size_t kSctFeatures = 8;

struct SctFeatureState {
  std::uint16_t state, options;  // as they are now
  std::uint16_t savedState, savedOptions;
};

struct SctState {
  std::uint16_t lastAction, lastFunction, lastStatus;
  std::uint16_t transferValue;  // what the registers give back after a get
  std::uint16_t readTimer, writeTimer;
  std::uint16_t tableIdentifier;
  std::uint16_t refusedAction;   // an action that the drive does not know; 0: none
  std::uint16_t refusedFeature;  // a feature code that feature control does not know
  std::uint16_t savesLeft;       // settings that can still be kept over a power cycle
  std::uint16_t linkAwayMs;      // how long the link is away after a COMINIT
  std::uint16_t forgets;         // takes settings well and keeps none
  SctFeatureState features[kSctFeatures];
  // What identify words 77, 129 and 138 are from the next power cycle on, where it changes.
  std::uint16_t nextWords[3];
  std::uint8_t isNext;    // a bit for each of them
  std::uint8_t phyWaits;  // PHY settings are seen after the power cycle, not at once
  Wide linkBackMs;        // by the fleet's clock
};
static_assert(sizeof(SctState) == 104);

struct AtaState {
  // IDENTIFY DEVICE as made from the drive's description. Words that commands
  // change (capacity, enabled features, security, texts) are put in with each answer.
  std::uint16_t identify[256];
  SmartAttribute attributes[kSmartAttributes];
  SecurityState security;
  SanitizeState sanitize;
  SelfTestState selfTest;
  FirmwareState firmware;
  SctState sct;
  std::uint32_t smartFailing;  // SMART RETURN STATUS says "threshold exceeded"
  Wide maxLba, nativeMaxLba;
  Wide maxLbaAtPowerOn;
  PowerMode powerMode;
  std::uint8_t sleeping;
  std::uint8_t smartEnabled, autosave, writeCache, lookAhead, dipm, multiple;
  std::uint8_t previousCommand, previousFeature;
  std::uint8_t refusesTrusted, supports48Bit;
  std::uint8_t refusesDiagnosticProtocol;  // as Linux's SATA layer does with protocol 8
  std::uint8_t standbyStaysActive;         // STANDBY ends well and the drive stays awake
  std::uint8_t streaming;  // the last command read a vendor log, whose next block is streamBlock
  std::uint8_t streamAddress;
  std::uint8_t buffer[512];
  std::uint32_t streamPage, streamBlock;
  std::uint8_t maximumIsSet;    // since the power came: no second SET MAX is taken
  std::uint8_t forgetsMaximum;  // takes a SET MAX well and keeps what was
  std::uint16_t wakeUps;        // from standby, by a command
  std::uint8_t hasStatistics;   // the Device Statistics log (ACS-3, 9.5)
  std::uint8_t reserved[3];
};

struct NvmeNamespace {
  Wide bytes;  // capacity, whatever the format
  std::uint8_t exists, format, metadata, protection, endToEnd, reserved[3];
  std::uint8_t eui64[8];
};
static_assert(sizeof(NvmeNamespace) == 24);

// Which namespace a Get or Set Features may name for a feature.
enum class FeatureScope : std::uint8_t {
  Any,         // a lenient controller asks nothing of it
  Controller,  // 0 or FFFFFFFFh: the feature is not namespace specific
  Namespace,   // one that is there
};

struct NvmeFeature {
  std::uint8_t supported, changeable, saveable;
  FeatureScope scope;
  std::uint32_t value, value12;
  std::uint32_t defaultValue, savedValue;
  std::uint8_t isSaved;
  std::uint8_t forgets;  // takes a new value well and keeps the old one
  std::uint8_t reserved[2];
};
static_assert(sizeof(NvmeFeature) == 24);

// An entry of log 01h (NVMe 1.0, 5.10.1.1), as the log has it.
struct NvmeErrorEntry {
  Wide count;
  std::uint16_t queue, command, status, location;
  Wide lba;
  std::uint32_t nsid;
  std::uint8_t vendorLog, reserved[35];
};
static_assert(sizeof(NvmeErrorEntry) == 64);

struct NvmeState {
  std::uint8_t controller[4096];  // IDENTIFY CNS 1; the firmware text is put in with each answer
  std::uint8_t health[512];       // log 02h, as the standard lays it out
  NvmeErrorEntry errors[kErrorEntries];  // log 01h, the last one first
  NvmeNamespace namespaces[kMaxNamespaces];
  NvmeFeature features[256];
  SmartAttribute attributes[kSmartAttributes];  // vendor log CAh
  char slots[kFirmwareSlots][24];
  FirmwareState firmware;
  SanitizeState sanitize;
  std::uint8_t activeSlot, nextSlot, supportsSanitize, refusesIdentify;
  std::uint32_t resets;
  std::uint16_t activationStatus;  // what an activation that was committed is answered with
  std::uint16_t reserved;
};

struct ScsiState {
  FirmwareState firmware;
  std::uint8_t stopped;
  std::uint8_t descriptorSense;     // D_SENSE of the control mode page
  std::uint8_t blankInquirySerial;  // bytes 36 to 43 of INQUIRY
  std::uint8_t predictsFailure;     // 5Dh in the informational exceptions
  std::uint8_t percentageUsed;
  std::uint8_t selfTestResult;  // of the last one (SPC-4, 7.3.15); FFh: there was none
  std::uint8_t mediaErrors;
  std::uint8_t reserved;
};

struct DriveState {
  std::uint32_t magic, version;
  Kind kind;
  SenseFormat senseFormat;
  std::uint8_t journalOff, vanished;
  std::uint8_t staleData;  // a refused read hands back the data of the one before
  std::uint8_t deviceType, usb, faultCount;
  char vendor[16], model[48], serial[24], firmware[24];
  std::uint32_t sectorSize, powerCycles;
  Wide sectors;
  Wide commands;  // executed since the drive was made
  // Reads and writes of the node itself, without a command.
  Wide rawReads, rawWrites, rawBytes;
  BadRange badRanges[kBadRanges];
  FaultSlot faults[kFaultSlots];
  AtaState ata;
  NvmeState nvme;
  ScsiState scsi;
  std::uint8_t lastData[512];  // see staleData
};

// One process of each width must agree on these.
static_assert(sizeof(AtaState) == 1888);
static_assert(sizeof(NvmeState) == 16000);
static_assert(sizeof(DriveState) == 21160);
static_assert(offsetof(DriveState, ata) % 8 == 0 && offsetof(DriveState, nvme) % 8 == 0);

}  // namespace Simulator
