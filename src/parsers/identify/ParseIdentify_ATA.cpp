#include <algorithm>
#include <boost/property_tree/ptree.hpp>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/discovery/DriveXml.h"
#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "frame/Text.h"
#include "frame/status/Commands.h"
#include "messaging/PageTable.h"
#include "parsers/identify/ParseIdentify.h"

namespace Morvu {

namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::size_t kSectorSize = 512;

// ---- The table ----

// Two words are a number, whose upper half stands first; more are shown in their order.
constexpr PageField Range(unsigned first, unsigned last, std::string_view label) {
  const auto words = last - first + 1;
  return {{static_cast<std::uint16_t>(first * 2), static_cast<std::uint16_t>(words * 2)},
          label,
          words > 2 ? Form::Words : Form::Digits};
}
constexpr PageField Word(unsigned word, std::string_view label) { return Range(word, word, label); }
constexpr PageField Bits(unsigned word, unsigned high, unsigned low, std::string_view label) {
  return {{static_cast<std::uint16_t>(word * 2), 2, static_cast<std::uint8_t>(low),
           static_cast<std::uint8_t>(high - low + 1)},
          label,
          Form::Digits};
}
constexpr PageField Bit(unsigned word, unsigned bit, std::string_view label) {
  return Bits(word, bit, bit, label);
}

constexpr PageField kWords[] = {
#include "parsers/identify/IdentifyWords.inc"
};

// Each word stands once, in order, and the bits below a word are all of it, the highest first.
consteval bool AreWordsWhole() {
  unsigned next = 0, word = 0, bit = 0;
  for (const auto& [place, label, form] : kWords) {
    if (place.bits == 0) {
      if (bit != 0 || place.offset != next) return false;
      word = place.offset;
      next = place.offset + place.width;
      continue;
    }
    const auto high = place.low + place.bits - 1u;
    if (place.offset != word || next != word + 2 || high != (bit == 0 ? 15 : bit - 1)) return false;
    bit = place.low;
  }
  return bit == 0 && next == kSectorSize;
}
static_assert(AreWordsWhole());

// What the drive's properties tell, by the word where it begins.
struct ToldRow {
  unsigned word;
  const PropertyEntry* entry;
};
constexpr ToldRow kToldRows[] = {
    {10, &Properties::SerialNumber},
    {23, &Properties::Firmware},
    {27, &Properties::ModelNumber},
};

const PropertyEntry* FindTold(const PagePlace& place) {
  const auto row = std::ranges::find(kToldRows, place.offset / 2u, &ToldRow::word);
  return row == std::end(kToldRows) || place.bits != 0 ? nullptr : row->entry;
}

// ---- Whether the data came ----

// Nothing behind the SATA layer tells of a sector that came short. Its last word is a signature
// and a checksum (ACS-3, table 45). A drive without one says in word 87 that it is valid, and of
// ATA8-ACS on its transport in word 222.
bool IsWhole(ByteView data) {
  constexpr std::uint8_t kSignature = 0xA5;
  constexpr PagePlace kValid{87 * 2, 2, 14, 2}, kAta8{80 * 2, 2, 8, 7}, kTransport{222 * 2, 2};
  if (data[510] == kSignature) return SumOf(data) == 0;
  if (ReadField(data, kValid) != 1) return false;
  return ReadField(data, kAta8) == 0 || ReadField(data, kTransport) != 0;
}

}  // namespace

ParseIdentify_ATA::ParseIdentify_ATA(DeviceManagement::Device* device)
    : ParseIdentify(device, "ATA Identify Device", "Word") {
  ParseIdentify_ATA::Initialize();
}

bool ParseIdentify_ATA::HasCommandSet() const { return ata_ != nullptr || smart_ != nullptr; }

StatusCode ParseIdentify_ATA::ReadIdentify(ByteSpan buffer) {
  if (ata_ == nullptr) return Status::IdentifyFailed;
  ata_->ReadUnseen();
  const auto data = buffer.first(kSectorSize);
  const auto status = ata_->ataIdentifyDevice(data);
  if (status == Status::Completed && !IsWhole(data)) {
    if (IsZero(data)) {
      return Status::IdentifyFailed;
    }
    Warn(
        "The checksum of the identify data is wrong, or the data came short: do not rely on them.");
  }
  return status;
}

void ParseIdentify_ATA::AppendRows(ByteView buffer) {
  for (const auto& row : kWords) {
    if (const auto* told = FindTold(row.place)) {
      table_.AppendRow({ShowPosition(row.place, PagePosition::Word), std::string(row.label),
                        Printable(device_->GetString(*told))});
    } else {
      AppendPage(buffer.first(kSectorSize), {&row, 1}, table_, PagePosition::Word);
    }
  }
}

void ParseIdentify_ATA::WriteData(boost::property_tree::ptree& tree) const {
  if (GetErrorCode() != Status::Completed) return;
  if (drive_ != nullptr) DeviceManagement::WriteDriveXml(*drive_, tree);
  auto& data = tree.add_child("identify_data", {});
  boost::property_tree::ptree* word = nullptr;
  for (const auto* row : table_.GetDataRows()) {
    const auto& cells = row->cells;
    const bool isField = cells[0].text.empty() && word != nullptr;
    auto& node = isField ? word->add("breakdown.field", "") : data.add("word", "");
    if (!isField) {
      word = &node;
      node.put("words", cells[0].text);
    }
    node.put("description", cells[1].text);
    node.put("value", cells[2].text);
  }
}

}  // namespace Morvu
