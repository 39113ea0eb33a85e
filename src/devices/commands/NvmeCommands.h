// The NVMe commands, a row each, and the arguments that a row takes (NVMe 1.0, sections 5
// and 6; the later ones NVMe 1.2).
#pragma once

#include <chrono>
#include <cstdint>
#include <span>

#include "devices/commands/CommandRecords.h"

namespace Morvu::DeviceManagement {

// The arguments of one command. Counts count: the records' fields that are one less are
// made of them.
struct NvmeArguments {
  std::uint32_t nsid = 0;
  std::uint32_t cdw2 = 0;
  std::uint64_t lba = 0;     // stands in cdw10 and cdw11
  std::uint32_t blocks = 0;  // logical blocks
  std::uint32_t dwords = 0;  // of data
  std::uint32_t length = 0;  // of data, in bytes
  std::uint32_t offset = 0;  // in dwords
  std::uint32_t logId = 0;
  std::uint32_t cns = 0;
  std::uint32_t featureId = 0;
  std::uint32_t select = 0;
  std::uint32_t value11 = 0;  // cdw11 to cdw13 as they are
  std::uint32_t value12 = 0;
  std::uint32_t value13 = 0;
  std::uint32_t qid = 0;
  std::uint32_t cqid = 0;
  std::uint32_t qsize = 0;  // zero-based, as the register is
  std::uint32_t vector = 0;
  std::uint32_t priority = 0;
  std::uint32_t contiguous = 0;
  std::uint32_t interrupts = 0;
  std::uint32_t commandId = 0;
  std::uint32_t slot = 0;
  std::uint32_t action = 0;
  std::uint32_t lbaFormat = 0;
  std::uint32_t metadata = 0;
  std::uint32_t protection = 0;
  std::uint32_t protectionLocation = 0;
  std::uint32_t secureErase = 0;
  std::uint32_t protocol = 0;
  std::uint32_t protocolSpecific = 0;
  std::uint32_t prinfo = 0;
  std::uint32_t fua = 0;
  std::uint32_t limitedRetry = 0;
  std::uint32_t referenceTag = 0;
  std::uint32_t applicationTag = 0;
  std::uint32_t applicationMask = 0;
  std::uint32_t ranges = 0;
  std::uint32_t integralRead = 0;
  std::uint32_t integralWrite = 0;
  std::uint32_t deallocate = 0;
  std::uint32_t persistThroughPowerLoss = 0;
  std::uint32_t ignoreKey = 0;
  std::uint32_t reservationAction = 0;
  std::uint32_t reservationType = 0;
};

enum class NvmeBase : std::uint8_t {
  Zero,
  One,  // the field is one less than the count
};

// Where an argument stands: `width` bits of dword `dword` from bit `low` on.
struct NvmeField {
  std::uint32_t NvmeArguments::*argument;
  std::uint8_t dword;  // 10 to 15
  std::uint8_t low;
  std::uint8_t width;
  NvmeBase base = NvmeBase::Zero;
};

// How many bytes move.
enum class NvmeLength : std::uint8_t {
  None,
  Page,     // 4,096
  Dwords,   // `dwords` times 4
  Bytes,    // `length`
  Blocks,   // `blocks` times 512, whatever the format
  Ranges,   // `ranges` times 16
  Key,      // a reservation key: 8
  TwoKeys,  // 16
};

struct NvmeCommand {
  const char* name;
  std::uint8_t opcode;
  std::uint8_t direction;  // told to the path: 2 to and 4 from the controller, 1 and 3 the
                           // same of the NVM command set
  NvmeLength length;
  std::span<const NvmeField> fields;
  std::chrono::seconds timeout{0};  // 0: the kernel's
};

namespace NvmeRow {

inline constexpr std::chrono::seconds kKernels{0};
inline constexpr std::chrono::seconds kFirmware{200};
inline constexpr std::chrono::seconds kWholeDrive{7200};

namespace Fields {
using A = NvmeArguments;
// clang-format off
inline constexpr NvmeField Queue[]             = {{&A::qid, 10, 0, 16}};
inline constexpr NvmeField CreateSubmission[]  = {{&A::qid, 10, 0, 16}, {&A::qsize, 10, 16, 16}, {&A::contiguous, 11, 0, 1}, {&A::priority, 11, 1, 2}, {&A::cqid, 11, 16, 16}};
inline constexpr NvmeField CreateCompletion[]  = {{&A::qid, 10, 0, 16}, {&A::qsize, 10, 16, 16}, {&A::contiguous, 11, 0, 1}, {&A::interrupts, 11, 1, 1}, {&A::vector, 11, 16, 16}};
inline constexpr NvmeField LogPage[]           = {{&A::logId, 10, 0, 8}, {&A::dwords, 10, 16, 12, NvmeBase::One}};
inline constexpr NvmeField Identify[]          = {{&A::cns, 10, 0, 8}};
inline constexpr NvmeField Abort[]             = {{&A::qid, 10, 0, 16}, {&A::commandId, 10, 16, 16}};
inline constexpr NvmeField Feature[]           = {{&A::featureId, 10, 0, 8}, {&A::value11, 11, 0, 32}, {&A::value12, 12, 0, 32}};
inline constexpr NvmeField Select[]            = {{&A::select, 10, 0, 4}};
inline constexpr NvmeField Activate[]          = {{&A::slot, 10, 0, 3}, {&A::action, 10, 3, 2}};
inline constexpr NvmeField Download[]          = {{&A::dwords, 10, 0, 32, NvmeBase::One}, {&A::offset, 11, 0, 32}};
inline constexpr NvmeField Format[]            = {{&A::lbaFormat, 10, 0, 4}, {&A::metadata, 10, 4, 1}, {&A::protection, 10, 5, 3}, {&A::protectionLocation, 10, 8, 1}, {&A::secureErase, 10, 9, 3}};
inline constexpr NvmeField Security[]          = {{&A::protocolSpecific, 10, 8, 16}, {&A::protocol, 10, 24, 8}, {&A::length, 11, 0, 32}};
inline constexpr NvmeField Test[]              = {{&A::dwords, 10, 0, 32}, {&A::value11, 11, 0, 32}, {&A::value12, 12, 0, 32}, {&A::value13, 13, 0, 8}};
inline constexpr NvmeField VendorLog[]         = {{&A::dwords, 10, 0, 32}, {&A::logId, 12, 0, 2}, {&A::offset, 13, 0, 32}};
inline constexpr NvmeField Uncorrectable[]     = {{&A::blocks, 12, 0, 16, NvmeBase::One}};
inline constexpr NvmeField Compare[]           = {{&A::blocks, 12, 0, 16, NvmeBase::One}, {&A::prinfo, 12, 26, 4}, {&A::fua, 12, 30, 1}, {&A::limitedRetry, 12, 31, 1}, {&A::referenceTag, 14, 0, 32}, {&A::applicationTag, 15, 0, 16}, {&A::applicationMask, 15, 16, 16}};
inline constexpr NvmeField Zeroes[]            = {{&A::blocks, 12, 0, 16, NvmeBase::One}, {&A::prinfo, 12, 26, 4}, {&A::fua, 12, 30, 1}, {&A::limitedRetry, 12, 31, 1}, {&A::referenceTag, 14, 0, 32}, {&A::applicationMask, 15, 0, 16}, {&A::applicationTag, 15, 16, 16}};
inline constexpr NvmeField Dataset[]           = {{&A::ranges, 10, 0, 8, NvmeBase::One}, {&A::integralRead, 11, 0, 1}, {&A::integralWrite, 11, 1, 1}, {&A::deallocate, 11, 2, 1}};
inline constexpr NvmeField Register[]          = {{&A::reservationAction, 10, 0, 3}, {&A::ignoreKey, 10, 3, 1}, {&A::persistThroughPowerLoss, 10, 30, 2}};
inline constexpr NvmeField Report[]            = {{&A::dwords, 10, 0, 32}};
inline constexpr NvmeField Reserve[]           = {{&A::reservationAction, 10, 0, 3}, {&A::ignoreKey, 10, 3, 1}, {&A::reservationType, 10, 8, 2}};
// clang-format on
}  // namespace Fields

// clang-format off
// Admin commands                                  name                           code dir length              fields                     time-out
inline constexpr NvmeCommand DeleteIOSubmissionQueue = {"nvmeDeleteIOSubmissionQueue", 0x00, 0, NvmeLength::None,    Fields::Queue};
inline constexpr NvmeCommand CreateIOSubmissionQueue = {"nvmeCreateIOSubmissionQueue", 0x01, 2, NvmeLength::None,    Fields::CreateSubmission};
inline constexpr NvmeCommand GetLogPage              = {"nvmeGetLogPage",              0x02, 4, NvmeLength::Dwords,  Fields::LogPage};
inline constexpr NvmeCommand DeleteIOCompletionQueue = {"nvmeDeleteIOCompletionQueue", 0x04, 0, NvmeLength::None,    Fields::Queue};
inline constexpr NvmeCommand CreateIOCompletionQueue = {"nvmeCreateIOCompletionQueue", 0x05, 2, NvmeLength::None,    Fields::CreateCompletion};
inline constexpr NvmeCommand Identify                = {"nvmeIdentify",                0x06, 4, NvmeLength::Page,    Fields::Identify};
inline constexpr NvmeCommand Abort                   = {"nvmeAbort",                   0x08, 0, NvmeLength::None,    Fields::Abort};
inline constexpr NvmeCommand SetFeatures             = {"nvmeSetFeatures",             0x09, 2, NvmeLength::Dwords,  Fields::Feature};
inline constexpr NvmeCommand GetFeatures             = {"nvmeGetFeatures",             0x0A, 4, NvmeLength::Dwords,  Fields::Feature};
inline constexpr NvmeCommand NamespaceManagement     = {"nvmeNamespaceManagement",     0x0D, 2, NvmeLength::Page,    Fields::Select};
inline constexpr NvmeCommand FirmwareActivate        = {"nvmeFirmwareActivate",        0x10, 0, NvmeLength::None,    Fields::Activate,          kFirmware};
inline constexpr NvmeCommand FirmwareImageDownload   = {"nvmeFirmwareImageDownload",   0x11, 2, NvmeLength::Dwords,  Fields::Download,          kFirmware};
inline constexpr NvmeCommand NamespaceAttachment     = {"nvmeNamespaceAttachment",     0x15, 2, NvmeLength::Page,    Fields::Select};
inline constexpr NvmeCommand FormatNVM               = {"nvmeFormatNVM",               0x80, 0, NvmeLength::None,    Fields::Format,            kWholeDrive};
inline constexpr NvmeCommand SecuritySend            = {"nvmeSecuritySend",            0x81, 2, NvmeLength::Bytes,   Fields::Security};
inline constexpr NvmeCommand SecurityReceive         = {"nvmeSecurityReceive",         0x82, 4, NvmeLength::Bytes,   Fields::Security};
inline constexpr NvmeCommand ReadVendorLog           = {"nvmeVendorSpecific",          0xD2, 4, NvmeLength::Dwords,  Fields::VendorLog};
inline constexpr NvmeCommand TestCmdWrite            = {"nvmeTestCmdWrite",            0xE1, 2, NvmeLength::Dwords,  Fields::Test};
inline constexpr NvmeCommand TestCmdRead             = {"nvmeTestCmdRead",             0xE2, 4, NvmeLength::Dwords,  Fields::Test};

// NVM commands, sent through the admin record
inline constexpr NvmeCommand Flush                   = {"nvmeFlush",                   0x00, 1, NvmeLength::None,    {}};
inline constexpr NvmeCommand WriteUncorrectable      = {"nvmeWriteUncorrectable",      0x04, 1, NvmeLength::None,    Fields::Uncorrectable};
inline constexpr NvmeCommand Compare                 = {"nvmeCompare",                 0x05, 3, NvmeLength::Blocks,  Fields::Compare};
inline constexpr NvmeCommand WriteZeroes             = {"nvmeWriteZeroes",             0x08, 1, NvmeLength::None,    Fields::Zeroes};
inline constexpr NvmeCommand DatasetManagement       = {"nvmeDatasetManagement",       0x09, 3, NvmeLength::Ranges,  Fields::Dataset};
inline constexpr NvmeCommand ReservationRegister     = {"nvmeReservationRegister",     0x0D, 2, NvmeLength::TwoKeys, Fields::Register};
inline constexpr NvmeCommand ReservationReport       = {"nvmeReservationReport",       0x0E, 4, NvmeLength::Dwords,  Fields::Report};
inline constexpr NvmeCommand ReservationAcquire      = {"nvmeReservationAcquire",      0x11, 2, NvmeLength::TwoKeys, Fields::Reserve};
inline constexpr NvmeCommand ReservationRelease      = {"nvmeReservationRelease",      0x15, 2, NvmeLength::Key,     Fields::Reserve};
// clang-format on

}  // namespace NvmeRow

}  // namespace Morvu::DeviceManagement
