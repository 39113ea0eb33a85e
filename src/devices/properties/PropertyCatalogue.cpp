// The whole catalogue in one place, for what must hold between its groups.
#include <algorithm>
#include <array>
#include <string_view>

namespace Morvu::DeviceManagement {
namespace {

constexpr std::string_view kKeys[] = {
#define PROPERTY(identifier, key, display, kind) key,
#include "devices/properties/AdapterProperties.inc"
#include "devices/properties/BasicProperties.inc"
#include "devices/properties/DriverProperties.inc"
#include "devices/properties/FirmwareProperties.inc"
#include "devices/properties/IdentityProperties.inc"
#include "devices/properties/LinkProperties.inc"
#include "devices/properties/NamespaceProperties.inc"
#include "devices/properties/NvmeFeatureProperties.inc"
#include "devices/properties/ProductProperties.inc"
#include "devices/properties/ScanProperties.inc"
#include "devices/properties/SecurityProperties.inc"
#include "devices/properties/SettingProperties.inc"
#undef PROPERTY
};

constexpr bool AreDistinct() {
  auto keys = std::to_array(kKeys);
  std::ranges::sort(keys);
  return std::ranges::adjacent_find(keys) == keys.end();
}
static_assert(AreDistinct(), "two properties have one key");

}  // namespace
}  // namespace Morvu::DeviceManagement
