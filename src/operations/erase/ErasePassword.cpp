#include "operations/erase/ErasePassword.h"

#include <algorithm>
#include <array>
#include <string>

#include "frame/Bytes.h"
#include "frame/Logger.h"

namespace Morvu {

using DeviceManagement::CommandSet_ATA;

namespace {

// The data of the security commands (ACS-3, table 158): one ATA block.
using PasswordBlock = std::array<std::uint8_t, 512>;
constexpr std::size_t kPasswordOffset = 2;
constexpr std::uint8_t kEnhancedErase = 0x02;  // bit 0 clear: the user password
static_assert(ErasePassword::kText.size() <= 32);

// IDENTIFY DEVICE, word 128 (ACS-3).
constexpr std::size_t kSecurityStatus = 128 * 2;
constexpr std::uint16_t kSecuritySupported = 0x0001;
constexpr std::uint16_t kSecurityEnabled = 0x0002;

}  // namespace

ErasePassword::~ErasePassword() {
  if (mayBeSet_) (void)TakeOff();
}

StatusCode ErasePassword::Set() {
  mayBeSet_ = true;
  return Send(&CommandSet_ATA::ataSecuritySetPassword);
}

StatusCode ErasePassword::EraseUnit() { return Send(&CommandSet_ATA::ataSecurityEraseUnit); }

ErasePassword::State ErasePassword::TakeOff() {
  constexpr int kTries = 2;
  mayBeSet_ = false;
  auto state = State::Unknown;
  for (int i = 0; i < kTries && (i == 0 || state == State::On); ++i) {
    (void)Send(&CommandSet_ATA::ataSecurityUnlock);
    (void)Send(&CommandSet_ATA::ataSecurityDisablePassword);
    state = Look();
  }
  return state;
}

ErasePassword::State ErasePassword::Look() {
  std::array<std::uint8_t, 512> data{};
  if (ata_.ataIdentifyDevice(data) != Status::Completed) return State::Unknown;
  const auto status = ReadLittle16(data, kSecurityStatus);
  // A drive that had a password knows security: else these are no data of it.
  if ((status & kSecuritySupported) == 0) return State::Unknown;
  return (status & kSecurityEnabled) != 0 ? State::On : State::Off;
}

StatusCode ErasePassword::Send(Command command) {
  PasswordBlock block{};
  if (enhanced_) block[0] = kEnhancedErase;
  std::ranges::copy(kText, block.begin() + kPasswordOffset);
  return (ata_.*command)(block);
}

}  // namespace Morvu
