#include <algorithm>
#include <span>

#include "devices/commands/CommandSet_NVME.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "devices/system/SystemNodes.h"
#include "frame/Text.h"
#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "messaging/PageTable.h"
#include "parsers/identify/ParseIdentify.h"
#include "parsers/nvme/FeatureNamespace.h"

namespace Morvu {

namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::uint8_t kNamespaceCns = 0;
constexpr std::uint8_t kControllerCns = 1;

// ---- Forms ----

std::string HealthText(ByteView page, const PagePlace& place) {
  const auto text = Form::PrintableText(page, place);
  return text.empty() ? "Healthy" : text;
}

std::string EightDigits(ByteView page, const PagePlace& place) {
  return "0x" + ToHexNumber(ReadField(page, place), 8);
}

// What the values mean, from 0 on.
struct Meanings {
  std::span<const std::string_view> texts;
  std::string_view other{};
};

// The number in hexadecimal, and behind it what it means.
template <const Meanings& Of>
std::string WithMeaning(ByteView page, const PagePlace& place) {
  const auto value = ReadField<std::size_t>(page, place);
  const auto text = value < Of.texts.size() ? Of.texts[value] : Of.other;
  return Form::PrefixedHex(page, place) + " (" + std::string(text) + ")";
}

constexpr std::string_view kStripeTexts[] = {
    "Driver assisted striping not supported by FW",
    "8 KiB of user data",
    "16 KiB of user data",
    "32 KiB of user data",
    "64 KiB of user data",
    "128 KiB of user data",
};
constexpr std::string_view kProtectionTexts[] = {
    "Protection Information is not enabled",
    "Protection Information is enabled, Type 1",
    "Protection Information is enabled, Type 2",
    "Protection Information is enabled, Type 3",
};
constexpr std::string_view kPlaceTexts[] = {
    "Transferred as the last eight bytes of metadata.",
    "Transferred as the first eight bytes of metadata.",
};
constexpr std::string_view kPerformanceTexts[] = {
    "Best performance",
    "Better performance",
    "Good performance",
    "Degraded performance",
};
constexpr Meanings kStripeSizes{kStripeTexts, "Unknown"};
constexpr Meanings kProtectionTypes{kProtectionTexts, "Reserved"};
constexpr Meanings kProtectionPlaces{kPlaceTexts};
constexpr Meanings kPerformances{kPerformanceTexts};

// ---- Tables ----

constexpr PageField kController[] = {
#include "parsers/identify/IdentifyController.inc"
};

constexpr PageField kNamespace[] = {
#include "parsers/identify/IdentifyNamespace.inc"
};

// A power state descriptor (NVMe 1.0e, figure 67) and an LBA format (figure 69). Both stand
// several times: places count from their beginning.
// clang-format off
constexpr PageField kPowerState[] = {
    {{15, 1, 5, 3},  "    Bit 125-255: Reserved",                   Form::Title},
    {{15, 1, 0, 5},  "    Bit 120-124: Relative Write Latency",     Form::PrefixedHex},
    {{14, 1, 5, 3},  "    Bit 117-119: Reserved",                   Form::Title},
    {{14, 1, 0, 5},  "    Bit 112-116: Relative Write Throughput",  Form::PrefixedHex},
    {{13, 1, 5, 3},  "    Bit 109-111: Reserved",                   Form::Title},
    {{13, 1, 0, 5},  "    Bit 104-108: Relative Read Latency",      Form::PrefixedHex},
    {{12, 1, 5, 3},  "    Bit 101-103: Reserved",                   Form::Title},
    {{12, 1, 0, 5},  "    Bit 96-100: Relative Read Throughput",    Form::PrefixedHex},
    {{ 8, 4, 0, 32}, "    Bit 64-95: Exit Latency",                 Form::PrefixedHex},
    {{ 4, 4, 0, 32}, "    Bit 32-63: Entry Latency",                Form::PrefixedHex},
    {{ 2, 2, 0, 16}, "    Bit 16-31: Reserved",                     Form::PrefixedHex},
    {{ 0, 2, 0, 16}, "    Bit 0-15: Maximum Power",                 Form::PrefixedHex},
};
constexpr PageField kLbaFormat[] = {
    {{ 0, 4, 26, 6}, "    Bit 31-26: Reserved",                     Form::PrefixedHex},
    {{ 0, 4, 24, 2}, "    Bit 25-24: Relative Performance",         WithMeaning<kPerformances>},
    {{ 0, 4, 16, 8}, "    Bit 23-16: LBA Data Size",                Form::PrefixedHex},
    {{ 0, 4,  0, 16}, "    Bit 15-0: Metadata Size",                Form::PrefixedHex},
};
constexpr PageField kVendorArea[] = {
    {{3075,  1},     "Stripe Size",                                 WithMeaning<kStripeSizes>},
    {{3076, 20},     "Standardized Failure Mode String",            HealthText},
    {{3096,  1},     "Current PCIe Link Speed",                     Form::PrefixedHex},
    {{3097,  1},     "Negotiated PCIe Link Width",                  Form::PrefixedHex},
    {{3098,  1},     "Security Capabilities",                       Form::PrefixedHex},
    {{3099,  1},     "Security Status",                             Form::PrefixedHex},
    {{3100,  8},     "Bootloader Revision",                         Form::PrintableText},
};
// clang-format on

// Groups of rows from `first` on, each `width` bytes: its title and its fields.
struct Group {
  std::uint16_t first, width;
  std::string_view before, behind;  // the title, around the group's number
  PageForm form;                    // of the title
  std::span<const PageField> fields;
};
constexpr Group kPowerStates{2048, 32, "Power State ", " Descriptor", Form::Title, kPowerState};
constexpr Group kLbaFormats{128, 4, " LBA Format ", " Support", Form::PrefixedHex, kLbaFormat};

void AppendGroups(ByteView page, const Group& group, std::size_t count, ResultTable& table) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto title = std::string(group.before) + std::to_string(i) + std::string(group.behind);
    const PagePlace place{static_cast<std::uint16_t>(group.first + i * group.width), group.width};
    const PageField head{place, title, group.form};
    AppendPage(page, {&head, 1}, table, PagePosition::Byte);
    AppendPage(place.BytesOf(page), group.fields, table, PagePosition::Byte);
  }
}

}  // namespace

