#pragma once

#include <array>
#include <optional>

#include "devices/commands/CommandPath.h"

namespace Morvu::DeviceManagement {

// What the kernel hands back of one SG_IO call (<scsi/sg.h>).
struct SgReply {
  int osError = 0;          // errno of the call; then the rest says nothing
  std::uint8_t status = 0;  // SAM-5
  std::uint16_t hostStatus = 0;
  std::uint16_t driverStatus = 0;
  std::array<std::uint8_t, 32> buffer{};
  std::size_t senseLength = 0;
  std::optional<std::uint32_t> residual;

  ByteView GetSense() const { return ByteView(buffer).first(senseLength); }
};

// Sends SCSI CDBs with the kernel's SG_IO interface (<scsi/sg.h>).
class CommandPath_SCSI : public CommandPath {
 public:
  explicit CommandPath_SCSI(std::string devicePath);

  bool TestDevice() override;
  std::unique_ptr<CommandPath> Clone() const override;

 protected:
  CommandPath_SCSI(std::string devicePath, std::string_view protocol, std::string_view description);

  Outcome SendOpcodeCore(const Command& command) override;

  // Sends a CDB with the time-out, the direction and the data of `command`, and keeps the sense
  // for the log.
  SgReply Exchange(ByteView cdb, const Command& command);
  // The call itself.
  virtual SgReply CallDevice(ByteView cdb, const Command& command);
  // What a reply tells before its sense is judged: Done where only the sense can tell
  // more.
  static Outcome BeginOutcome(const SgReply& reply, CommandKind kind);
  // Short in place of Done when a read brought fewer bytes than the command must.
  static void CheckLength(const Command& command, Outcome& outcome);
};

// The status byte that says that sense data has come (SAM-5).
inline constexpr std::uint8_t kCheckCondition = 0x02;

}  // namespace Morvu::DeviceManagement
