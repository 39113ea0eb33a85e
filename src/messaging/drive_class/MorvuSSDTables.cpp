#include <algorithm>
#include <functional>
#include <vector>

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
#include "messaging/drive_class/Features.h"
#include "messaging/drive_class/MorvuSSD.h"
#include "operations/endurance/EnduranceAnalyzer.h"
#include "operations/firmware/FirmwareUpdate.h"
#include "operations/settings/GetMaxAddress.h"
#include "operations/settings/MaxAddress.h"
#include "operations/settings/SctPhy.h"
#include "operations/settings/SctSettings.h"
#include "operations/settings/SetFeature.h"
#include "operations/settings/SystemTrim.h"
#include "parsers/nvme/GetFeature_NVMe.h"
#include "parsers/sct/ErrorRecoveryControl.h"
#include "parsers/sct/FeatureControlParser.h"

namespace Morvu {
namespace {

namespace Properties = DeviceManagement::Properties;

constexpr CimProperty::Getter Generic = &GetGenericProperty;
constexpr CimProperty::Getter NvmeFeature = &GetNvmeFeatureProperty;
constexpr CimProperty::Getter Phy = &GetPhyProperty;
constexpr CimProperty::Getter Sct = &GetSctProperty;
constexpr CimProperty::Getter SctState = &GetFeatureControlProperty;
constexpr CimProperty::Getter ErrorRecovery = &GetErrorRecoveryProperty;
constexpr CimProperty::Setter None = nullptr;

constexpr CimProperty kProperties[] = {
#include "messaging/drive_class/MorvuSSDProperties.inc"
};
static_assert(std::size(kProperties) == 77);

// A row has a setter when it is "io" and only then.
#ifndef __SANITIZE_ADDRESS__  // behind it GCC takes no comparison of addresses for constant
static_assert(std::ranges::all_of(kProperties, [](const CimProperty& row) {
  return (row.direction == "io") == (row.setter != nullptr);
}));
#endif

std::vector<DriveMethod> ListMethods() {
  std::vector<DriveMethod> methods;
  for (const auto* feature : GetFeatures()) {
    for (const auto& method : feature->methods) methods.push_back({feature, &method});
  }
  std::ranges::sort(methods, {}, [](const DriveMethod& row) { return row.method->name; });
  return methods;
}

}  // namespace

std::span<const CimProperty> GetDriveProperties() { return kProperties; }

std::span<const DriveMethod> GetDriveMethods() {
  static const auto& methods = *new auto(ListMethods());  // jobs use it while the process ends
  return methods;
}

const CimProperty* FindDriveProperty(std::string_view name) {
  const auto* row = std::ranges::find(kProperties, name, &CimProperty::GetName);
  return row == std::end(kProperties) ? nullptr : row;
}

const DriveMethod* FindDriveMethod(std::string_view name) {
  const auto methods = GetDriveMethods();
  const auto row = std::ranges::find_if(
      methods, [&](const DriveMethod& each) { return each.method->name == name; });
  return row == methods.end() ? nullptr : &*row;
}

}  // namespace Morvu
