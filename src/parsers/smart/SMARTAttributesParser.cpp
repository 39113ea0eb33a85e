#include "parsers/smart/SMARTAttributesParser.h"

#include "frame/Logger.h"
#include "frame/Text.h"
#include "parsers/smart/SmartAttribute.h"
#include "parsers/smart/SmartAttributeEntry.h"

namespace Morvu {

void SMARTAttributesParser::ParseData() {
  table_.AppendRow({"ID", "Description", "Normalized", "Raw"}, true);
  const auto page = GetPage();
  for (std::size_t at = 0; at < page.size() && page[at] != 0; at += SmartEntry::kSize) {
    if (page.size() - at < SmartEntry::kSize) {
      MORVU_LOG(kLogDebug, "SetData", "Offset went beyond buffer length.");
      return;
    }
    const auto entry = page.subspan(at, SmartEntry::kSize);
    const auto id = ToHexNumber(ReadField(entry, SmartEntry::kId));
    table_.AppendRow({id, LookUpAttributeName(*device_, id),
                      Form::Decimal(entry, SmartEntry::kNormalized),
                      Form::PrefixedHex(entry, SmartEntry::kRaw)});
  }
}

}  // namespace Morvu
