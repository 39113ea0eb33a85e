#pragma once

#include <memory>

#include "parsers/smart/SmartParserCore.h"

namespace Morvu {

// The SMART attributes of one drive, whatever its transport: checks the drive, picks
// the core for its protocol, and takes over the core's table and result.
class SmartParser : public Parser {
 public:
  explicit SmartParser(DeviceManagement::Device* device, ProgressReporter& reporter = NoReporter());

  std::int32_t Execute() override;
  void Initialize() override;
  // Adds a child "data".
  void WriteData(boost::property_tree::ptree& tree) const override;

  // Of a refused drive: 0, 0 and no attributes.
  std::int32_t SmartHealth() const { return core_ ? core_->SmartHealth() : 0; }
  std::int32_t SmartLife() const { return core_ ? core_->SmartLife() : 0; }
  // Live as long as the parser, until it is executed again.
  const SmartParserCore::Attributes& GetAttributes() const;

 private:
  std::string_view GetLogName() const override { return "SmartParser"; }
  StatusCode ChooseCore();

  std::unique_ptr<SmartParserCore> core_;  // null for a refused drive
};

}  // namespace Morvu
