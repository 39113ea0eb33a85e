#pragma once

#include "frame/Bytes.h"
#include "parsers/smart/SmartParserCore.h"

namespace Morvu {

// The attribute list in a vendor log page of some NVMe products.
class SmartParserCore_NVMe : public SmartParserCore {
 public:
  explicit SmartParserCore_NVMe(DeviceManagement::Device* device);
  void Initialize() override;  // refuses the other products

  // Takes the attributes from a list. False for one that runs into the buffer's end.
  bool ParseList(ByteView list);

 protected:
  // A list without an end leaves the code untouched.
  bool ParseSMART() override;

 private:
  std::vector<std::string> GetHeader() const override;

  StatusCode ReadLog(ByteSpan data);
  void AddAttribute(ByteView entry);
};

}  // namespace Morvu
