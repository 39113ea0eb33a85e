#include "devices/identification/ProductTable.h"

#include <algorithm>

#include "devices/commands/CommandSet.h"
#include "devices/identification/ProductDetection.h"
#include "devices/identification/Products.h"
#include "devices/identification/SerialPattern.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"

namespace Morvu::DeviceManagement {
namespace {

// The marks of a product's traits.
constexpr bool X = true;
constexpr bool o = false;

constexpr Product kProducts[] = {
#include "devices/identification/Products.inc"
};
constexpr Product kNoProduct{};

constexpr std::string_view Ata = Protocol::Ata;
constexpr std::string_view Nvme = Protocol::Nvme;
constexpr std::string_view Scsi = Protocol::Scsi;

constexpr ProductTest Any;
constexpr ProductTest Serial(std::string_view pattern) {
  return {ProductTest::Kind::SerialMatches, pattern};
}
constexpr ProductTest SerialBegins(std::string_view text) {
  return {ProductTest::Kind::SerialBegins, text};
}
constexpr ProductTest FirmwareBegins(std::string_view text) {
  return {ProductTest::Kind::FirmwareBegins, text};
}

constexpr ProductRow kRows[] = {
#include "devices/identification/ProductTable.inc"
};

constexpr SerialFamily kFamilies[] = {
#include "devices/identification/SerialFamilies.inc"
};

constexpr std::size_t kSerialLength = 18;

// ---- What must hold of the tables ----

constexpr bool IsUpperCase(std::string_view text) {
  // A plain loop: compilers count the steps that they take for an assertion.
  for (const char c : text) {
    if (c >= 'a' && c <= 'z') return false;
  }
  return true;
}

constexpr bool IsConfigId(std::string_view text) {
  return text.size() == 5 && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

constexpr bool IsSound(const ProductTest& test) {
  const bool prefix = test.kind == ProductTest::Kind::SerialBegins ||
                      test.kind == ProductTest::Kind::FirmwareBegins;
  if (prefix && (test.text.size() < 2 || test.text.size() > 3)) return false;
  return IsUpperCase(test.text) && (test.kind == ProductTest::Kind::Any) == test.text.empty();
}

constexpr bool IsSound(const ProductRow& row) {
  const auto models = row.Models();
  return !row.product.empty() && row.series.starts_with("Morvu SSD ") && IsSound(row.test) &&
         (row.oem.empty() || std::ranges::find(kOems, row.oem) != std::end(kOems)) &&
         (row.configId.empty() || IsConfigId(row.configId)) && !models.empty() &&
         std::ranges::all_of(models, IsUpperCase);
}

constexpr bool HasRow(std::string_view ProductRow::*field, std::string_view value) {
  return std::ranges::any_of(kRows, [&](const auto& row) { return row.*field == value; });
}

constexpr bool IsProduct(std::string_view name) {
  return std::ranges::find(kProducts, name, &Product::name) != std::end(kProducts);
}

static_assert(std::ranges::all_of(kRows, [](const auto& row) { return IsSound(row); }));
static_assert(std::ranges::all_of(kRows,
                                  [](const auto& row) {
                                    return row.test.kind != ProductTest::Kind::SerialMatches ||
                                           IsSerialPattern(row.test.text);
                                  }),
              "a row's test is no pattern of serial numbers");
static_assert(std::ranges::all_of(kRows, IsProduct, &ProductRow::product),
              "a row's product is not in the table of products");
static_assert(std::ranges::all_of(kFamilies, IsProduct, &SerialFamily::product),
              "a family's product is not in the table of products");
static_assert(std::ranges::all_of(kProducts,
                                  [](const auto& p) {
                                    return HasRow(&ProductRow::product, p.name);
                                  }),
              "a product has no row");
static_assert(std::ranges::all_of(kOems, [](auto oem) { return HasRow(&ProductRow::oem, oem); }),
              "an OEM has no row");
static_assert(HasRow(&ProductRow::protocol, Ata) && HasRow(&ProductRow::protocol, Nvme) &&
              HasRow(&ProductRow::protocol, Scsi));

// ---- Looking up ----

bool Passes(const ProductTest& test, std::string_view firmware, std::string_view serialNumber) {
  switch (test.kind) {
    case ProductTest::Kind::Any:
      return true;
    case ProductTest::Kind::SerialBegins:
      return serialNumber.starts_with(test.text);
    case ProductTest::Kind::FirmwareBegins:
      return firmware.starts_with(test.text);
    case ProductTest::Kind::SerialMatches:
      return MatchesSerialPattern(test.text, serialNumber);
  }
  return false;
}

// One of the words of a list that blanks separate.
bool HasWord(std::string_view list, std::string_view word) {
  while (!list.empty()) {
    const auto end = std::min(list.find(' '), list.size());
    if (list.substr(0, end) == word) return true;
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return false;
}

// Standard INQUIRY data (SPC-4) has room for 16 characters of model.
bool IsCutFrom(std::string_view model, std::string_view whole) {
  constexpr std::size_t kRoom = 16;
  if (whole.size() <= kRoom) return false;
  const auto cut = whole.substr(0, kRoom);
  return model == cut.substr(0, cut.find_last_not_of(' ') + 1);
}

}  // namespace

std::span<const Product> GetProducts() { return kProducts; }

const Product& FindProduct(std::string_view name) {
  const auto* product = std::ranges::find(kProducts, name, &Product::name);
  return product == std::end(kProducts) ? kNoProduct : *product;
}

const Product& ProductOf(const Device& device) {
  return FindProduct(device.GetString(Properties::Product));
}

std::span<const ProductRow> GetProductRows() { return kRows; }

std::span<const SerialFamily> GetSerialFamilies() { return kFamilies; }

const ProductRow* FindProductRow(std::string_view model, std::string_view firmware,
                                 std::string_view serialNumber) {
  if (model.empty()) return nullptr;
  for (const auto& row : kRows) {
    const auto models = row.Models();
    if (std::ranges::find(models, model) == models.end()) continue;
    if (Passes(row.test, firmware, serialNumber)) return &row;
  }
  return nullptr;
}

const SerialFamily* FindSerialFamily(std::string_view serialNumber) {
  if (serialNumber.size() != kSerialLength) return nullptr;
  const auto fits = [&](const SerialFamily& row) {
    return serialNumber.substr(2, 2) == row.family &&
           (row.versions.empty() || row.versions.find(serialNumber[15]) != row.versions.npos) &&
           HasWord(row.capacities, serialNumber.substr(12, 3));
  };
  const auto row = std::ranges::find_if(kFamilies, fits);
  return row == std::end(kFamilies) ? nullptr : row;
}

std::optional<CutModel> FindCutModel(std::string_view model) {
  std::optional<CutModel> found;
  for (const auto& row : kRows) {
    const auto isCut = [&](std::string_view whole) { return IsCutFrom(model, whole); };
    if (row.protocol != Ata || std::ranges::none_of(row.Models(), isCut)) continue;
    if (!found) found = {row.product, row.protocol};
    if (found->product != row.product) found->product = {};
  }
  return found;
}

}  // namespace Morvu::DeviceManagement
