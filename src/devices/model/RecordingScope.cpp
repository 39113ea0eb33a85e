#include "devices/model/RecordingScope.h"

#include "devices/model/Device.h"
#include "frame/status/Files.h"

namespace Morvu::DeviceManagement {

RecordingScope::RecordingScope(std::span<Device* const> devices, const std::string& path,
                               RecordedData data) {
  for (auto* device : devices) {
    if (!device->SetRecording(true, path, data)) {
      (void)End();
      files_.clear();
      status_ = Status::FileNotWritten;
      return;
    }
    devices_.push_back(device);
    files_.push_back(device->GetRecordingFile());
  }
}

bool RecordingScope::End() {
  bool isWhole = true;
  for (auto* device : devices_) isWhole = device->SetRecording(false) && isWhole;
  devices_.clear();
  return isWhole;
}

}  // namespace Morvu::DeviceManagement
