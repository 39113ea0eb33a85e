// The recording of a device's ATA and SCSI commands: an XML file, written as they go.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "devices/commands/CommandRecords.h"
#include "frame/FileHandle.h"
#include "messaging/XmlMessaging.h"

namespace Morvu::DeviceManagement {

class PropertyList;

// What a recording keeps of the data that commands carry.
enum class RecordedData { WithoutSecrets, All };

// The document: a Message "Recording" with Begin and End, its List "Commands" with an Object for
// each command, and an Object "Device" with the device's properties. What a drive is given with a
// security command, its password among it, is recorded only where it is asked for. A recording that
// would become longer than `kMostBytes` ends there, and its last Object says so.
class CommandRecorder {
 public:
  static constexpr std::uint64_t kMostBytes = 256u << 20;

  // A new file, for its owner alone; a number behind the name where one of this name exists. Empty:
  // "recording_<date and time>.xml" in the working directory. Null when it cannot be made; errno
  // tells why.
  static std::unique_ptr<CommandRecorder> Create(const std::string& path,
                                                 RecordedData data = RecordedData::WithoutSecrets,
                                                 std::uint64_t mostBytes = kMostBytes);

  // Behind the command: a read's data are what it brought, and are left out where it failed.
  void Record(std::string_view commandSet, const Command& command, ByteView reply, bool isGood);
  // Ends the document. False when not all of it could be written.
  bool Finish(const PropertyList& properties, const std::vector<std::string>& commandSets);

  const std::string& GetPath() const { return path_; }

 private:
  CommandRecorder(FileHandle file, std::string path, RecordedData data, std::uint64_t mostBytes);
  void Append(const XmlMessaging::Object& object);
  void Write(std::string_view text);

  FileHandle file_;
  std::string path_;
  RecordedData data_;
  std::uint64_t mostBytes_;
  std::uint64_t written_ = 0;
  std::string begin_;
  bool isFull_ = false;
  bool isFailed_ = false;
};

}  // namespace Morvu::DeviceManagement
