// SCT, the SMART Command Transport (ACS-3, clause 8): a key sector that is written to log E0h
// tells the drive what to do; it answers in registers, or in log E1h.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "frame/Bytes.h"
#include "messaging/features/Feature.h"

namespace Morvu {

// The base of all actions. An object is built for one request; its data live as long as it does.
class SCT : public Function {
 public:
  static constexpr std::size_t kSectorSize = 512;  // of any ATA drive's logs

  // Ready on a Morvu SATA drive of a product that has these actions. Of an action that the
  // drive refuses a remark says why, where the drive tells it.
  void Initialize() override;
  std::int32_t Execute() override;

  std::uint16_t GetActionCode() const { return actionCode_; }
  // Bytes 4 to 511 of the key sector.
  std::span<std::uint8_t> GetKeySectorParameters() { return std::span(keySector_).subspan(4); }
  // What the drive gave back in its registers, after a good Execute: the value of a get, or
  // the sectors that there are to read.
  std::uint16_t GetTransferValue() const { return transferValue_; }
  // What a good Execute has read.
  ByteView GetData() const { return ByteView(dataBuffer_).first(bytesRead_); }

 protected:
  enum class Answer : std::uint8_t { None, Value, Data };

  // `dataSectors` is the room for the data that the action brings.
  SCT(DeviceManagement::Device* device, std::uint16_t actionCode, std::uint16_t functionCode,
      Answer answer, ProgressReporter& reporter, std::size_t dataSectors = 0);

  // The base's refusals, without the product's.
  StatusCode FindRefusal();
  void SetWord(std::size_t offset, std::uint16_t value) {
    WriteLittle16(value, offset, keySector_);
  }

  std::uint16_t actionCode_;
  std::uint16_t functionCode_;

 private:
  struct Rules;

  bool WriteKeySector();
  void NoteRefusal();
  bool TakeValue();
  bool ReadData();
  bool Fail(std::string_view text, StatusCode code);

  Answer answer_;
  std::array<std::uint8_t, kSectorSize> keySector_{};
  std::vector<std::uint8_t> dataBuffer_;
  std::size_t bytesRead_ = 0;
  std::uint16_t transferValue_ = 0;
};

// The words of the standard for an extended status code (ACS-3, table 204), with its number.
std::string DescribeSctStatus(std::uint16_t status);

// The SCT status sector, log E0h, as it is; empty when it could not be read or is none.
std::vector<std::uint8_t> ReadSctStatus(DeviceManagement::Device& device);

// ---- Error recovery control (ACS-3, 8.3.3) ----

enum class SctTimer : std::uint16_t { Read = 1, Write = 2 };

class SCT_Error_Recovery_Control : public SCT {
 public:
  // The get of a timer, in steps of 100 ms.
  SCT_Error_Recovery_Control(DeviceManagement::Device* device, SctTimer timer,
                             ProgressReporter& reporter);
  // Its set, which lasts until the power goes.
  SCT_Error_Recovery_Control(DeviceManagement::Device* device, SctTimer timer, std::uint16_t value,
                             ProgressReporter& reporter);
};

// ---- Feature control (ACS-3, 8.3.4) ----

// A setting under feature control.
struct SctFeature {
  std::uint16_t code;
  bool hasOptions;  // a set says whether it is kept over a power cycle
};

// clang-format off
inline constexpr SctFeature SCT_Write_Cache_State            = {0x0001, true};
inline constexpr SctFeature SCT_Temperature_Logging_Interval = {0x0003, true};
inline constexpr SctFeature SCT_PLI_Cap_Test_Time_Interval   = {0xD000, true};
inline constexpr SctFeature SCT_Power_Governor_Mode          = {0xD001, false};
inline constexpr SctFeature SCT_Power_Governor_Burst_Power   = {0xD003, false};
inline constexpr SctFeature SCT_Power_Governor_Avg_Power     = {0xD004, false};
inline constexpr SctFeature SCT_Physical_Sector_Size         = {0xD801, true};
// clang-format on

enum class SctGet : std::uint16_t { State = 2, Options = 3 };
enum class SctKept : std::uint16_t { UntilPowerCycle = 0, OverPowerCycles = 1 };

class SCT_Feature_Control : public SCT {
 public:
  SCT_Feature_Control(DeviceManagement::Device* device, const SctFeature& feature, SctGet what,
                      ProgressReporter& reporter);
  // A set. A feature without options takes no notice of `kept`.
  SCT_Feature_Control(DeviceManagement::Device* device, const SctFeature& feature,
                      std::uint16_t state, SctKept kept, ProgressReporter& reporter);
};

// ---- Data tables (ACS-3, 8.3.5) ----

class SCT_Data_Tables : public SCT {
 public:
  SCT_Data_Tables(DeviceManagement::Device* device, std::uint16_t tableId,
                  ProgressReporter& reporter);
};

}  // namespace Morvu
