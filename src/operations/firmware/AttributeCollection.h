// Attribute collections: a device's properties, and a module's verdict on it, as the
// XML that passes between the library and a firmware module.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "devices/properties/PropertyList.h"

namespace Morvu {

// The attributes of a firmware mapping: what a drive is to get.
namespace FirmwareMapping {
inline constexpr PropertyEntry Status{"Status", "Status", PropertyKind::Uint64};
inline constexpr PropertyEntry Package{"Package", "Package", PropertyKind::VectorString};
inline constexpr PropertyEntry Destination{"Destination", "Destination", PropertyKind::String};

// Verdicts of "Status".
inline constexpr std::uint64_t kUpdateAvailable = 1;
inline constexpr std::uint64_t kUnknownDrive = 900;
}  // namespace FirmwareMapping

// A verdict is a number, and told as one: nothing for a mapping without one. What cannot be
// read is not 0, which means that a drive is current.
std::optional<std::uint64_t> ReadVerdict(const DeviceManagement::PropertyList& mapping);

// An Object named "attributeCollection" with one Property for each attribute.
std::string WriteAttributeCollection(const DeviceManagement::PropertyList& attributes);

// The attributes in a document whose first top-level element is an Object; nothing
// for any other text.
std::optional<DeviceManagement::PropertyList> ReadAttributeCollection(std::string_view text);

}  // namespace Morvu
