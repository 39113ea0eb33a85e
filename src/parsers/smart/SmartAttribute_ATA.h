#pragma once

#include "parsers/smart/SmartAttribute.h"

namespace Morvu {

// One attribute of an ATA drive, with its threshold and whether it passes.
class SmartAttribute_ATA : public SmartAttribute {
 public:
  // `status` is the attribute's flag word; `result` is "Pass" or "Fail".
  SmartAttribute_ATA(const DeviceManagement::Device& device, std::string id,
                     std::string description, std::uint64_t raw, std::uint8_t normalized,
                     std::uint8_t threshold, std::uint8_t worst, std::uint16_t status,
                     std::string result)
      : SmartAttribute(device, std::move(id), std::move(description), raw, normalized),
        threshold_(threshold),
        worst_(worst),
        status_(status),
        result_(std::move(result)) {}

  std::uint8_t GetThreshold() const { return threshold_; }
  std::uint8_t GetWorst() const { return worst_; }
  std::uint16_t GetStatus() const { return status_; }
  const std::string& GetResult() const { return result_; }

 protected:
  std::vector<std::string> GetCells() const override;
  void AddProperties(XmlMessaging::Object& object) const override;
  void AddLeaves(boost::property_tree::ptree& node) const override;

 private:
  std::uint8_t threshold_;
  std::uint8_t worst_;
  std::uint16_t status_;
  std::string result_;
};

}  // namespace Morvu
