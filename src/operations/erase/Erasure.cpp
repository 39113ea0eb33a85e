#include "operations/erase/Erasure.h"

#include <algorithm>
#include <string>
#include <vector>

#include "devices/properties/BasicProperties.h"
#include "devices/system/SystemFacts.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Erase.h"
#include "frame/status/Partitions.h"
#include "frame/status/Testing.h"
#include "operations/erase/EraseEnd.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::DiskUse;
namespace Properties = DeviceManagement::Properties;

bool Erasure::BeginErase(const char* file, int line) {
  if (!BeginExecute(file, line)) return false;
  if (IsPermitted()) return true;
  End(Status::NoCommunication);
  return false;
}

StatusCode Erasure::LookForPartitions() {
  if (partitions_) return *partitions_;
  const auto now = DeviceManagement::FindPartitionsNow(device_->GetPath().GetDevicePath());
  const bool isNone = now && now->empty() && device_->GetPartitions().empty();
  partitions_ = !now     ? Status::PartitionCheckFailed
                : isNone ? Status::NoPartition
                         : Status::HasPartition;
  return *partitions_;
}

namespace {

// Texts of the drive and names of folders may hold anything; a line of the question is a line.
std::string OnOneLine(std::string text) {
  constexpr std::string_view kMarks = "~<>\x7f";
  std::ranges::replace_if(
      text,
      [&](char c) { return static_cast<unsigned char>(c) < ' ' || kMarks.find(c) != kMarks.npos; },
      '?');
  return text;
}

// A person has to see all that stands against an erase before the answer.
std::string DescribeErase(const Erasure& erase, const ErasePermit& permit) {
  const auto& device = *erase.GetDevice();
  auto nodes = permit.GetNodes();
  if (nodes.empty()) nodes.push_back(device.GetString(Properties::DevicePath));
  std::vector<std::string> lines = {
      "Model: " + device.GetString(Properties::ModelNumber),
      "Serial number: " + device.GetString(Properties::SerialNumber),
      "Device: " + Join(nodes, ", "),
  };
  for (auto& line : permit.GetUse().Describe()) lines.push_back(std::move(line));
  const auto duration = erase.GetDuration(permit.GetIdentity());
  lines.push_back(duration ? "The drive says that it takes " + std::to_string(duration->count()) +
                                 " minutes."
                           : "The drive does not say how long it takes.");
  for (auto& line : lines) line = OnOneLine(std::move(line));
  return Join(lines, "\n");
}

void TellLines(Face& face, const DiskUse& use) {
  for (auto& line : use.Describe()) face.Say(OnOneLine(std::move(line)));
}

// The partitions of a scan count as well, those of a volume's system too.
DiskUse AddKnown(DiskUse use, const Device& device) {
  for (const auto& partition : device.GetPartitions()) {
    const auto known =
        std::ranges::find(use.parts, partition.GetName(), &DeviceManagement::DiskPart::node);
    if (known != use.parts.end()) {
      known->isSystem = known->isSystem || partition.IsOsPartition();
    } else {
      use.parts.push_back({partition.GetName(), {}, partition.IsOsPartition()});
    }
  }
  return use;
}

bool IsGiven(StatusCode code) { return code == Status::ReadyToRun || code == Status::HasPartition; }

// The code of a permit that is one, for a face that forces or not.
StatusCode JudgePermit(const ErasePermit& permit, Face& face, const EraseTexts& texts) {
  const auto code = permit.GetCode();
  if (IsGiven(code)) return code;
  if (permit.IsTableUnread() && face.IsForced()) return Status::HasPartition;
  face.Say(texts.unable);
  face.Say("Nothing was done: " + permit.GetReason() + ".");
  return code;
}

bool IsFrozen(StatusCode code) { return code == Status::SecurityFrozen; }

// 1 when the user lets all go that `use` tells.
StatusCode AskUser(const Erasure& erase, const ErasePermit& permit, const DiskUse& use, Face& face,
                   const EraseTexts& texts) {
  if (use.IsSystems()) {
    face.Say("WARNING! This system runs from the drive:");
    TellLines(face, use);
    if (!face.IsForced()) {
      face.Say("Nothing was done: such a drive is erased with -force only.");
      return Status::HasPartition;
    }
  }
  return ConfirmErase(use.IsFree() ? Status::ReadyToRun : Status::HasPartition, face, texts,
                      DescribeErase(erase, permit));
}

// Whether the run ends in what was told of the drive, and is not under way in it by itself.
bool IsAtItsEnd(StatusCode code) {
  return code != Status::Canceled && code != Status::SanitizeTimedOut;
}

}  // namespace

StatusCode RunErase(Erasure& erase, Face& face, const EraseTexts& texts) {
  auto& device = *erase.GetDevice();
  if (!IsGiven(erase.GetErrorCode())) {
    face.Say(texts.unable);
    return erase.Refuse(erase.GetErrorCode());
  }
  DiskUse told;
  {
    const ErasePermit look(device, erase.IsSecure());
    if (const auto code = JudgePermit(look, face, texts); !IsGiven(code)) return code;
    told = AddKnown(look.GetUse(), device);
    const auto answer = AskUser(erase, look, told, face, texts);
    if (answer != Status::ReadyToRun) return answer;
  }
  const ErasePermit permit(device, erase.IsSecure());
  if (const auto code = JudgePermit(permit, face, texts); !IsGiven(code)) return code;
  if (!face.IsForced() && !told.Covers(permit.GetUse())) {
    face.Say(texts.unable);
    face.Say("Nothing was done: what uses the drive has changed since the question.");
    TellLines(face, permit.GetUse());
    return Status::HasPartition;
  }
  erase.Allow(permit);
  erase.Initialize();  // with the security state that the drive tells now
  const auto code = erase.GetErrorCode();
  // One that came frozen behind a partition is told so by the erase itself.
  if (code != Status::ReadyToRun && !IsFrozen(code)) {
    face.Say(texts.unable);
    return erase.Refuse(code);
  }
  permit.Flush();
  face.Begin(texts.begin);
  if (!texts.caution.empty()) face.Say(texts.caution);
  const bool isErased = erase.Execute() != 0;
  if (IsAtItsEnd(erase.GetErrorCode()) && !IsFrozen(erase.GetErrorCode())) {
    for (const auto& line : permit.ForgetContent()) face.Say(line);
  }
  if (isErased && !told.IsFree() && !texts.afterwards.empty()) face.Say(texts.afterwards);
  return EndErase(erase, permit.GetUse(), face);
}

}  // namespace Morvu
