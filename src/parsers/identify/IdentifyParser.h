#pragma once

#include <memory>

#include "parsers/identify/ParseIdentify.h"

namespace Morvu {

// Whose data are read: those of the drive itself, of an NVMe drive its namespace's, or those of
// the controller that it hangs on.
enum class IdentifyTarget { Drive, Controller };

// The identify data of a drive, whatever its transport: checks the drive, picks the core for its
// protocol, and takes over the core's table. A controller is asked by the drive's own path to it.
class IdentifyParser : public Parser {
 public:
  // The device may be an NVMe controller itself.
  explicit IdentifyParser(DeviceManagement::Device* device,
                          ProgressReporter& reporter = NoReporter(),
                          IdentifyTarget target = IdentifyTarget::Drive);

  void Initialize() override;
  std::int32_t Execute() override;
  std::string GetTitle() const override { return core_ ? core_->GetTitle() : std::string(); }
  void WriteData(boost::property_tree::ptree& tree) const override;

 private:
  StatusCode ChooseCore();
  // Makes ready to read: a drive must answer, and tells what has changed since the scan.
  bool Connect();

  IdentifyTarget target_;
  std::unique_ptr<ParseIdentify> core_;  // null for a refused device
};

}  // namespace Morvu
