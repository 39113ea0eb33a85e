// Device: one thing that takes commands, a bag of properties with a command path,
// command sets and partitions.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "devices/commands/CommandPath.h"
#include "devices/commands/CommandSet.h"
#include "devices/model/Partition.h"
#include "devices/model/ScanOptions.h"
#include "devices/properties/PropertyList.h"

namespace Morvu::DeviceManagement {

class Drive;
class CommandRecorder;
enum class RecordedData;

enum class DeviceKind : std::int32_t { Adapter = 0, Drive = 1, MemoryModule = 2, Plain = 3 };

// Has no lock: it belongs to one thread, and jobs work on clones.
class Device : public std::enable_shared_from_this<Device> {
 public:
  virtual ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // Makes path and command set from the "DevicePath" property. True when a path
  // that answers was found; otherwise the device keeps a plain path.
  virtual bool Initialize();
  // Sends a command of its own, but while a OneConnectionTest lives.
  bool TestConnection();
  // Takes over the content of `other`: properties, parent, options, a clone of its
  // path, clones of its command sets, copies of its partitions.
  virtual void CopyFrom(const Device& other);
  // A new object of the same class with copied content and an open path of its own.
  virtual std::unique_ptr<Device> Clone() const = 0;
  virtual std::string ToText() const = 0;
  virtual Drive* AsDrive() { return nullptr; }
  // The nodes of the disks whose data are on this drive too: of a RAID member its volumes'.
  virtual std::vector<std::string> GetVolumeNodes() const { return {}; }

  DeviceKind GetKind() const { return kind_; }
  // The adapter; null on an adapter. An adapter owns its drives and is not owned by
  // them; a clone keeps the adapter alive, as a scan may drop it meanwhile.
  Device* GetParent() const { return parent_; }
  void SetParent(Device* parent);

  // Properties. An absent one reads as empty: "", 0, false.
  PropertyList& GetProperties() { return properties_; }
  const PropertyList& GetProperties() const { return properties_; }
  template <typename Value>
  void AddProperty(const PropertyEntry& entry, const Value& value) {
    properties_.Add(DeviceProperty(entry, value));
  }
  std::string GetString(const PropertyEntry& entry) const { return properties_.GetString(entry); }
  bool GetBool(const PropertyEntry& entry) const { return properties_.GetBool(entry); }
  std::uint64_t GetUInt(const PropertyEntry& entry) const { return properties_.GetUnsigned(entry); }

  // Null when the device has no such set.
  CommandSet* GetCommandSet(std::string_view name) const;
  template <typename Set>
  Set* GetCommandSetAs(std::string_view name) const {
    return dynamic_cast<Set*>(GetCommandSet(name));
  }
  bool HasCommandSet(std::string_view name) const { return GetCommandSet(name) != nullptr; }
  // Replaces the set of the same name; a null set changes nothing.
  void AddCommandSet(std::unique_ptr<CommandSet> set);

  CommandPath& GetPath() const { return *path_; }
  // The old path goes; the command sets on it go with it.
  void SetPath(std::unique_ptr<CommandPath> path);

  // The path by which the device's commands go: that of its command set, which for an
  // NVMe drive is one of its own on the controller.
  CommandPath& GetCommandPath() const;

  // ---- That path's own ----
  void SetTimeout(std::chrono::seconds timeout) { GetCommandPath().SetTimeout(timeout); }
  std::chrono::seconds GetTimeout() const { return GetCommandPath().GetTimeout(); }
  std::int32_t GetLastOsError() const { return GetCommandPath().GetLastOsError(); }
  const CommandPath::Image& GetSentBuffer() const { return GetCommandPath().GetSentBuffer(); }
  const CommandPath::Image& GetReceivedBuffer() const {
    return GetCommandPath().GetReceivedBuffer();
  }
  std::string GetSentAsText() const { return GetCommandPath().GetSentAsText(); }
  std::string GetReceivedAsText() const { return GetCommandPath().GetReceivedAsText(); }
  const std::string& GetPathName() const { return path_->GetDescription(); }

  std::vector<Partition>& GetPartitions() { return partitions_; }
  const std::vector<Partition>& GetPartitions() const { return partitions_; }
  // Tells a partition of this drive from all others, and is the same after each scan.
  std::uint32_t GetPartitionId(const Partition& partition) const;

  // For operations that must not run on a drive in use: 4, 13 (a partition was found), 14
  // (none was found) or 128 (the system could not be asked): only 14 lets them run.
  StatusCode CheckPartitions();
  // Whether the system can be asked for the drive's partitions; nothing is sent to the drive.
  bool ArePartitionsKnown() const;

  // The workers of its path's transfers, as CommandPath has them.
  bool CreateWorkers(std::uint32_t total, std::uint32_t count);
  void StopWorkers();
  bool WorkersIdle() const;

  // Records the device's ATA and SCSI commands to a new file, as CommandRecorder has it, until it
  // is turned off or the device goes. What is on already, or off, stays so. False when the file
  // cannot be made, or was not written to its end.
  bool SetRecording(bool enabled, const std::string& path = {}, RecordedData data = {});
  std::string GetRecordingFile() const;  // empty while nothing is recorded

  void SetOptions(const ScanOptions& options) { options_ = options; }
  const ScanOptions& GetOptions() const { return options_; }

  // A scan found the drive in standby, and let it sleep.
  bool IsAsleep() const { return isAsleep_; }
  void SetAsleep(bool asleep) { isAsleep_ = asleep; }

 protected:
  explicit Device(DeviceKind kind);

  virtual bool AskConnection() { return path_->TestDevice(); }

  PropertyList properties_;
  Device* parent_ = nullptr;
  std::shared_ptr<Device> keptParent_;  // on a clone
  std::unique_ptr<CommandPath> path_;   // never null
  std::map<std::string, std::unique_ptr<CommandSet>, std::less<>> commandSets_;
  std::unique_ptr<CommandRecorder> recorder_;
  std::vector<Partition> partitions_;
  DeviceKind kind_;
  ScanOptions options_;
  bool isAsleep_ = false;

 private:
  friend class OneConnectionTest;

  bool isTestedOnce_ = false;
  bool isConnected_ = false;  // while it is tested once, and has answered
};

// While one lives, a good answer to a test of the connection stands for the next ones, until a
// command does not come through: whoever asks much of a device in one go makes a test for each
// question otherwise. An inner one changes nothing.
class OneConnectionTest {
 public:
  explicit OneConnectionTest(Device& device)
      : device_(device), isOuter_(!std::exchange(device.isTestedOnce_, true)) {}
  ~OneConnectionTest() {
    if (isOuter_) device_.isTestedOnce_ = device_.isConnected_ = false;
  }
  OneConnectionTest(const OneConnectionTest&) = delete;
  OneConnectionTest& operator=(const OneConnectionTest&) = delete;

 private:
  Device& device_;
  bool isOuter_;
};

}  // namespace Morvu::DeviceManagement
