#include "devices/identification/ProductDetection.h"

#include "devices/identification/ProductTable.h"
#include "devices/identification/Products.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/properties/SecurityProperties.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::string_view kMaker = "MORVU";
constexpr std::string_view kUnnamedFamily = "Morvu SSD";

void Put(PropertyList& output, const PropertyEntry& entry, const auto& value) {
  output.Add(DeviceProperty(entry, value));
}

void PutRow(const ProductRow& row, PropertyList& output) {
  Put(output, Properties::Morvu, true);
  Put(output, Properties::Product, row.product);
  Put(output, Properties::ProductFamily, row.series);
  if (!row.oem.empty()) Put(output, Properties::OEM, row.oem);
  if (!row.configId.empty()) Put(output, Properties::ConfigID, row.configId);
  if (row.lsi) Put(output, Properties::LSI, true);
  Put(output, Properties::ProductProtocol, row.protocol);
}

void PutCutModel(const CutModel& cut, PropertyList& output) {
  Put(output, Properties::Morvu, true);
  if (!cut.product.empty()) Put(output, Properties::Product, cut.product);
  Put(output, Properties::ProductProtocol, cut.protocol);
}

void PutFamily(const SerialFamily& row, PropertyList& output) {
  Put(output, Properties::Morvu, true);
  Put(output, Properties::Product, row.product);
  Put(output, Properties::ProductFamily, row.series);
}

void PutSecurityTraits(const PropertyList& source, const Product& product, PropertyList& output) {
  if (product.tellsOpal) {
    const bool opal = source.GetBool(Properties::TCGSupported);
    Put(output, Properties::ProductFamily,
        output.GetString(Properties::ProductFamily) + (opal ? " Opal Ready" : " No Opal"));
    Put(output, Properties::DigitalFenceSupported, true);
  }
  if (product.hasRemoteErase) Put(output, Properties::RemoteSecureEraseSupported, true);
}

// Some model strings are another vendor's too; the serial number tells them apart.
bool IsAnotherVendors(const Product& product, std::string_view serialNumber) {
  return product.serialLength != 0 && serialNumber.size() != product.serialLength;
}

}  // namespace

ProductDetection::ProductDetection(PropertyList& source) {
  const auto model = ToUpper(source.GetString(Properties::ModelNumber));
  const auto firmware = ToUpper(source.GetString(Properties::Firmware));
  const auto serialNumber = ToUpper(source.GetString(Properties::SerialNumber));
  const bool raid = source.GetBool(Properties::RAID);

  if (const auto* row = FindProductRow(model, firmware, serialNumber)) {
    PutRow(*row, output_);
  } else if (const auto* family = FindSerialFamily(serialNumber)) {
    PutFamily(*family, output_);
  }
  const auto& product = FindProduct(output_.GetString(Properties::Product));
  PutSecurityTraits(source, product, output_);
  if (IsAnotherVendors(product, serialNumber)) {
    output_.Remove(Properties::Morvu);
    output_.Remove(Properties::Product);
    output_.Remove(Properties::ProductFamily);
  }
  // A drive that did not answer is known by what the system tells of it alone.
  if (output_.IsEmpty()) {
    if (const auto cut = FindCutModel(model)) PutCutModel(*cut, output_);
  }
  // A maker's name alone makes an unnamed drive of this maker.
  const bool unnamed = output_.GetBool(Properties::Morvu)
                           ? output_.GetString(Properties::ProductFamily).empty()
                           : model.find(kMaker) != model.npos;
  if (unnamed && !raid) {
    Put(output_, Properties::Morvu, true);
    Put(output_, Properties::ProductFamily, kUnnamedFamily);
  }
  // A logical volume is no product.
  if (raid) {
    for (auto* list : {&output_, &source}) {
      list->Remove(Properties::Product);
      list->Remove(Properties::ProductFamily);
    }
  }
}

}  // namespace Morvu::DeviceManagement
