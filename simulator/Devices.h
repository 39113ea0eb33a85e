// What the kinds of drives offer to the drive class and to the fleet.
#pragma once

#include "Drive.h"
#include "Fleet.h"

namespace Simulator {

// Fill a new drive's record from its description.
void MakeAta(DriveState& state, const DriveSpec& spec);
void MakeNvme(DriveState& state, const DriveSpec& spec);
void MakeScsi(DriveState& state, const DriveSpec& spec);

// What a power cycle does.
void PowerCycleAta(Drive& drive);
void PowerCycleNvme(Drive& drive);
void PowerCycleScsi(Drive& drive);

// Of the logical sectors that a SATA drive tells.
std::uint32_t AtaSectorSize(const DriveState& state);

// Execute one command; the drive is locked.
void ExecuteAtaDrive(Drive& drive,
                     Transaction& transaction);  // SAT: ATA pass-through and plain SCSI
void ExecuteScsiDrive(Drive& drive, Transaction& transaction);
void ExecuteNvmeDrive(Drive& drive, Transaction& transaction);

// An ATA command refused with these registers, as the SAT layer hands them on.
void RefuseAta(Drive& drive, Transaction& transaction, std::uint8_t status, std::uint8_t error,
               std::uint32_t lba);

// An ATA PASS-THROUGH command whose drive did not answer in time, as Linux's SATA layer
// ends it: aborted, with registers that tell of no error.
void TimeOutAta(Drive& drive, Transaction& transaction);

// The command that a journal or a fault means: of an ATA PASS-THROUGH CDB the
// ATA command itself.
struct Identity {
  CommandClass commandClass;
  std::uint8_t opcode, feature;
};
Identity Identify(const Transaction& transaction);

}  // namespace Simulator
