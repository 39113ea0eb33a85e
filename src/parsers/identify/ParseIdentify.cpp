#include "parsers/identify/ParseIdentify.h"

#include <boost/property_tree/ptree.hpp>

#include "frame/status/Drives.h"
#include "frame/status/Requests.h"

namespace Morvu {

void ParseIdentify::Initialize() {
  EndInitialize(HasCommandSet() ? Status::ReadyToRun : Status::NotSupportedByDrive);
}

void ParseIdentify::ParseIdentifyData(ByteView buffer) {
  table_.Clear();
  table_.AppendRow({std::string(unit_), "Description", "Hex Value"}, true);
  AppendRows(buffer);
}

void ParseIdentify::WriteData(boost::property_tree::ptree& tree) const {
  tree.add_child("data", {});
}

}  // namespace Morvu
