#include <algorithm>
#include <functional>

#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"
#include "devices/properties/FirmwareProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/properties/LinkProperties.h"
#include "devices/properties/NamespaceProperties.h"
#include "devices/properties/NvmeFeatureProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/properties/SecurityProperties.h"
#include "devices/properties/SettingProperties.h"
#include "messaging/drive_class/HostController.h"
#include "messaging/drive_class/MorvuSSD.h"
#include "operations/erase/Format.h"
#include "operations/erase/SecureErase.h"
#include "operations/firmware/FirmwareUpdate.h"
#include "operations/testing/DriveSelfTest.h"
#include "operations/testing/StandbyImmediate.h"
#include "parsers/smart/Smart.h"

namespace Morvu {
namespace {

namespace Properties = DeviceManagement::Properties;

constexpr CimProperty::Getter Generic = &GetGenericProperty;
constexpr CimProperty::Setter None = nullptr;

constexpr CimProperty kProperties[] = {
#include "messaging/drive_class/MorvuSSDProperties.inc"
};
static_assert(std::size(kProperties) == 77);

constexpr CimMethod kMethods[] = {
#include "messaging/drive_class/MorvuSSDMethods.inc"
};
// Strictly rising.
static_assert(std::ranges::adjacent_find(kMethods, std::ranges::greater_equal{},
                                         &CimMethod::name) == std::end(kMethods));

}  // namespace

std::span<const CimProperty> GetDriveProperties() { return kProperties; }

std::span<const CimMethod> GetDriveMethods() { return kMethods; }

const CimProperty* FindDriveProperty(std::string_view name) {
  const auto* row = std::ranges::find(kProperties, name, &CimProperty::GetName);
  return row == std::end(kProperties) ? nullptr : row;
}

const CimMethod* FindDriveMethod(std::string_view name) {
  const auto* row = std::ranges::lower_bound(kMethods, name, {}, &CimMethod::name);
  return row == std::end(kMethods) || row->name != name ? nullptr : row;
}

}  // namespace Morvu
