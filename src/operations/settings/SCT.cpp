#include "operations/settings/SCT.h"

#include <algorithm>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/identification/Products.h"
#include "devices/properties/AdapterProperties.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "operations/Operation.h"

namespace Morvu {

using DeviceManagement::AtaAnswer;
using DeviceManagement::CommandSet_ATA;
using DeviceManagement::Device;
namespace AtaRow = DeviceManagement::AtaRow;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

namespace {

constexpr std::uint8_t kCommandLog = 0xE0;  // and the status, when it is read
constexpr std::uint8_t kDataLog = 0xE1;

// Of the status sector (ACS-3, table 202).
constexpr std::size_t kFormatVersion = 0;
constexpr std::size_t kExtendedStatus = 14;
constexpr std::size_t kLastAction = 16, kLastFunction = 18;
constexpr std::uint16_t kOldestFormat = 2, kNewestFormat = 3;

struct SctStatusText {
  std::uint16_t status;
  std::string_view text;
};

// clang-format off
constexpr SctStatusText kSctStatusTexts[] = {
    {0x0000, "Command complete without error"},
    {0x0001, "Invalid function code"},
    {0x0002, "Input LBA out of range"},
    {0x0003, "Request for more blocks than there are"},
    {0x0004, "Invalid function code in the error recovery control action"},
    {0x0005, "Invalid selection code in the error recovery control action"},
    {0x0006, "Read command timer below its minimum"},
    {0x0007, "Write command timer below its minimum"},
    {0x0008, "Background action ended by an interrupting command"},
    {0x0009, "Background action ended by an unrecoverable error"},
    {0x000B, "Data transfer without an action before it"},
    {0x000C, "Invalid function code in the feature control action"},
    {0x000D, "Invalid feature code in the feature control action"},
    {0x000E, "Invalid state value in the feature control action"},
    {0x000F, "Invalid option flags in the feature control action"},
    {0x0010, "Invalid action code"},
    {0x0011, "Invalid table identifier"},
    {0x0012, "Aborted: the device is locked"},
    {0x0013, "Invalid revision code in the key"},
    {0x0014, "Foreground action ended by an unrecoverable error"},
    {0x0015, "The last command met its error recovery timer"},
    {0xFFFF, "An action is being carried out in the background"},
};
// clang-format on
static_assert(std::ranges::is_sorted(kSctStatusTexts, {}, &SctStatusText::status));

}  // namespace

std::string DescribeSctStatus(std::uint16_t status) {
  const auto row = std::ranges::lower_bound(kSctStatusTexts, status, {}, &SctStatusText::status);
  const bool isKnown = row != std::end(kSctStatusTexts) && row->status == status;
  const bool isVendors = status >= 0xC000 && status < 0xFFF0;
  const auto text = isKnown ? row->text : isVendors ? "Vendor specific" : "Reserved";
  return "SCT status 0x" + ToHexNumber(status, 4) + " (" + std::string(text) + ")";
}

std::vector<std::uint8_t> ReadSctStatus(Device& device) {
  auto* ata = device.GetCommandSetAs<CommandSet_ATA>(Protocol::Ata);
  if (ata == nullptr) return {};
  std::vector<std::uint8_t> sector(SCT::kSectorSize);
  if (ata->Send(AtaRow::SmartReadLog, {.lba = kCommandLog, .count = 1}, sector) !=
      Status::Completed) {
    return {};
  }
  // Behind a SATA layer nothing else tells that the sector has come.
  const auto format = ReadLittle16(sector, kFormatVersion);
  if (format < kOldestFormat || format > kNewestFormat) return {};
  return sector;
}

struct SCT::Rules {
  static bool Nvme(SCT& sct) { return sct.device_->HasCommandSet(Protocol::Nvme); }

