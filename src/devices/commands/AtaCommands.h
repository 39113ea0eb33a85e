// The ATA commands, a row each, and the arguments that a row takes (ACS-3, chapter 7; the
// older ones ATA8-ACS and ATA/ATAPI-7).
#pragma once

#include <chrono>
#include <cstdint>

#include "devices/commands/CommandRecords.h"
#include "devices/commands/SenseData.h"

namespace Morvu::DeviceManagement {

// The arguments of one command. What its row does not use stays as it is here.
struct AtaArguments {
  std::uint64_t lba = 0;       // 28 or 48 bits; an offset or a log where the row says so
  std::uint32_t count = 0;     // of blocks or sectors, or the value of the Count register;
                               // 0 sectors stand for as many as the register can name
  std::uint16_t features = 0;  // added to the row's subcommand
  std::uint8_t device = 0;     // added to the row's
  std::uint8_t control = 0;
  std::uint8_t tag = 0;  // queued commands alone
  std::uint8_t priority = 0;
  std::uint8_t fua = 0;
};

// What stands in the Count register.
enum class AtaCount : std::uint8_t {
  Zero,
  One,
  Given,   // the argument
  Split,   // its low half; the high half stands in LBA 7:0, and what else is addressed
           // from LBA 15:8 on
  Queued,  // tag and priority; the count stands in Features
};

// How much data moves.
enum class AtaData : std::uint8_t {
  None,
  Block,    // one block of 512 bytes
  Blocks,   // `count` blocks of 512 bytes
  Sectors,  // `count` logical sectors of the device
};

// The form of a command without data through an adapter that has none such.
enum class AtaAdapterForm : std::uint8_t {
  Same,          // goes out as it is
  Block,         // a DMA read of one block
  CountedBlock,  // that, with the block in the Count register
  Sectors,       // a DMA read of the sectors that it names
};

struct AtaCommand {
  const char* name;
  std::uint8_t opcode;
  std::uint8_t feature;   // subcommand, in Features 7:0
  std::uint8_t protocol;  // CommandFlags: how the data move
  std::uint8_t width;     // kExt48 or 0
  AtaCount count;
  AtaData data;
  std::uint64_t lba = 0;    // a key, to which the argument is added
  std::uint8_t answer = 0;  // registers (AtaAnswer) without which the device has told nothing
  std::chrono::seconds timeout{0};  // 0: the path's
  AtaAdapterForm adapter = AtaAdapterForm::Block;
  std::uint8_t device = 0x40;  // the LBA bit
};

namespace AtaRow {

inline constexpr std::uint8_t kPioIn = kRead;
inline constexpr std::uint8_t kPioOut = kWrite;
inline constexpr std::uint8_t kDmaIn = kRead | kDma;
inline constexpr std::uint8_t kDmaOut = kWrite | kDma;
inline constexpr std::uint8_t kNone = kNoData;
inline constexpr std::uint8_t kDiag = kNoData | kDiagnostic;

inline constexpr std::uint8_t k28 = 0;
inline constexpr std::uint8_t k48 = kExt48;

inline constexpr std::uint8_t kNothing = 0;
inline constexpr std::uint8_t kLow = AtaAnswer::kLow;
inline constexpr std::uint8_t kLba24 = AtaAnswer::kLow | AtaAnswer::kMiddle;
inline constexpr std::uint8_t kLba48 = kLba24 | AtaAnswer::kUpper;

inline constexpr std::chrono::seconds kPaths{0};
inline constexpr std::chrono::seconds kSpinDown{20};
inline constexpr std::chrono::seconds kWholeDrive{7200};

// Keys in the LBA: of SMART, and of SANITIZE DEVICE ("Cryp", "BkEr", "OW", "FrLk", "Anti").
inline constexpr std::uint64_t kSmartKey = 0xC24F00;
inline constexpr std::uint64_t kCryptoScrambleKey = 0x43727970;
inline constexpr std::uint64_t kBlockEraseKey = 0x426B4572;
inline constexpr std::uint64_t kOverwriteKey = 0x4F57'0000'0000;
inline constexpr std::uint64_t kFreezeLockKey = 0x46724C6B;
inline constexpr std::uint64_t kAntifreezeLockKey = 0x416E7469;

using enum AtaAdapterForm;
using C = AtaCount;
using D = AtaData;

// clang-format off
// row                                            name                             code  feature protocol width count      data        key                 answer    time-out    adapter       device
inline constexpr AtaCommand Nop                        = {"ataNop",                        0x00, 0x00, kNone,   k28, C::Zero,   D::None};
inline constexpr AtaCommand CfaRequestExtendedError    = {"ataCfaRequestExtendedError",    0x03, 0x00, kNone,   k28, C::Zero,   D::None,    0,                  kLow,     kPaths,     Block,        0x00};
inline constexpr AtaCommand DataSetManagementExt       = {"ataDataSetManagementExt",       0x06, 0x01, kDmaOut, k48, C::Given,  D::Blocks};
inline constexpr AtaCommand DeviceReset                = {"ataDeviceReset",                0x08, 0x00, kPioIn,  k28, C::Zero,   D::Block};
inline constexpr AtaCommand RequestSenseDataExt        = {"ataRequestSenseDataExt",        0x0B, 0x00, kDiag,   k48, C::Zero,   D::None,    0,                  kLba24};
inline constexpr AtaCommand Recalibrate                = {"ataRecalibrate",                0x10, 0x00, kNone,   k28, C::Zero,   D::None};
inline constexpr AtaCommand ReadSectors                = {"ataReadSectors",                0x20, 0x00, kPioIn,  k28, C::Given,  D::Sectors};
inline constexpr AtaCommand ReadSectorsExt             = {"ataReadSectorsExt",             0x24, 0x00, kPioIn,  k48, C::Given,  D::Sectors};
inline constexpr AtaCommand ReadDmaExt                 = {"ataReadDmaExt",                 0x25, 0x00, kDmaIn,  k48, C::Given,  D::Sectors};
inline constexpr AtaCommand ReadNativeMaxAddressExt    = {"ataReadNativeMaxAddressExt",    0x27, 0x00, kNone,   k48, C::Zero,   D::None,    0,                  kLba48};
inline constexpr AtaCommand ReadMultipleExt            = {"ataReadMultipleExt",            0x29, 0x00, kPioIn,  k48, C::Given,  D::Sectors};
inline constexpr AtaCommand ReadLogExt                 = {"ataReadLogExt",                 0x2F, 0x00, kPioIn,  k48, C::Given,  D::Blocks};
inline constexpr AtaCommand WriteSectors               = {"ataWriteSectors",               0x30, 0x00, kPioOut, k28, C::Given,  D::Sectors};
inline constexpr AtaCommand WriteSectorsExt            = {"ataWriteSectorsExt",            0x34, 0x00, kPioOut, k48, C::Given,  D::Sectors};
inline constexpr AtaCommand WriteDmaExt                = {"ataWriteDmaExt",                0x35, 0x00, kDmaOut, k48, C::Given,  D::Sectors};
inline constexpr AtaCommand SetMaxAddressExt           = {"ataSetMaxAddressExt",           0x37, 0x00, kNone,   k48, C::Given,  D::None};
inline constexpr AtaCommand WriteMultipleExt           = {"ataWriteMultipleExt",           0x39, 0x00, kPioOut, k48, C::Given,  D::Sectors};
inline constexpr AtaCommand WriteDmaFuaExt             = {"ataWriteDmaFuaExt",             0x3D, 0x00, kDmaOut, k48, C::Given,  D::Sectors};
inline constexpr AtaCommand WriteLogExt                = {"ataWriteLogExt",                0x3F, 0x00, kPioOut, k48, C::Given,  D::Blocks};
inline constexpr AtaCommand ReadVerifySectors          = {"ataReadVerifySectors",          0x40, 0x00, kNone,   k28, C::Given,  D::None,    0,                  kNothing, kPaths,     Sectors};
inline constexpr AtaCommand ReadVerifySectorsExt       = {"ataReadVerifySectorsExt",       0x42, 0x00, kNone,   k48, C::Given,  D::None,    0,                  kNothing, kPaths,     Sectors};
inline constexpr AtaCommand WriteUncorrectableExt      = {"ataWriteUncorrectableExt",      0x45, 0x00, kNone,   k48, C::Given,  D::None};
inline constexpr AtaCommand ReadLogDmaExt              = {"ataReadLogDmaExt",              0x47, 0x00, kDmaIn,  k48, C::Given,  D::Blocks};
inline constexpr AtaCommand ConfigureStream            = {"ataConfigureStream",            0x51, 0x00, kNone,   k28, C::Given,  D::None,    0,                  kNothing, kPaths,     Block,        0x00};
inline constexpr AtaCommand WriteLogDmaExt             = {"ataWriteLogDmaExt",             0x57, 0x00, kDmaOut, k48, C::Given,  D::Blocks};
inline constexpr AtaCommand TrustedReceive             = {"ataTrustedReceive",             0x5C, 0x00, kPioIn,  k28, C::Split,  D::Blocks};
inline constexpr AtaCommand TrustedReceiveDma          = {"ataTrustedReceiveDma",          0x5D, 0x00, kDmaIn,  k28, C::Split,  D::Blocks};
inline constexpr AtaCommand TrustedSend                = {"ataTrustedSend",                0x5E, 0x00, kPioOut, k28, C::Split,  D::Blocks};
inline constexpr AtaCommand TrustedSendDma             = {"ataTrustedSendDma",             0x5F, 0x00, kDmaOut, k28, C::Split,  D::Blocks};
inline constexpr AtaCommand ReadFpdmaQueued            = {"ataReadFpdmaQueued",            0x60, 0x00, kDmaIn,  k48, C::Queued, D::Sectors};
inline constexpr AtaCommand WriteFpdmaQueued           = {"ataWriteFpdmaQueued",           0x61, 0x00, kDmaOut, k48, C::Queued, D::Sectors};
inline constexpr AtaCommand Seek                       = {"ataSeek",                       0x70, 0x00, kNone,   k28, C::Zero,   D::None};
inline constexpr AtaCommand SetDateTimeExt             = {"ataSetDateTimeExt",             0x77, 0x00, kNone,   k48, C::Zero,   D::None};
inline constexpr AtaCommand AccessibleMaxGetNative     = {"ataAccessibleMaxGetNative",     0x78, 0x00, kNone,   k48, C::Zero,   D::None,    0,                  kLba48};
inline constexpr AtaCommand AccessibleMaxSet           = {"ataAccessibleMaxSet",           0x78, 0x01, kNone,   k48, C::Zero,   D::None};
inline constexpr AtaCommand AccessibleMaxFreeze        = {"ataAccessibleMaxFreeze",        0x78, 0x02, kNone,   k28, C::Zero,   D::None};
inline constexpr AtaCommand ReadVendorExt              = {"ataReadVendorExt",              0x82, 0x01, kDmaIn,  k48, C::Given,  D::Sectors};
inline constexpr AtaCommand ReadVendor                 = {"ataReadVendor",                 0x83, 0x01, kDmaIn,  k28, C::Given,  D::Sectors};
inline constexpr AtaCommand DataSetManagementVendor    = {"ataDataSetManagementVendor",    0x84, 0x01, kDmaOut, k28, C::Given,  D::Blocks};
inline constexpr AtaCommand ExecuteDeviceDiagnostic    = {"ataExecuteDeviceDiagnostic",    0x90, 0x00, kNone,   k28, C::Zero,   D::None};
inline constexpr AtaCommand InitializeDeviceParameters = {"ataInitializeDeviceParameters", 0x91, 0x00, kPioOut, k28, C::Given,  D::Block};
inline constexpr AtaCommand DownloadMicrocode          = {"ataDownloadMicrocode",          0x92, 0x00, kPioOut, k28, C::Split,  D::Blocks};

inline constexpr AtaCommand SmartReadData              = {"ataSmartReadData",              0xB0, 0xD0, kPioIn,  k28, C::One,    D::Block,   kSmartKey};
inline constexpr AtaCommand SmartReadThresholds        = {"ataSmartReadThresholds",        0xB0, 0xD1, kPioIn,  k28, C::One,    D::Block,   kSmartKey};
inline constexpr AtaCommand SmartAttributeAutosave     = {"ataSmartAttributeAutosave",     0xB0, 0xD2, kNone,   k28, C::Given,  D::None,    kSmartKey};
inline constexpr AtaCommand SmartExecuteOffline        = {"ataSmartExecuteOffline",        0xB0, 0xD4, kNone,   k28, C::Zero,   D::None,    kSmartKey,          kNothing, kPaths,     CountedBlock};
inline constexpr AtaCommand SmartReadLog               = {"ataSmartReadLog",               0xB0, 0xD5, kPioIn,  k28, C::Given,  D::Blocks,  kSmartKey};
inline constexpr AtaCommand SmartWriteLog              = {"ataSmartWriteLog",              0xB0, 0xD6, kPioOut, k28, C::Given,  D::Blocks,  kSmartKey};
inline constexpr AtaCommand SmartEnableOperations      = {"ataSmartEnableOperations",      0xB0, 0xD8, kNone,   k28, C::Zero,   D::None,    kSmartKey,          kNothing, kPaths,     CountedBlock};
inline constexpr AtaCommand SmartDisableOperations     = {"ataSmartDisableOperations",     0xB0, 0xD9, kNone,   k28, C::Zero,   D::None,    kSmartKey,          kNothing, kPaths,     CountedBlock};
inline constexpr AtaCommand SmartReturnStatus          = {"ataSmartReturnStatus",          0xB0, 0xDA, kNone,   k28, C::Zero,   D::None,    kSmartKey,          kLba24,   kPaths,     CountedBlock};

inline constexpr AtaCommand DcoRestore                 = {"ataDcoRestore",                 0xB1, 0xC0, kNone,   k28, C::Zero,   D::None};
inline constexpr AtaCommand DcoFreezeLock              = {"ataDcoFreezeLock",              0xB1, 0xC1, kNone,   k28, C::Zero,   D::None};
inline constexpr AtaCommand DcoIdentify                = {"ataDcoIdentify",                0xB1, 0xC2, kPioIn,  k28, C::Zero,   D::Block};
inline constexpr AtaCommand DcoSet                     = {"ataDcoSet",                     0xB1, 0xC3, kPioOut, k28, C::Zero,   D::Block};
inline constexpr AtaCommand DcoIdentifyDma             = {"ataDcoIdentifyDma",             0xB1, 0xC4, kDmaIn,  k28, C::Zero,   D::Block};
inline constexpr AtaCommand DcoSetDma                  = {"ataDcoSetDma",                  0xB1, 0xC5, kDmaOut, k28, C::Zero,   D::Block};

// The Count register of the erasing ones has the failure mode in bit 4.
inline constexpr AtaCommand SanitizeStatus             = {"ataSanitizeStatus",             0xB4, 0x00, kDiag,   k48, C::Given,  D::None,    0,                  kLba24};
inline constexpr AtaCommand SanitizeCryptoScramble     = {"ataSanitizeCryptoScramble",     0xB4, 0x11, kDiag,   k48, C::Given,  D::None,    kCryptoScrambleKey};
inline constexpr AtaCommand SanitizeBlockErase         = {"ataSanitizeBlockErase",         0xB4, 0x12, kDiag,   k48, C::Given,  D::None,    kBlockEraseKey};
inline constexpr AtaCommand SanitizeOverwrite          = {"ataSanitizeOverwrite",          0xB4, 0x14, kDiag,   k48, C::Given,  D::None,    kOverwriteKey};
inline constexpr AtaCommand SanitizeFreezeLock         = {"ataSanitizeFreezeLock",         0xB4, 0x20, kDiag,   k48, C::Zero,   D::None,    kFreezeLockKey};
inline constexpr AtaCommand SanitizeAntifreezeLock     = {"ataSanitizeAntifreezeLock",     0xB4, 0x40, kDiag,   k48, C::Zero,   D::None,    kAntifreezeLockKey};

inline constexpr AtaCommand CfaEraseSectors            = {"ataCfaEraseSectors",            0xC0, 0x00, kNone,   k28, C::Given,  D::None};
inline constexpr AtaCommand ReadMultiple               = {"ataReadMultiple",               0xC4, 0x00, kPioIn,  k28, C::Given,  D::Sectors};
inline constexpr AtaCommand WriteMultiple              = {"ataWriteMultiple",              0xC5, 0x00, kPioOut, k28, C::Given,  D::Sectors};
inline constexpr AtaCommand SetMultipleMode            = {"ataSetMultipleMode",            0xC6, 0x00, kNone,   k28, C::Given,  D::None};
inline constexpr AtaCommand ReadDma                    = {"ataReadDma",                    0xC8, 0x00, kDmaIn,  k28, C::Given,  D::Sectors};
inline constexpr AtaCommand WriteDma                   = {"ataWriteDma",                   0xCA, 0x00, kDmaOut, k28, C::Given,  D::Sectors};
inline constexpr AtaCommand WriteMultipleFuaExt        = {"ataWriteMultipleFuaExt",        0xCE, 0x00, kPioOut, k48, C::Given,  D::Sectors};
inline constexpr AtaCommand StandbyImmediate           = {"ataStandbyImmediate",           0xE0, 0x00, kNone,   k28, C::One,    D::None,    0,                  kNothing, kSpinDown};
inline constexpr AtaCommand IdleImmediate              = {"ataIdleImmediate",              0xE1, 0x00, kNone,   k28, C::Zero,   D::None};
inline constexpr AtaCommand Standby                    = {"ataStandby",                    0xE2, 0x00, kNone,   k28, C::Given,  D::None};
inline constexpr AtaCommand Idle                       = {"ataIdle",                       0xE3, 0x00, kNone,   k28, C::Given,  D::None};
inline constexpr AtaCommand ReadBuffer                 = {"ataReadBuffer",                 0xE4, 0x00, kPioIn,  k28, C::One,    D::Block};
inline constexpr AtaCommand CheckPowerMode             = {"ataCheckPowerMode",             0xE5, 0x00, kNone,   k28, C::One,    D::None,    0,                  kLow};
inline constexpr AtaCommand Sleep                      = {"ataSleep",                      0xE6, 0x00, kNone,   k28, C::One,    D::None};
inline constexpr AtaCommand FlushCache                 = {"ataFlushCache",                 0xE7, 0x00, kNone,   k28, C::One,    D::None};
inline constexpr AtaCommand WriteBuffer                = {"ataWriteBuffer",                0xE8, 0x00, kPioOut, k28, C::One,    D::Block};
inline constexpr AtaCommand FlushCacheExt              = {"ataFlushCacheExt",              0xEA, 0x00, kNone,   k48, C::One,    D::None};
inline constexpr AtaCommand IdentifyDevice             = {"ataIdentifyDevice",             0xEC, 0x00, kPioIn,  k28, C::One,    D::Block};
inline constexpr AtaCommand SetFeatures                = {"ataSetFeatures",                0xEF, 0x00, kNone,   k28, C::Given,  D::None};
inline constexpr AtaCommand SecuritySetPassword        = {"ataSecuritySetPassword",        0xF1, 0x00, kPioOut, k28, C::One,    D::Block};
inline constexpr AtaCommand SecurityUnlock             = {"ataSecurityUnlock",             0xF2, 0x00, kPioOut, k28, C::One,    D::Block};
inline constexpr AtaCommand SecurityErasePrepare       = {"ataSecurityErasePrepare",       0xF3, 0x00, kNone,   k28, C::Zero,   D::None};
inline constexpr AtaCommand SecurityErasePrepareIde    = {"ataSecurityErasePrepare",       0xF3, 0x00, kPioIn,  k28, C::Zero,   D::Block};
inline constexpr AtaCommand SecurityEraseUnit          = {"ataSecurityEraseUnit",          0xF4, 0x00, kPioOut, k28, C::One,    D::Block,   0,                  kNothing, kWholeDrive};
inline constexpr AtaCommand SecurityFreezeLock         = {"ataSecurityFreezeLock",         0xF5, 0x00, kNone,   k28, C::Zero,   D::None};
inline constexpr AtaCommand SecurityDisablePassword    = {"ataSecurityDisablePassword",    0xF6, 0x00, kPioOut, k28, C::One,    D::Block};
inline constexpr AtaCommand ReadNativeMaxAddress       = {"ataReadNativeMaxAddress",       0xF8, 0x00, kNone,   k28, C::Zero,   D::None,    0,                  kLba24};
inline constexpr AtaCommand SetMaxAddress              = {"ataSetMaxAddress",              0xF9, 0x00, kNone,   k28, C::Given,  D::None};
// clang-format on

}  // namespace AtaRow

}  // namespace Morvu::DeviceManagement
