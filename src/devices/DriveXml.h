#pragma once

#include <boost/property_tree/ptree_fwd.hpp>

namespace Morvu::DeviceManagement {

class Drive;

// Adds the element "drive" to `tree`: the drive's values as texts, "yes" and "no" for
// booleans, and behind them its partitions.
void WriteDriveXml(const Drive& drive, boost::property_tree::ptree& tree);

}  // namespace Morvu::DeviceManagement
