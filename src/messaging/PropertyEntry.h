// What a property is called, and which type it has.
#pragma once

#include <cstdint>
#include <string_view>

namespace Morvu {

// The type codes, in the order of the words that the wire uses.
enum class PropertyKind : std::int32_t {
  String = 0,
  Sint16 = 1,
  Sint32 = 2,
  Sint64 = 3,
  Uint16 = 4,
  Uint32 = 5,
  Uint64 = 6,
  Boolean = 7,
  BytePointer = 8,
  ListUint64 = 9,
  Dynamic = 10,
  VectorString = 11,
};

// A row of the property catalogue: what a property is called and which type it has.
struct PropertyEntry {
  std::string_view name;         // key in code and on the wire
  std::string_view displayName;  // text for a person
  PropertyKind kind;
};

}  // namespace Morvu
