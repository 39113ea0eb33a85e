#pragma once

#include <boost/property_tree/ptree_fwd.hpp>

namespace Morvu::DeviceManagement {

class Adapter;
class Drive;

// Adds the element "drive" to `tree`: the drive's values as texts, "yes" and "no" for
// booleans, and behind them its partitions.
void WriteDriveXml(const Drive& drive, boost::property_tree::ptree& tree);

// Adds the element "adapter" to `tree`, with its drives.
void WriteAdapterXml(const Adapter& adapter, boost::property_tree::ptree& tree);

}  // namespace Morvu::DeviceManagement
