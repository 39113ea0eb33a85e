#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "frame/Bytes.h"
#include "messaging/PageTable.h"
#include "messaging/features/CimClass.h"
#include "messaging/features/Parser.h"

namespace Morvu {

// A field of a feature, and the drive's property that holds its value.
struct NvmeFeatureField {
  PageField field;
  const PropertyEntry* property = nullptr;
  PageForm propertyForm = Form::Decimal;
};

// A feature: its fields stand in dword 0 of the completion, or in the data where it has any.
struct NvmeFeature {
  std::uint8_t id;
  std::string_view title;
  bool isOption;         // the prompt shows it
  std::uint32_t dwords;  // of data
  std::span<const NvmeFeatureField> fields;
};

// All features, in ascending order of their identifiers.
std::span<const NvmeFeature> GetNvmeFeatures();
// Null for an identifier that is not there.
const NvmeFeature* FindNvmeFeature(std::uint8_t id);

// Reads a feature of an NVMe controller (Get Features, NVMe 1.0, 5.9) and tabulates it. The
// error code is the status of the command.
class GetFeature_NVMe : public Parser {
 public:
  // The feature is a row of GetNvmeFeatures.
  GetFeature_NVMe(DeviceManagement::Device* device, const NvmeFeature& feature,
                  ProgressReporter& reporter = NoReporter());

  void Initialize() override;
  std::int32_t Execute() override;
  std::string GetTitle() const override { return std::string(feature_.title); }
  void WriteData(boost::property_tree::ptree&) const override {}

  // Dword 0 of the completion, after a good Execute.
  std::uint32_t GetResult() const { return result_; }
  // The data of a feature that has any, likewise, as the drive gave them.
  ByteView GetData() const { return ByteView(buffer_).first(feature_.dwords * 4); }

 private:
  struct Rules;
  static constexpr std::size_t kBufferSize = 64;

  void ParseData();

  const NvmeFeature& feature_;
  std::array<std::uint8_t, kBufferSize> buffer_{};
  std::uint32_t result_ = 0;
};

// The getter of every property that a field of a feature holds. Properties of one feature
// cost one command a listing.
std::unique_ptr<XmlMessaging::Property> GetNvmeFeatureProperty(JobContext* context,
                                                               const PropertyEntry& entry,
                                                               DeviceManagement::Device* device);

}  // namespace Morvu
