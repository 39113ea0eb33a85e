// Groups of products that behave alike.
#pragma once

#include <string_view>

namespace Morvu::DeviceManagement {

// Products whose drives are sold under makers' own names, with rules of their own.
bool OemAttributeFamily(std::string_view product);
// NVMe products that keep SMART attributes in a log of their own.
bool NvmeSmartFamily(std::string_view product);

}  // namespace Morvu::DeviceManagement
