// SCSI operation codes (SPC-4, table 146; SBC-3, table 30), one row a code.
#pragma once

#include <cstdint>

namespace Morvu::DeviceManagement::ScsiOpcode {

// clang-format off
inline constexpr std::uint8_t TestUnitReady        = 0x00;
inline constexpr std::uint8_t RezeroUnit           = 0x01;
inline constexpr std::uint8_t RequestSense         = 0x03;
inline constexpr std::uint8_t FormatUnit           = 0x04;
inline constexpr std::uint8_t Read6                = 0x08;
inline constexpr std::uint8_t Write6               = 0x0A;
inline constexpr std::uint8_t Inquiry              = 0x12;
inline constexpr std::uint8_t StartStopUnit        = 0x1B;
inline constexpr std::uint8_t SendDiagnostic       = 0x1D;
inline constexpr std::uint8_t ReadCapacity10       = 0x25;
inline constexpr std::uint8_t Read10               = 0x28;
inline constexpr std::uint8_t Write10              = 0x2A;
inline constexpr std::uint8_t Verify10             = 0x2F;
inline constexpr std::uint8_t SynchronizeCache10   = 0x35;
inline constexpr std::uint8_t ReadDefectData10     = 0x37;
inline constexpr std::uint8_t WriteBuffer          = 0x3B;
inline constexpr std::uint8_t ReadBuffer           = 0x3C;
inline constexpr std::uint8_t ReadLong10           = 0x3E;
inline constexpr std::uint8_t WriteLong10          = 0x3F;
inline constexpr std::uint8_t Unmap                = 0x42;
inline constexpr std::uint8_t Sanitize             = 0x48;
inline constexpr std::uint8_t LogSense             = 0x4D;
inline constexpr std::uint8_t ModeSelect10         = 0x55;
inline constexpr std::uint8_t ModeSense10          = 0x5A;
inline constexpr std::uint8_t VariableLength       = 0x7F;
inline constexpr std::uint8_t Read16               = 0x88;
inline constexpr std::uint8_t CompareAndWrite      = 0x89;
inline constexpr std::uint8_t Write16              = 0x8A;
inline constexpr std::uint8_t SynchronizeCache16   = 0x91;
inline constexpr std::uint8_t ServiceActionIn16    = 0x9E;
inline constexpr std::uint8_t ServiceActionOut16   = 0x9F;
inline constexpr std::uint8_t SecurityProtocolIn   = 0xA2;
inline constexpr std::uint8_t Read12               = 0xA8;
inline constexpr std::uint8_t Write12              = 0xAA;
inline constexpr std::uint8_t SecurityProtocolOut  = 0xB5;
inline constexpr std::uint8_t ReadDefectData12     = 0xB7;
// clang-format on

}  // namespace Morvu::DeviceManagement::ScsiOpcode
