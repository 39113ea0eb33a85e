// Records the commands of some devices for as long as it lives.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "devices/commands/CommandRecorder.h"
#include "frame/StatusCode.h"

namespace Morvu::DeviceManagement {

class Device;

class RecordingScope {
 public:
  // A file for each device, as CommandRecorder has them; the devices must outlive the scope. 122
  // where one of the files cannot be made: then nothing is recorded.
  RecordingScope(std::span<Device* const> devices, const std::string& path, RecordedData data);
  ~RecordingScope() { (void)End(); }
  RecordingScope(const RecordingScope&) = delete;
  RecordingScope& operator=(const RecordingScope&) = delete;

  StatusCode GetStatus() const { return status_; }
  const std::vector<std::string>& GetFiles() const { return files_; }
  // Ends the documents; false when one of them could not be written to its end.
  bool End();

 private:
  std::vector<Device*> devices_;
  std::vector<std::string> files_;
  StatusCode status_ = Status::Completed;
};

}  // namespace Morvu::DeviceManagement
