#include <algorithm>
#include <functional>

#include "devices/PropertyCatalogue.h"
#include "messaging/HostController.h"
#include "messaging/MorvuSSD.h"
#include "operations/DriveSelfTest.h"
#include "operations/FirmwareUpdate.h"
#include "operations/Format.h"
#include "operations/SecureErase.h"
#include "operations/StandbyImmediate.h"
#include "parsers/Smart.h"

namespace Morvu {
namespace {

namespace Properties = DeviceManagement::Properties;

constexpr CimProperty::Getter Generic = &GetGenericProperty;
constexpr CimProperty::Setter None = nullptr;

constexpr CimProperty kProperties[] = {
#include "messaging/MorvuSSDProperties.inc"
};
static_assert(std::size(kProperties) == 77);

constexpr CimMethod kMethods[] = {
#include "messaging/MorvuSSDMethods.inc"
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
