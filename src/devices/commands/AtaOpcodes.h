// ATA command codes and subcommands (ACS-3, tables 205 and 206; the older ones from
// ATA/ATAPI-7). One row a code, in the order of the codes.
#pragma once

#include <cstdint>

namespace Morvu::DeviceManagement::AtaOpcode {

// clang-format off
inline constexpr std::uint8_t Nop                        = 0x00;
inline constexpr std::uint8_t CfaRequestExtendedError    = 0x03;
inline constexpr std::uint8_t DataSetManagement          = 0x06;
inline constexpr std::uint8_t DeviceReset                = 0x08;
inline constexpr std::uint8_t RequestSenseDataExt        = 0x0B;
inline constexpr std::uint8_t Recalibrate                = 0x10;
inline constexpr std::uint8_t ReadSectors                = 0x20;
inline constexpr std::uint8_t ReadSectorsExt             = 0x24;
inline constexpr std::uint8_t ReadDmaExt                 = 0x25;
inline constexpr std::uint8_t ReadNativeMaxAddressExt    = 0x27;
inline constexpr std::uint8_t ReadMultipleExt            = 0x29;
inline constexpr std::uint8_t ReadLogExt                 = 0x2F;
inline constexpr std::uint8_t WriteSectors               = 0x30;
inline constexpr std::uint8_t WriteSectorsExt            = 0x34;
inline constexpr std::uint8_t WriteDmaExt                = 0x35;
inline constexpr std::uint8_t SetMaxAddressExt           = 0x37;
inline constexpr std::uint8_t WriteMultipleExt           = 0x39;
inline constexpr std::uint8_t WriteDmaFuaExt             = 0x3D;
inline constexpr std::uint8_t WriteLogExt                = 0x3F;
inline constexpr std::uint8_t ReadVerifySectors          = 0x40;
inline constexpr std::uint8_t ReadVerifySectorsExt       = 0x42;
inline constexpr std::uint8_t WriteUncorrectableExt      = 0x45;
inline constexpr std::uint8_t ReadLogDmaExt              = 0x47;
inline constexpr std::uint8_t ConfigureStream            = 0x51;
inline constexpr std::uint8_t WriteLogDmaExt             = 0x57;
inline constexpr std::uint8_t TrustedReceive             = 0x5C;
inline constexpr std::uint8_t TrustedReceiveDma          = 0x5D;
inline constexpr std::uint8_t TrustedSend                = 0x5E;
inline constexpr std::uint8_t TrustedSendDma             = 0x5F;
inline constexpr std::uint8_t ReadFpdmaQueued            = 0x60;
inline constexpr std::uint8_t WriteFpdmaQueued           = 0x61;
inline constexpr std::uint8_t Seek                       = 0x70;
inline constexpr std::uint8_t SetDateTimeExt             = 0x77;
inline constexpr std::uint8_t AccessibleMaxAddress       = 0x78;
inline constexpr std::uint8_t ReadVendorExt              = 0x82;
inline constexpr std::uint8_t ReadVendor                 = 0x83;
inline constexpr std::uint8_t DataSetManagementVendor    = 0x84;
inline constexpr std::uint8_t ExecuteDeviceDiagnostic    = 0x90;
inline constexpr std::uint8_t InitializeDeviceParameters = 0x91;
inline constexpr std::uint8_t DownloadMicrocode          = 0x92;
inline constexpr std::uint8_t Smart                      = 0xB0;
inline constexpr std::uint8_t DeviceConfiguration        = 0xB1;
inline constexpr std::uint8_t SanitizeDevice             = 0xB4;
inline constexpr std::uint8_t CfaEraseSectors            = 0xC0;
inline constexpr std::uint8_t ReadMultiple               = 0xC4;
inline constexpr std::uint8_t WriteMultiple              = 0xC5;
inline constexpr std::uint8_t SetMultipleMode            = 0xC6;
inline constexpr std::uint8_t ReadDma                    = 0xC8;
inline constexpr std::uint8_t WriteDma                   = 0xCA;
inline constexpr std::uint8_t WriteMultipleFuaExt        = 0xCE;
inline constexpr std::uint8_t StandbyImmediate           = 0xE0;
inline constexpr std::uint8_t IdleImmediate              = 0xE1;
inline constexpr std::uint8_t Standby                    = 0xE2;
inline constexpr std::uint8_t Idle                       = 0xE3;
inline constexpr std::uint8_t ReadBuffer                 = 0xE4;
inline constexpr std::uint8_t CheckPowerMode             = 0xE5;
inline constexpr std::uint8_t Sleep                      = 0xE6;
inline constexpr std::uint8_t FlushCache                 = 0xE7;
inline constexpr std::uint8_t WriteBuffer                = 0xE8;
inline constexpr std::uint8_t FlushCacheExt              = 0xEA;
inline constexpr std::uint8_t IdentifyDevice             = 0xEC;
inline constexpr std::uint8_t SetFeatures                = 0xEF;
inline constexpr std::uint8_t SecuritySetPassword        = 0xF1;
inline constexpr std::uint8_t SecurityUnlock             = 0xF2;
inline constexpr std::uint8_t SecurityErasePrepare       = 0xF3;
inline constexpr std::uint8_t SecurityEraseUnit          = 0xF4;
inline constexpr std::uint8_t SecurityFreezeLock         = 0xF5;
inline constexpr std::uint8_t SecurityDisablePassword    = 0xF6;
inline constexpr std::uint8_t ReadNativeMaxAddress       = 0xF8;
inline constexpr std::uint8_t SetMaxAddress              = 0xF9;
// clang-format on

}  // namespace Morvu::DeviceManagement::AtaOpcode

