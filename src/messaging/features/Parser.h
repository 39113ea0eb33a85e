#pragma once

#include <boost/property_tree/ptree_fwd.hpp>
#include <memory>
#include <string>
#include <string_view>

#include "messaging/ResultTable.h"
#include "messaging/features/Feature.h"

namespace Morvu {

// An operation that reads data and tabulates it.
class Parser : public Feature {
 public:
  std::int32_t Execute() override { return 0; }
  void Initialize() override;  // ready to run
  // The name of the parser's object in a reply; empty for none.
  virtual std::string GetTitle() const { return {}; }
  // Adds the parser's data to `tree`.
  virtual void WriteData(boost::property_tree::ptree& tree) const = 0;

  ResultTable& GetTable() { return table_; }
  const ResultTable& GetTable() const { return table_; }
  // Of the device; empty without one.
  std::string GetSerialNumber() const;
  // The table as a List whose keys hold the device's serial number.
  std::unique_ptr<XmlMessaging::List> ToXml(bool asProperties) const;

 protected:
  explicit Parser(DeviceManagement::Device* device, ProgressReporter& reporter = NoReporter())
      : Feature(device, reporter) {}
  Parser() : Parser(nullptr) {}
  // A table of text without a drive.
  Parser(std::string_view text, std::string_view separator) : Parser(nullptr) {
    table_.AppendText(text, separator, true);
  }

  ResultTable table_;
};

}  // namespace Morvu
