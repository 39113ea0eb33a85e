#include "parsers/smart/SmartAttribute_ATA.h"

#include <boost/property_tree/ptree.hpp>

namespace Morvu {

std::vector<std::string> SmartAttribute_ATA::GetCells() const {
  auto cells = SmartAttribute::GetCells();
  cells.push_back(std::to_string(threshold_));
  cells.push_back(std::to_string(worst_));
  cells.push_back(std::to_string(status_));
  cells.push_back(result_ == "Pass" ? "<c:LIGHTGREEN>Pass</c>" : "<c:LIGHTRED>Fail</c>");
  return cells;
}

void SmartAttribute_ATA::AddProperties(XmlMessaging::Object& object) const {
  SmartAttribute::AddProperties(object);
  AddProperty(object, "Threshold", "Threshold", "uint8", 4, std::to_string(threshold_));
  AddProperty(object, "Worst", "", "uint8", -1, std::to_string(worst_));
  AddProperty(object, "Status", "", "uint16", -1, std::to_string(status_));
  AddProperty(object, "Action", "Action", "string", 5, result_);
}

void SmartAttribute_ATA::AddLeaves(boost::property_tree::ptree& node) const {
  SmartAttribute::AddLeaves(node);
  node.add("threshold", std::to_string(threshold_));
  node.add("worst", std::to_string(worst_));
  node.add("status", std::to_string(status_));
  node.add("pass", result_);
}

}  // namespace Morvu
