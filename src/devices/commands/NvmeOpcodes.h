// NVMe opcodes (NVMe 1.0, figures 10, 12 and 99; later ones from NVMe 1.2). One row a code.
#pragma once

#include <cstdint>

namespace Morvu::DeviceManagement::AdminOpcode {

// clang-format off
inline constexpr std::uint8_t DeleteIOSubmissionQueue    = 0x00;
inline constexpr std::uint8_t CreateIOSubmissionQueue    = 0x01;
inline constexpr std::uint8_t GetLogPage                 = 0x02;
inline constexpr std::uint8_t DeleteIOCompletionQueue    = 0x04;
inline constexpr std::uint8_t CreateIOCompletionQueue    = 0x05;
inline constexpr std::uint8_t Identify                   = 0x06;
inline constexpr std::uint8_t Abort                      = 0x08;
inline constexpr std::uint8_t SetFeatures                = 0x09;
inline constexpr std::uint8_t GetFeatures                = 0x0A;
inline constexpr std::uint8_t AsynchronousEventRequest   = 0x0C;
inline constexpr std::uint8_t NamespaceManagement        = 0x0D;
inline constexpr std::uint8_t FirmwareActivate           = 0x10;
inline constexpr std::uint8_t FirmwareImageDownload      = 0x11;
inline constexpr std::uint8_t NamespaceAttachment        = 0x15;
inline constexpr std::uint8_t FormatNVM                  = 0x80;
inline constexpr std::uint8_t SecuritySend               = 0x81;
inline constexpr std::uint8_t SecurityReceive            = 0x82;
inline constexpr std::uint8_t TestCmdWrite               = 0xE1;
inline constexpr std::uint8_t TestCmdRead                = 0xE2;
// clang-format on

}  // namespace Morvu::DeviceManagement::AdminOpcode

namespace Morvu::DeviceManagement::NvmOpcode {

// clang-format off
inline constexpr std::uint8_t Flush                      = 0x00;
inline constexpr std::uint8_t WriteUncorrectable         = 0x04;
inline constexpr std::uint8_t Compare                    = 0x05;
inline constexpr std::uint8_t WriteZeroes                = 0x08;
inline constexpr std::uint8_t DatasetManagement          = 0x09;
inline constexpr std::uint8_t ReservationRegister        = 0x0D;
inline constexpr std::uint8_t ReservationReport          = 0x0E;
inline constexpr std::uint8_t ReservationAcquire         = 0x11;
inline constexpr std::uint8_t ReservationRelease         = 0x15;
// clang-format on

}  // namespace Morvu::DeviceManagement::NvmOpcode
