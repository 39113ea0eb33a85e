// An attribute sector and a threshold sector of any bytes and lengths, on a drive of any
// product and OEM that has rules of its own.
#include <boost/property_tree/ptree.hpp>
#include <cstddef>
#include <cstdint>

#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ProductProperties.h"
#include "messaging/XmlMessaging.h"
#include "parsers/smart/SmartAttribute.h"
#include "parsers/smart/SmartParserCore_ATA.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static constexpr std::string_view kProducts[] = {"", "Yarrowick", "Fennimoor", "Vorsham"};
  static constexpr std::string_view kOems[] = {"", "Dell", "EMC", "IBM"};
  if (size == 0) return 0;
  const auto choice = data[0];
  Morvu::DeviceManagement::Drive drive;
  namespace Properties = Morvu::DeviceManagement::Properties;
  drive.AddProperty(Properties::Product, kProducts[choice & 3]);
  drive.AddProperty(Properties::OEM, kOems[choice >> 2 & 3]);
  drive.AddProperty(Properties::LSI, (choice & 16) != 0);

  const Morvu::ByteView sectors(data + 1, size - 1);
  const auto half = sectors.size() / 2;
  Morvu::SmartParserCore_ATA core(&drive);
  core.ParseSectors(sectors.first(half), sectors.subspan(half));
  if (core.SmartHealth() != 100 && core.SmartHealth() != 50 && core.SmartHealth() != 5) {
    __builtin_trap();
  }
  if (core.SmartLife() < 0 || core.SmartLife() > 255) __builtin_trap();
  if (core.GetAttributes().size() > 30) __builtin_trap();
  core.GetTable().Render();
  core.GetTable().ToSeparated();
  boost::property_tree::ptree node;
  for (const auto& [id, attribute] : core.GetAttributes()) {
    if (id.size() != 2) __builtin_trap();
    attribute->WriteData(node);
    // What a host gets can be read back.
    if (Morvu::XmlMessaging::Object::Parse(attribute->ToObject()->ToText()) == nullptr) {
      __builtin_trap();
    }
  }
  return 0;
}
