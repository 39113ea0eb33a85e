#include "devices/model/Device.h"

#include "devices/commands/CommandRecorder.h"
#include "devices/properties/BasicProperties.h"
#include "devices/system/SystemFacts.h"
#include "frame/status/Partitions.h"

namespace Morvu::DeviceManagement {

Device::Device(DeviceKind kind) : path_(std::make_unique<CommandPath_Plain>("")), kind_(kind) {
  AddProperty(Properties::Index, -1);
}

Device::~Device() { (void)Device::SetRecording(false); }

bool Device::CreateWorkers(std::uint32_t total, std::uint32_t count) {
  return path_->CreateWorkers(total, count);
}

void Device::StopWorkers() { path_->StopWorkers(); }

bool Device::WorkersIdle() const { return path_->WorkersIdle(); }

bool Device::SetRecording(bool enabled, const std::string& path, RecordedData data) {
  if (enabled == (recorder_ != nullptr)) return true;
  if (enabled) {
    recorder_ = CommandRecorder::Create(path, data);
    for (const auto& [name, set] : commandSets_) set->SetRecording(recorder_.get());
    return recorder_ != nullptr;
  }
  std::vector<std::string> names;
  for (const auto& [name, set] : commandSets_) {
    set->SetRecording(nullptr);
    names.push_back(name);
  }
  const auto recorder = std::move(recorder_);
  return recorder->Finish(properties_, names);
}

std::string Device::GetRecordingFile() const {
  return recorder_ == nullptr ? std::string() : recorder_->GetPath();
}

bool Device::Initialize() {
  auto path = CreateCommandPath(properties_);
  const bool found = path != nullptr;
  SetPath(found ? std::move(path) : CreateBasePath(properties_, true));
  AddCommandSet(CreateCommandSet(properties_, *path_));
  return found;
}

bool Device::TestConnection() {
  const auto last = GetCommandPath().GetOutcome().reached;
  const bool isLost = last == Reached::CallFailed || last == Reached::Transport;
  if (isConnected_ && !isLost) return true;
  const bool answers = AskConnection();
  isConnected_ = answers && isTestedOnce_;
  return answers;
}

void Device::CopyFrom(const Device& other) {
  if (&other == this) return;
  properties_ = other.properties_;
  properties_.Rebind(&other, this);
  parent_ = other.parent_;
  keptParent_ = parent_ == nullptr ? nullptr : parent_->weak_from_this().lock();
  options_ = other.options_;
  isAsleep_ = other.isAsleep_;
  SetPath(other.path_->Clone());
  for (const auto& [name, set] : other.commandSets_) AddCommandSet(set->Clone(properties_, *path_));
  partitions_ = other.partitions_;
}

void Device::SetParent(Device* parent) {
  parent_ = parent;
  keptParent_.reset();
}

CommandSet* Device::GetCommandSet(std::string_view name) const {
  const auto found = commandSets_.find(name);
  return found == commandSets_.end() ? nullptr : found->second.get();
}

void Device::AddCommandSet(std::unique_ptr<CommandSet> set) {
  if (set == nullptr) return;
  set->SetRecording(recorder_.get());
  auto name = set->GetName();
  commandSets_[std::move(name)] = std::move(set);
}

void Device::SetPath(std::unique_ptr<CommandPath> path) {
  commandSets_.clear();
  path_ = path != nullptr ? std::move(path) : std::make_unique<CommandPath_Plain>("");
}

CommandPath& Device::GetCommandPath() const {
  return commandSets_.empty() ? *path_ : commandSets_.begin()->second->GetPath();
}

std::uint32_t Device::GetPartitionId(const Partition& partition) const {
  const auto text = GetString(Properties::SerialNumber) + GetString(Properties::ModelNumber) +
                    partition.GetName();
  std::uint32_t hash = 0;
  for (const char c : text) {
    const auto value = static_cast<std::uint32_t>(static_cast<signed char>(c));
    hash ^= value + 0x9E3779B9 + (hash << 6) + (hash >> 2);
  }
  return hash;
}

bool Device::ArePartitionsKnown() const {
  return FindPartitionsNow(path_->GetDevicePath()).has_value();
}

StatusCode Device::CheckPartitions() {
  if (!TestConnection()) return Status::NoCommunication;
  const auto partitions = FindPartitionsNow(path_->GetDevicePath());
  if (!partitions) return Status::PartitionCheckFailed;
  return partitions->empty() ? Status::NoPartition : Status::HasPartition;
}

}  // namespace Morvu::DeviceManagement
