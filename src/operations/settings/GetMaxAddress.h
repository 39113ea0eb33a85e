// The native maximum of a drive: the last address that it has, whatever it shows of it.
#pragma once

#include <cstdint>
#include <memory>

#include "messaging/features/CimClass.h"
#include "messaging/features/Feature.h"

namespace Morvu {

// What a drive has told of its native maximum.
struct NativeMax {
  std::uint64_t last = 0;  // address of the last sector, in sectors of the drive
  std::uint64_t told = 0;  // as the drive told it: NVMe counts 512 bytes, whatever the format
  bool is48Bit = false;    // ATA: by the 48-bit command
};

// Reads it by a transport. What is not known, or is 0, ends with 109, and a remark says why
// where the drive tells it.
class SendGetMaxAddress : public Function {
 public:
  std::int32_t Execute() override { return ReadNativeMax() ? 1 : 0; }
  virtual bool ReadNativeMax() = 0;
  const NativeMax& GetNativeMax() const { return nativeMax_; }

 protected:
  using Function::Function;

  // The end of ReadNativeMax.
  bool Take(const NativeMax& nativeMax);
  bool Fail();

 private:
  NativeMax nativeMax_;
};

// READ NATIVE MAX ADDRESS EXT, and on a drive without 48-bit commands its 28-bit form
// (ATA8-ACS, 7.31 and 7.32): in another's 28 bits stands no more than "this or more".
class SendGetMaxAddress_ATA : public SendGetMaxAddress {
 public:
  SendGetMaxAddress_ATA(DeviceManagement::Device* device, ProgressReporter& reporter);
  void Initialize() override;
  bool ReadNativeMax() override;

 private:
  bool Read28Bit();
};

// The vendor's feature C2h.
class SendGetMaxAddress_NVMe : public SendGetMaxAddress {
 public:
  SendGetMaxAddress_NVMe(DeviceManagement::Device* device, ProgressReporter& reporter);
  void Initialize() override;
  bool ReadNativeMax() override;
};

class GetMaxAddress : public Function {
 public:
  GetMaxAddress(DeviceManagement::Device* device, ProgressReporter& reporter);

  void Initialize() override;
  std::int32_t Execute() override;

  // After a good Execute.
  const NativeMax& GetNativeMax() const { return nativeMax_; }

 private:
  struct Rules;

  std::unique_ptr<SendGetMaxAddress> sender_;
  NativeMax nativeMax_;
};

// The getter of the drive's property "NativeMaxLBA".
std::unique_ptr<XmlMessaging::Property> GetNativeMaxProperty(JobContext* context,
                                                             const PropertyEntry& entry,
                                                             DeviceManagement::Device* device);

}  // namespace Morvu
