// The products, and the traits by which the library treats them differently.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace Morvu::DeviceManagement {

class Device;

// The columns of Products.inc, which tells what each means.
struct Product {
  std::string_view name;  // as the "Product" property holds it
  bool isShown;
  bool hasOemAttributes;
  bool hasNvmeAttributes;
  bool hasThreeTemperatures;
  bool hidesWorkload;
  bool hidesLife;
  bool tellsOpal;
  bool hasRemoteErase;
  bool needsIdentify;
  bool takesFirstBlockTwice;
  std::uint8_t serialLength;
  std::string_view clockingFirmware;
};

// All products, in table order.
std::span<const Product> GetProducts();

// The product of this name; for any other name one without a trait.
const Product& FindProduct(std::string_view name);
// The one that the device's "Product" property names.
const Product& ProductOf(const Device& device);

// Products whose SMART attributes bear the names of the OEM.
inline bool OemAttributeFamily(std::string_view product) {
  return FindProduct(product).hasOemAttributes;
}
// NVMe products that keep SMART attributes in a log of their own.
inline bool NvmeSmartFamily(std::string_view product) {
  return FindProduct(product).hasNvmeAttributes;
}

}  // namespace Morvu::DeviceManagement
