// What all paths that carry ATA commands make of them, whatever brings them to the drive.
#pragma once

#include <array>

#include "devices/commands/CommandRecords.h"
#include "devices/commands/SenseData.h"

namespace Morvu::DeviceManagement {

// The registers tell of a command that the device did not carry out.
bool IsAtaFailure(const AtaAnswer& answer);

// Every ATA device refuses NOP, and this refusal proves that one answers.
struct AtaNop {
  TaskFile record{};
  std::array<std::uint8_t, 512> data{};

  Command GetCommand() { return {.record = record, .flags = kRead, .data = data}; }
  static bool IsRefusedIn(const AtaAnswer& answer);
};

// Puts the registers that are known in their places of an answer's image.
void PutRegisters(const AtaAnswer& answer, ByteSpan image);

}  // namespace Morvu::DeviceManagement
