#pragma once

#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "messaging/features/Parser.h"
#include "parsers/smart/SmartAttribute.h"

namespace Morvu {

// Reads and tabulates the SMART attributes of one transport.
class SmartParserCore : public Parser {
 public:
  // By ID text; an ID that comes twice keeps its later entry.
  using Attributes = std::map<std::string, std::unique_ptr<const SmartAttribute>>;

  std::int32_t Execute() override;
  // Nothing unless a run ended well.
  void WriteData(boost::property_tree::ptree& tree) const override;

  const Attributes& GetAttributes() const { return attributes_; }
  std::int32_t SmartHealth() const { return smartHealth_; }  // 100, 50 or 5
  std::int32_t SmartLife() const { return smartLife_; }      // percent

 protected:
  using Parser::Parser;

  // Fills attributes and table. False with code and state set when the drive refuses.
  virtual bool ParseSMART() = 0;
  // The names of the table's columns.
  virtual std::vector<std::string> GetHeader() const = 0;

  // Sets code and state, and logs the reason; false.
  bool Fail(StatusCode code, std::string_view reason);
  void StartAfresh();

  Attributes attributes_;
  std::int32_t smartHealth_ = 100;
  std::int32_t smartLife_ = 100;

 private:
};

}  // namespace Morvu
