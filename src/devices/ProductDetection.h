// Which Morvu product a drive is.
#pragma once

#include <string_view>

#include "devices/PropertyList.h"

namespace Morvu::DeviceManagement {

// The products' internal names, as the "Product" property holds them, in table order.
namespace Products {
#define PRODUCT(identifier, name) inline constexpr std::string_view identifier = name;
#include "devices/Products.inc"
#undef PRODUCT
}  // namespace Products

// Decides from model, firmware and serial number which product a drive is.
class ProductDetection {
 public:
  // `source` loses its product properties when it is a RAID volume.
  explicit ProductDetection(PropertyList& source);
  // Adds the result to `target`, over what it holds.
  void Merge(PropertyList& target) const { target.Merge(output_); }
  const PropertyList& GetOutput() const { return output_; }

 private:
  PropertyList output_;
};

}  // namespace Morvu::DeviceManagement
