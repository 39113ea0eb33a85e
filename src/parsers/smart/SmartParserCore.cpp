#include "parsers/smart/SmartParserCore.h"

#include <boost/property_tree/ptree.hpp>

#include "devices/discovery/DriveXml.h"
#include "devices/model/Drive.h"
#include "frame/Logger.h"

namespace Morvu {

void SmartParserCore::StartAfresh() {
  attributes_.clear();
  table_.Clear();
  table_.AppendRow(GetHeader(), true);
  smartHealth_ = 100;
  smartLife_ = 100;
}

std::int32_t SmartParserCore::Execute() {
  StartAfresh();
  if (!BeginExecute() || !ParseSMART()) return 0;
  End(Status::Completed);
  MORVU_LOG(kLogInfo, "Execute", "Passed.");
  return 1;
}

bool SmartParserCore::Fail(StatusCode code, std::string_view reason) {
  MORVU_LOG(kLogError, "ParseSMART", reason);
  End(code);
  return false;
}

void SmartParserCore::WriteData(boost::property_tree::ptree& tree) const {
  if (GetErrorCode() != Status::Completed) return;
  if (drive_ != nullptr) DeviceManagement::WriteDriveXml(*drive_, tree);
  auto& list = tree.add_child("smart_attributes", {});
  for (const auto& [id, attribute] : attributes_) {
    attribute->WriteData(list.add_child("attribute", {}));
  }
}

}  // namespace Morvu
