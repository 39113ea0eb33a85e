// The part of a format that talks to the drive: an erase for ATA, Format NVM for NVMe.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "operations/erase/Erasure.h"

namespace Morvu {

// What a format is asked for. An ATA drive knows the first setting alone.
struct FormatSettings {
  std::uint8_t secureErase = 0;            // NVMe: 0 none, 1 user data, 2 crypto;
                                           // ATA: 0 standard, 1 enhanced
  std::uint8_t protectionInformation = 0;  // type 0 to 3
  std::uint8_t lbaFormat = 0;
  std::uint8_t protectionInfoLocation = 0;  // 0: last 8 bytes of metadata, 1: first 8
  std::uint8_t metadata = 0;                // 0: separate buffer, 1: extended LBA
};

class SendFormat : public Erasure {
 public:
  void Initialize() override;

 protected:
  SendFormat(DeviceManagement::Device* device, const FormatSettings& settings,
             const ErasePermit* permit, ProgressReporter& reporter)
      : Erasure(device, permit, reporter), settings_(settings) {}

  FormatSettings settings_;

 private:
  struct Rules;
};

// ATA has no format: a secure erase runs in its place, or a sanitize on a drive that
// is frozen against the secure erase.
class SendFormat_ATA : public SendFormat {
 public:
  SendFormat_ATA(DeviceManagement::Device* device, std::uint8_t secureErase,
                 const ErasePermit* permit, ProgressReporter& reporter);
  void Initialize() override;
  std::int32_t Execute() override;
  StatusCode Refuse(StatusCode code) override;
  std::optional<std::chrono::minutes> GetDuration(
      const DeviceManagement::FreshIdentity& identity) const override;

 private:
  // The erase that suits the drive as it is now.
  std::unique_ptr<Erasure> ChooseErase();

  std::unique_ptr<Erasure> erase_;
};

class SendFormat_NVMe : public SendFormat {
 public:
  SendFormat_NVMe(DeviceManagement::Device* device, const FormatSettings& settings,
                  const ErasePermit* permit, ProgressReporter& reporter);
  void Initialize() override;
  std::int32_t Execute() override;
};

}  // namespace Morvu
