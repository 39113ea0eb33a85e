// Sets the last address that a drive shows, up to its native maximum. What lies beyond is
// hidden, and stays on the drive.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "operations/erase/Erasure.h"
#include "operations/settings/GetMaxAddress.h"
#include "operations/settings/SctSaves.h"
#include "operations/settings/SetFeature.h"

namespace Morvu {

// Sets it by a transport, in sectors of the drive.
class SendSetMaxAddress : public Function {
 public:
  void Initialize() override;
  std::int32_t Execute() override;
  virtual void SetMaxAddress() = 0;
  void SetMaxLBA(std::uint64_t value) { value_ = value; }

 protected:
  SendSetMaxAddress(DeviceManagement::Device* device, const NativeMax& native,
                    ProgressReporter& reporter);

  NativeMax native_;
  std::uint64_t value_ = 0;
};

// SET MAX ADDRESS EXT, or its 28-bit form, whichever the native maximum was read by, directly
// behind that read; the value is kept over power cycles (ATA8-ACS, 7.47 and 7.48).
class SendSetMaxAddress_ATA : public SendSetMaxAddress {
 public:
  SendSetMaxAddress_ATA(DeviceManagement::Device* device, const NativeMax& native,
                        ProgressReporter& reporter)
      : SendSetMaxAddress(device, native, reporter) {}
  void SetMaxAddress() override;
};

// The vendor's feature C1h, behind which the controller is reset.
class SendSetMaxAddress_NVMe : public SendSetMaxAddress {
 public:
  SendSetMaxAddress_NVMe(DeviceManagement::Device* device, const NativeMax& native,
                         ProgressReporter& reporter)
      : SendSetMaxAddress(device, native, reporter) {}
  void SetMaxAddress() override;

 private:
  // In units of 512 bytes, whatever the format, to the end of the drive's sector.
  std::uint64_t ToTold() const;
};

class NVMe_SetMaxLba : public SetFeature {
 public:
  // `value` counts 512 bytes.
  NVMe_SetMaxLba(DeviceManagement::Device* device, std::uint64_t value, ProgressReporter& reporter);
  void Initialize() override;
};

// It erases nothing itself, but hides data, and takes the permit of an erase: the constructor
// looks at all that stands against it, without changing anything; Execute needs the permit.
class SetMaxAddress : public Erasure {
 public:
  static constexpr std::uint64_t kNotChosen = ~std::uint64_t{0};

  SetMaxAddress(DeviceManagement::Device* device, std::uint64_t value, ProgressReporter& reporter);

  void Initialize() override;
  std::int32_t Execute() override;

  // The address of the last sector, of the drive's sector size; 0 where it is not known.
  std::uint64_t GetNativeMax() const { return native_.last; }
  // The new last address.
  void SetMaxLBA(std::uint64_t value) { value_ = value; }
  // The saves that a drive of such a product has left.
  const std::optional<RemainingSaves>& GetSaves() const { return saves_; }
  // The last address that the drive tells now; read by Execute, whatever its end.
  const std::optional<std::uint64_t>& GetShownMax() const { return shown_; }
  bool IsShownUnchanged() const { return shown_ && shown_ == before_; }

  // Takes the permit, which must be one for a disk that nobody uses, and executes; the code.
  StatusCode RunPermitted();

 private:
  struct Rules;

  StatusCode FindObstacle();
  StatusCode CheckAta();
  StatusCode ReadNativeMax();
  StatusCode FindOtherSpaces();
  void MakeSender();
  void TellSize();

  std::uint64_t value_;
  NativeMax native_;
  std::optional<RemainingSaves> saves_;
  std::optional<std::uint64_t> before_, shown_;
  std::unique_ptr<SendSetMaxAddress> sender_;
};

}  // namespace Morvu
