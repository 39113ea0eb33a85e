#include "parsers/smart/ScsiLog.h"

#include <algorithm>

#include "devices/commands/CommandSet_SCSI.h"

namespace Morvu {
namespace {

constexpr std::size_t kHeader = 4;  // of a page, and of a parameter
constexpr std::uint8_t kSupportedPages = 0x00;

}  // namespace

ScsiLog::ScsiLog(DeviceManagement::CommandSet_SCSI& scsi)
    : scsi_(scsi), list_(Read(kSupportedPages, listData_)) {}

bool ScsiLog::Has(std::uint8_t page) const { return std::ranges::count(list_, page) != 0; }

ByteView ScsiLog::Find(std::uint8_t page, std::uint16_t parameter) {
  if (!Has(page)) return {};
  if (page != number_) page_ = Read(page, data_);
  number_ = page;
  for (std::size_t at = 0; at + kHeader <= page_.size();) {
    const auto code = ReadBig(page_, at, 2);
    const std::size_t length = page_[at + 3];
    at += kHeader;
    if (length > page_.size() - at) return {};
    if (code == parameter) return page_.subspan(at, length);
    at += length;
  }
  return {};
}

ByteView ScsiLog::Read(std::uint8_t page, Data& data) {
  constexpr std::uint64_t kCumulative = 1;
  constexpr std::uint8_t kPageMask = 0x3F;
  data.fill(0);
  const auto status = scsi_.Send(
      DeviceManagement::ScsiRow::LogSense,
      {.length = data.size(), .blocks = 1, .page = page, .pageControl = kCumulative}, data);
  if (status != Status::Completed || (data[0] & kPageMask) != page) return {};
  const auto length = std::min<std::size_t>(ReadBig(data, 2, 2), data.size() - kHeader);
  return ByteView(data).subspan(kHeader, length);
}

}  // namespace Morvu