ParseIdentify_NVMe_Controller::ParseIdentify_NVMe_Controller(DeviceManagement::Device* device)
    : ParseIdentify(device, "NVMe Identify Controller", "Byte") {
  ParseIdentify_NVMe_Controller::Initialize();
}

StatusCode ParseIdentify_NVMe_Controller::ReadIdentify(ByteSpan buffer) {
  if (nvme_ == nullptr) return Status::IdentifyFailed;
  return nvme_->nvmeIdentify(kControllerCns, 0, buffer);
}

void ParseIdentify_NVMe_Controller::AppendRows(ByteView buffer) {
  // NPSS counts from 0, and there is room for 32 (figure 66).
  constexpr std::size_t kNumberOfPowerStates = 263, kMostPowerStates = 32;
  AppendPage(buffer, kController, table_, PagePosition::Byte);
  const auto states = std::size_t{ReadByte(buffer, kNumberOfPowerStates)} + 1;
  AppendGroups(buffer, kPowerStates, std::min(states, kMostPowerStates), table_);
  AppendPage(buffer, kVendorArea, table_, PagePosition::Byte);
}

ParseIdentify_NVMe_Namespace::ParseIdentify_NVMe_Namespace(DeviceManagement::Device* device)
    : ParseIdentify(device, "NVMe Identify Namespace", "Byte") {
  ParseIdentify_NVMe_Namespace::Initialize();
}

StatusCode ParseIdentify_NVMe_Namespace::ReadIdentify(ByteSpan buffer) {
  if (nvme_ == nullptr) return Status::IdentifyFailed;
  // A controller alone has none; its unit is a number of its own.
  const auto node = DeviceManagement::ParseNvmeNode(device_->GetString(Properties::DevicePath));
  if (node && !node->space) return Status::NotSupportedByDrive;
  return nvme_->nvmeIdentify(kNamespaceCns, GetNamespace(*device_), buffer);
}

void ParseIdentify_NVMe_Namespace::AppendRows(ByteView buffer) {
  constexpr std::size_t kFormats = 17;
  AppendPage(buffer, kNamespace, table_, PagePosition::Byte);
  AppendGroups(buffer, kLbaFormats, kFormats, table_);
}

}  // namespace Morvu