  // clang-format off
  static constexpr Refusal<SCT> kTable[] = {
      {OfDevice<Refuse::NotConnected>,    Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>,      Status::RaidVolume},
      {OfDevice<Refuse::DeviceFault>,     Status::DeviceFault},
      {OfDevice<Refuse::Foreign>,         Status::NotAMorvuDrive},
      {Nvme,                              Status::NotSupportedByDrive},
      {OfDevice<Refuse::NoAta>,           Status::NoAtaDriver},
      {OfDevice<Refuse::FailureReported>, Status::DisableLogical},
  };
  // clang-format on
};

SCT::SCT(Device* device, std::uint16_t actionCode, std::uint16_t functionCode, Answer answer,
         ProgressReporter& reporter, std::size_t dataSectors)
    : Function(device, reporter),
      actionCode_(actionCode),
      functionCode_(functionCode),
      answer_(answer),
      dataBuffer_(dataSectors * kSectorSize) {}

StatusCode SCT::FindRefusal() { return FirstRefusal<SCT>(Rules::kTable, *this); }

void SCT::Initialize() {
  auto code = FindRefusal();
  if (code == Status::ReadyToRun && !DeviceManagement::ProductOf(*device_).hasOemAttributes) {
    code = Status::NotSupportedByDrive;
  }
  EndInitialize(code);
}

std::int32_t SCT::Execute() {
  bytesRead_ = 0;
  if (!BeginExecute()) return false;
  if (!WriteKeySector() || !TakeValue() || !ReadData()) return false;
  MORVU_LOG(kLogInfo, "Execute", "Passed.");
  End(Status::Completed);
  return true;
}

bool SCT::WriteKeySector() {
  SetWord(0, actionCode_);
  SetWord(2, functionCode_);
  const auto result =
      ata_->Send(AtaRow::SmartWriteLog, {.lba = kCommandLog, .count = 1}, keySector_);
  if (result == Status::Completed) return true;
  NoteRefusal();
  return Fail("Write SMART Log command failed.", Status::SmartWriteLogFailed);
}

void SCT::NoteRefusal() {
  const auto sector = ReadSctStatus(*device_);
  if (sector.empty()) return;
  const auto status = ReadLittle16(sector, kExtendedStatus);
  // It may be of an earlier action, when this one has not come to the drive.
  const bool isOwn = ReadLittle16(sector, kLastAction) == actionCode_ &&
                     ReadLittle16(sector, kLastFunction) == functionCode_;
  if (!isOwn || status == 0) return;
  MORVU_LOG(kLogError, "Execute", DescribeSctStatus(status));
  Tell({false, DescribeSctStatus(status)});
}

// Count 7:0 and LBA 7:0. What did not come back is no value.
bool SCT::TakeValue() {
  if (answer_ == Answer::None) return true;
  const auto& registers = ata_->GetAnswer();
  if (!registers.Has(AtaAnswer::kLow)) {
    return Fail("The registers of the answer did not come back.", Status::AtaCommandFailed);
  }
  transferValue_ =
      static_cast<std::uint16_t>((registers.lba & 0xFF) << 8 | (registers.count & 0xFF));
  return true;
}

bool SCT::ReadData() {
  if (answer_ != Answer::Data) return true;
  const auto wanted = std::size_t{transferValue_} * kSectorSize;
  for (const auto end = std::min(wanted, dataBuffer_.size()); bytesRead_ < end;
       bytesRead_ += kSectorSize) {
    const auto sector = ByteSpan(dataBuffer_).subspan(bytesRead_, kSectorSize);
    if (ata_->Send(AtaRow::SmartReadLog, {.lba = kDataLog, .count = 1}, sector) !=
        Status::Completed) {
      return Fail("Read SMART Log command failed.", Status::SmartReadLogFailed);
    }
  }
  return true;
}

bool SCT::Fail(std::string_view text, StatusCode code) {
  MORVU_LOG(kLogError, "Execute", text);
  End(code);
  return false;
}

// ---- The actions of the standard ----

namespace {

constexpr std::uint16_t kErrorRecoveryAction = 3;
constexpr std::uint16_t kFeatureControlAction = 4;
constexpr std::uint16_t kDataTableAction = 5;
constexpr std::uint16_t kSet = 1, kGet = 2, kReadTable = 1;  // function codes

// Places in the key sector.
constexpr std::size_t kSelector = 4, kState = 6, kOptions = 8;

}  // namespace

SCT_Error_Recovery_Control::SCT_Error_Recovery_Control(Device* device, SctTimer timer,
                                                       ProgressReporter& reporter)
    : SCT(device, kErrorRecoveryAction, kGet, Answer::Value, reporter) {
  SetWord(kSelector, static_cast<std::uint16_t>(timer));
  SCT::Initialize();
}

SCT_Error_Recovery_Control::SCT_Error_Recovery_Control(Device* device, SctTimer timer,
                                                       std::uint16_t value,
                                                       ProgressReporter& reporter)
    : SCT(device, kErrorRecoveryAction, kSet, Answer::None, reporter) {
  SetWord(kSelector, static_cast<std::uint16_t>(timer));
  SetWord(kState, value);
  SCT::Initialize();
}

SCT_Feature_Control::SCT_Feature_Control(Device* device, const SctFeature& feature, SctGet what,
                                         ProgressReporter& reporter)
    : SCT(device, kFeatureControlAction, static_cast<std::uint16_t>(what), Answer::Value,
          reporter) {
  SetWord(kSelector, feature.code);
  SCT::Initialize();
}

SCT_Feature_Control::SCT_Feature_Control(Device* device, const SctFeature& feature,
                                         std::uint16_t state, SctKept kept,
                                         ProgressReporter& reporter)
    : SCT(device, kFeatureControlAction, kSet, Answer::None, reporter) {
  SetWord(kSelector, feature.code);
  SetWord(kState, state);
  if (feature.hasOptions) SetWord(kOptions, static_cast<std::uint16_t>(kept));
  SCT::Initialize();
}

SCT_Data_Tables::SCT_Data_Tables(Device* device, std::uint16_t tableId, ProgressReporter& reporter)
    : SCT(device, kDataTableAction, kReadTable, Answer::Data, reporter, 1) {
  SetWord(kSelector, tableId);
  SCT::Initialize();
}

}  // namespace Morvu