// Subcommands in the Features register of SMART (ATA8-ACS, 7.52).
namespace Morvu::DeviceManagement::SmartFeature {

// clang-format off
inline constexpr std::uint8_t ReadData          = 0xD0;
inline constexpr std::uint8_t ReadThresholds    = 0xD1;
inline constexpr std::uint8_t AttributeAutosave = 0xD2;
inline constexpr std::uint8_t ExecuteOffline    = 0xD4;
inline constexpr std::uint8_t ReadLog           = 0xD5;
inline constexpr std::uint8_t WriteLog          = 0xD6;
inline constexpr std::uint8_t EnableOperations  = 0xD8;
inline constexpr std::uint8_t DisableOperations = 0xD9;
inline constexpr std::uint8_t ReturnStatus      = 0xDA;
// clang-format on

}  // namespace Morvu::DeviceManagement::SmartFeature

// Subcommands in the Features register of SANITIZE DEVICE, and the keys that stand
// in its LBA (ACS-3, 7.36).
namespace Morvu::DeviceManagement::SanitizeFeature {

// clang-format off
inline constexpr std::uint8_t Status         = 0x00;
inline constexpr std::uint8_t CryptoScramble = 0x11;
inline constexpr std::uint8_t BlockErase     = 0x12;
inline constexpr std::uint8_t Overwrite      = 0x14;
inline constexpr std::uint8_t FreezeLock     = 0x20;
inline constexpr std::uint8_t AntifreezeLock = 0x40;

inline constexpr std::uint32_t CryptoScrambleKey = 0x43727970;  // "Cryp"
inline constexpr std::uint32_t BlockEraseKey     = 0x426B4572;  // "BkEr"
inline constexpr std::uint16_t OverwriteKey      = 0x4F57;      // "OW"
inline constexpr std::uint32_t FreezeLockKey     = 0x46724C6B;  // "FrLk"
inline constexpr std::uint32_t AntifreezeLockKey = 0x416E7469;  // "Anti"
// clang-format on

}  // namespace Morvu::DeviceManagement::SanitizeFeature

// Subcommands of DEVICE CONFIGURATION OVERLAY (ATA8-ACS, 7.9) and of ACCESSIBLE MAX
// ADDRESS CONFIGURATION (ACS-3, 7.2).
namespace Morvu::DeviceManagement::ConfigurationFeature {

// clang-format off
inline constexpr std::uint8_t DcoRestore          = 0xC0;
inline constexpr std::uint8_t DcoFreezeLock       = 0xC1;
inline constexpr std::uint8_t DcoIdentify         = 0xC2;
inline constexpr std::uint8_t DcoSet              = 0xC3;
inline constexpr std::uint8_t DcoIdentifyDma      = 0xC4;
inline constexpr std::uint8_t DcoSetDma           = 0xC5;
inline constexpr std::uint8_t AccessibleGetNative = 0x00;
inline constexpr std::uint8_t AccessibleSet       = 0x01;
inline constexpr std::uint8_t AccessibleFreeze    = 0x02;
// clang-format on

}  // namespace Morvu::DeviceManagement::ConfigurationFeature
