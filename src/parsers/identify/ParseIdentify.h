// ParseIdentify: the identify data of one kind of device as a table.
#pragma once

#include <string>
#include <string_view>

#include "frame/Bytes.h"
#include "messaging/features/Parser.h"

namespace Morvu {

// A core of IdentifyParser, which runs it. Its code is 1 where the device has the command set.
class ParseIdentify : public Parser {
 public:
  // Room for the data of every kind.
  static constexpr std::size_t kSize = 4096;

  void Initialize() override;
  std::string GetTitle() const override { return std::string(title_); }
  void WriteData(boost::property_tree::ptree& tree) const override;  // an element "data"

  // Reads the data into `buffer`, of kSize zeros.
  [[nodiscard]] virtual StatusCode ReadIdentify(ByteSpan buffer) = 0;
  // Makes the table of the data.
  void ParseIdentifyData(ByteView buffer);

 protected:
  // "Byte" or "Word" heads the table's first column.
  ParseIdentify(DeviceManagement::Device* device, std::string_view title, std::string_view unit)
      : Parser(device), title_(title), unit_(unit) {}

  virtual bool HasCommandSet() const = 0;
  virtual void AppendRows(ByteView buffer) = 0;

 private:
  std::string_view title_;
  std::string_view unit_;
};

// IDENTIFY DEVICE (ACS-3, 7.12). Serial number, firmware and model are those of the drive's
// properties.
class ParseIdentify_ATA : public ParseIdentify {
 public:
  explicit ParseIdentify_ATA(DeviceManagement::Device* device);

  [[nodiscard]] StatusCode ReadIdentify(ByteSpan buffer) override;
  // The drive's own values, and the table as an element "identify_data". Nothing unless the data
  // were read.
  void WriteData(boost::property_tree::ptree& tree) const override;

 private:
  bool HasCommandSet() const override;
  void AppendRows(ByteView buffer) override;
};

// Identify with CNS 01h (NVMe 1.0e, 5.11), by the drive's path to its controller.
class ParseIdentify_NVMe_Controller : public ParseIdentify {
 public:
  explicit ParseIdentify_NVMe_Controller(DeviceManagement::Device* device);

  [[nodiscard]] StatusCode ReadIdentify(ByteSpan buffer) override;

 private:
  bool HasCommandSet() const override { return nvme_ != nullptr; }
  void AppendRows(ByteView buffer) override;
};

// Identify with CNS 00h.
class ParseIdentify_NVMe_Namespace : public ParseIdentify {
 public:
  explicit ParseIdentify_NVMe_Namespace(DeviceManagement::Device* device);

  [[nodiscard]] StatusCode ReadIdentify(ByteSpan buffer) override;

 private:
  bool HasCommandSet() const override { return nvme_ != nullptr; }
  void AppendRows(ByteView buffer) override;
};

}  // namespace Morvu
