// The table of product rows, and the families that a serial number tells.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace Morvu::DeviceManagement {

// What a row asks beside the model.
struct ProductTest {
  enum class Kind : std::uint8_t {
    Any,
    SerialMatches,   // a pattern of the whole serial number, see SerialPattern.h
    SerialBegins,    // with these two or three characters
    FirmwareBegins,  // the same
  };
  Kind kind = Kind::Any;
  std::string_view text;
};

struct ProductRow {
  static constexpr std::size_t kMaxModels = 12;

  std::string_view product;   // a name of Products.inc
  std::string_view oem;       // may be empty
  std::string_view configId;  // five digits, may be empty
  bool lsi;
  std::string_view protocol;
  std::string_view series;
  ProductTest test;
  std::string_view models[kMaxModels];  // any of these; the rest are empty

  constexpr std::span<const std::string_view> Models() const {
    std::size_t count = 0;
    while (count < kMaxModels && !models[count].empty()) ++count;
    return {models, count};
  }
};

struct SerialFamily {
  std::string_view family;      // characters 3 and 4
  std::string_view versions;    // any of these as character 16; empty: whatever it is
  std::string_view capacities;  // any of these words as characters 13 to 15
  std::string_view product;
  std::string_view series;
};

std::span<const ProductRow> GetProductRows();
std::span<const SerialFamily> GetSerialFamilies();

// The first row that matches, null if none does. All three are in upper case.
const ProductRow* FindProductRow(std::string_view model, std::string_view firmware,
                                 std::string_view serialNumber);
const SerialFamily* FindSerialFamily(std::string_view serialNumber);

// What the 16 characters to which INQUIRY and sysfs cut the model of a SATA drive tell.
struct CutModel {
  std::string_view product;  // empty where models of several products begin alike
  std::string_view protocol;
};
// None for a model that is not cut, or is of no row. In upper case, without blanks around it.
std::optional<CutModel> FindCutModel(std::string_view model);

}  // namespace Morvu::DeviceManagement
