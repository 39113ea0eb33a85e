#include "devices/identification/ProductFamilies.h"

#include <algorithm>

#include "devices/identification/ProductDetection.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::string_view kOemNames[] = {Products::Vorsham, Products::Cobbenrath};

constexpr std::string_view kOemProducts[] = {
    Products::MarrowFell,
    Products::Oxbrenn10,
    Products::Oxbrenn3,
    Products::OxbrennSEL95,
};

constexpr std::string_view kNvmeProducts[] = {
    Products::Caldrome, Products::Tovarik,  Products::Aldwreth,
    Products::Wyndrake, Products::Ruskaven,
};

}  // namespace

bool OemAttributeFamily(std::string_view product) {
  return std::ranges::any_of(kOemNames, [&](auto part) { return IContains(product, part); }) ||
         std::ranges::find(kOemProducts, product) != std::end(kOemProducts);
}

bool NvmeSmartFamily(std::string_view product) {
  return std::ranges::find(kNvmeProducts, product) != std::end(kNvmeProducts);
}

}  // namespace Morvu::DeviceManagement
