#include "Fault.h"

namespace Simulator {

Fault::Fault(FaultAction action) {
  slot_.action = action;
  slot_.anyOpcode = 1;
  slot_.anyFeature = 1;
}

Fault Fault::Fail() { return Fault(FaultAction::Fail); }

Fault Fault::AtaError(std::uint8_t status, std::uint8_t error, std::uint32_t lba) {
  Fault fault(FaultAction::AtaError);
  fault.slot_.status = status;
  fault.slot_.error = error;
  fault.slot_.lba = lba;
  return fault;
}

Fault Fault::ScsiError(std::uint8_t status, std::uint8_t key, std::uint8_t asc, std::uint8_t ascq) {
  Fault fault(FaultAction::ScsiError);
  fault.slot_.status = status;
  fault.slot_.key = key;
  fault.slot_.asc = asc;
  fault.slot_.ascq = ascq;
  return fault;
}

Fault Fault::NvmeStatus(std::uint16_t status) {
  Fault fault(FaultAction::NvmeStatus);
  fault.slot_.status = status;
  return fault;
}

Fault Fault::IoctlError(int errorNumber) {
  Fault fault(FaultAction::IoctlError);
  fault.slot_.value = static_cast<std::uint32_t>(errorNumber);
  return fault;
}

Fault Fault::HostError(std::uint16_t hostStatus, std::uint16_t driverStatus) {
  Fault fault(FaultAction::HostError);
  fault.slot_.hostStatus = hostStatus;
  fault.slot_.driverStatus = driverStatus;
  return fault;
}

Fault Fault::Vanish() { return Fault(FaultAction::Vanish); }

Fault Fault::Delay(std::uint32_t milliseconds) {
  Fault fault(FaultAction::Delay);
  fault.slot_.value = milliseconds;
  return fault;
}

Fault Fault::ShortData(std::uint32_t bytes) {
  Fault fault(FaultAction::ShortData);
  fault.slot_.value = bytes;
  return fault;
}

Fault Fault::GarbageData(Garbage garbage) {
  Fault fault(FaultAction::Garbage);
  fault.slot_.garbage = garbage;
  return fault;
}

Fault Fault::Hang() { return Fault(FaultAction::Hang); }

Fault Fault::Signal(int signal) {
  Fault fault(FaultAction::Signal);
  fault.slot_.value = static_cast<std::uint32_t>(signal);
  return fault;
}

Fault Fault::KillBefore() { return Fault(FaultAction::Kill); }

Fault Fault::KillAfter() {
  Fault fault(FaultAction::Kill);
  fault.slot_.afterwards = 1;
  return fault;
}

Fault& Fault::OnCommand(std::uint32_t n) {
  slot_.skip = n > 0 ? n - 1 : 0;
  slot_.times = 1;
  return *this;
}

Fault& Fault::OnOpcode(std::uint8_t opcode, CommandClass commandClass) {
  slot_.anyOpcode = 0;
  slot_.opcode = opcode;
  slot_.commandClass = commandClass;
  return *this;
}

Fault& Fault::OnFeature(std::uint8_t feature) {
  slot_.anyFeature = 0;
  slot_.feature = feature;
  return *this;
}

Fault& Fault::Times(std::uint32_t times) {
  slot_.times = times;
  return *this;
}

}  // namespace Simulator
