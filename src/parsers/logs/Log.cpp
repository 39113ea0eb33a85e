#include "parsers/logs/Log.h"

#include <algorithm>
#include <span>
#include <string>

#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ProductProperties.h"
#include "frame/Logger.h"
#include "frame/Text.h"

namespace Morvu::ReadLog {

namespace Properties = DeviceManagement::Properties;

namespace {

using ProductTest = bool (*)(std::string_view product);

bool IsAny(std::string_view) { return true; }
bool IsCobbenrath(std::string_view product) {
  return product == "Cobbenrath" || product == "Cobbenrath Lisk";
}
bool IsVorsham(std::string_view product) { return IContains(product, "Vorsham"); }
bool IsMarrowFell(std::string_view product) { return product == "Marrow Fell"; }
bool IsNewer(std::string_view product) {
  constexpr std::string_view kNewer[] = {"Cobbenrath HD", "Cobbenrath M2", "OxbrennSE L95",
                                         "Oxbrenn 10", "Oxbrenn 3"};
  return std::ranges::find(kNewer, product) != std::end(kNewer);
}

enum class Revision : std::uint8_t { Any, Below, NotAbove };

// The first row whose product and revision hold tells the page.
struct PageRow {
  ProductTest isProduct;
  Revision revision;
  std::string_view limit;  // compared as a text
  std::uint8_t page;
};

// clang-format off
constexpr PageRow kEventPages[] = {
    {IsCobbenrath, Revision::NotAbove, "0360", 0xD1},
    {IsVorsham,    Revision::Below,    "0268", 0xD1},
    {IsMarrowFell, Revision::Any,      "",     0xD1},
    {IsNewer,      Revision::Below,    "0014", 0xDE},
    {IsNewer,      Revision::Any,      "",     0xB9},
    {IsAny,        Revision::Any,      "",     0xDE},
};
constexpr PageRow kNlogPages[] = {
    {IsCobbenrath, Revision::Below,    "0311", 0xD1},
    {IsVorsham,    Revision::Below,    "0254", 0xD1},
    {IsNewer,      Revision::Below,    "0014", 0xDF},
    {IsNewer,      Revision::Any,      "",     0xBA},
    {IsAny,        Revision::Any,      "",     0xDF},
};
// clang-format on

constexpr std::size_t kRevisionOffset = 4;
constexpr std::uint32_t kEventLogBytes = 0x660000;
constexpr std::uint8_t kEventLogChunk = 0x80;

bool Holds(const PageRow& row, std::string_view product, std::string_view revision) {
  if (!row.isProduct(product)) return false;
  switch (row.revision) {
    case Revision::Any:
      break;
    case Revision::Below:
      return revision < row.limit;
    case Revision::NotAbove:
      return revision <= row.limit;
  }
  return true;
}

std::uint8_t FindPage(std::span<const PageRow> rows, std::string_view product,
                      std::string_view firmware) {
  const auto revision = firmware.substr(std::min(kRevisionOffset, firmware.size()));
  return std::ranges::find_if(rows,
                              [&](const PageRow& row) { return Holds(row, product, revision); })
      ->page;
}

}  // namespace

Log EventLog_ATA(std::string_view product, std::string_view firmware) {
  const auto page = FindPage(kEventPages, product, firmware);
  MORVU_LOG(kLogInfo, "EventLog_ATA", "Log Page = 0x" + ToHexNumber(page, 2));
  return {.address = page, .byteSize = kEventLogBytes, .chunkSectors = kEventLogChunk};
}

Log Nlog_ATA(std::string_view product, std::string_view firmware) {
  return {.address = FindPage(kNlogPages, product, firmware)};
}

Log EventLog_ATA(const DeviceManagement::Device& device) {
  return EventLog_ATA(device.GetString(Properties::Product),
                      device.GetString(Properties::Firmware));
}

Log Nlog_ATA(const DeviceManagement::Device& device) {
  return Nlog_ATA(device.GetString(Properties::Product), device.GetString(Properties::Firmware));
}

}  // namespace Morvu::ReadLog
