// Which Morvu product a drive is.
#pragma once

#include <string_view>

#include "devices/properties/PropertyList.h"

namespace Morvu::DeviceManagement {

// The customers for whom drives are built, as the "OEM" property holds them.
namespace Oems {
inline constexpr std::string_view Acer = "Acer";
inline constexpr std::string_view Cisco = "Cisco";
inline constexpr std::string_view Cray = "Cray";
inline constexpr std::string_view Dell = "Dell";
inline constexpr std::string_view EMC = "EMC";
inline constexpr std::string_view FTS = "FTS";
inline constexpr std::string_view Facebook = "Facebook";
inline constexpr std::string_view Fujitsu = "Fujitsu";
inline constexpr std::string_view Generic = "Generic";
inline constexpr std::string_view HP = "HP";
inline constexpr std::string_view IBM = "IBM";
inline constexpr std::string_view Lenovo = "Lenovo";
inline constexpr std::string_view Oracle = "Oracle";
}  // namespace Oems

inline constexpr std::string_view kOems[] = {
    Oems::Acer, Oems::Cisco,    Oems::Cray,    Oems::Dell,    Oems::EMC,
    Oems::FTS,  Oems::Facebook, Oems::Fujitsu, Oems::Generic, Oems::HP,
    Oems::IBM,  Oems::Lenovo,   Oems::Oracle,
};

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
