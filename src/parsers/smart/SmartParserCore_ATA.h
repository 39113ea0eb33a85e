#pragma once

#include "frame/Bytes.h"
#include "parsers/smart/SmartParserCore.h"

namespace Morvu {

// The attribute and the threshold sector of SMART READ DATA and SMART READ THRESHOLDS
// (SFF-8035i, revision 2).
class SmartParserCore_ATA : public SmartParserCore {
 public:
  explicit SmartParserCore_ATA(DeviceManagement::Device* device);
  void Initialize() override;

  // Takes the attributes from an attribute sector and a threshold sector.
  void ParseSectors(ByteView data, ByteView thresholds);

 protected:
  bool ParseSMART() override;

 private:
  std::vector<std::string> GetHeader() const override;

  bool ReadSectors(ByteSpan data, ByteSpan thresholds);
  void AddAttribute(ByteView entry, std::uint8_t threshold);

  bool hasFailed_ = false;
  bool isWornOut_ = false;
};

}  // namespace Morvu
