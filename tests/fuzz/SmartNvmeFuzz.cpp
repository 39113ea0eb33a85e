// An attribute list of any bytes and any length.
#include <cstddef>
#include <cstdint>

#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "messaging/XmlMessaging.h"
#include "parsers/smart/SmartAttribute.h"
#include "parsers/smart/SmartParserCore_NVMe.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Morvu::DeviceManagement::Drive drive;
  drive.AddProperty(Morvu::DeviceManagement::Properties::Product, "Caldrome");
  Morvu::SmartParserCore_NVMe core(&drive);
  const bool hasEnd = core.ParseList({data, size});
  // A list has an end when it holds a zero where an entry would begin.
  bool hasZero = false;
  for (std::size_t at = 0; at < size && !hasZero; at += 12) hasZero = data[at] == 0;
  if (hasEnd != hasZero) __builtin_trap();
  core.GetTable().Render();
  for (const auto& [id, attribute] : core.GetAttributes()) {
    if (Morvu::XmlMessaging::Object::Parse(attribute->ToObject()->ToText()) == nullptr) {
      __builtin_trap();
    }
  }
  return 0;
}
