// Paths to a drive behind an LSI RAID controller: the vendor's library in place of a node.
#pragma once

#include <string>
#include <utility>

#include "devices/commands/CommandPath_ATA_SCSI.h"
#include "devices/commands/LsiLibrary.h"

namespace Morvu::DeviceManagement {

// A drive as the library knows it. Two controllers may have drives of one device id.
struct LsiDrive {
  std::string vendorLibrary;
  std::uint32_t controller = 0;
  std::uint16_t device = 0;

  // "LSI_0_12": a name, and no node.
  std::string GetName() const;
  // "LSI_0_volume_1": what stands for a volume of the same controller that is no disk.
  std::string GetVolumeName(std::uint16_t volume) const;
  LibTarget GetTarget() const { return {.controller = controller, .device = device}; }
};

// What the paths share: it is open while it holds the library. `Base` is the path that says
// what is sent.
template <typename Base>
class CommandPath_LSI : public Base {
 public:
  StatusCode Open() override {
    library_ = LsiLibrary(drive_.vendorLibrary);
    return IsOpen() ? Status::Completed : Status::NoCommunication;
  }
  StatusCode Close() override {
    library_ = LsiLibrary();
    return Status::Completed;
  }
  bool IsOpen() const override { return library_.IsLoaded(); }

 protected:
  template <typename... Arguments>
  explicit CommandPath_LSI(LsiDrive drive, Arguments... arguments)
      : Base(drive.GetName(), arguments...),
        drive_(std::move(drive)),
        library_(drive_.vendorLibrary) {
    this->description_ = "LSI " + this->description_;
  }
  template <typename Path>
  std::unique_ptr<CommandPath> CloneAs() const {
    auto clone = std::make_unique<Path>(drive_);
    this->CopyTo(*clone);
    return clone;
  }

  const LsiDrive drive_;
  LsiLibrary library_;
};

// ATA commands as frames.
class CommandPath_LSI_ATA final : public CommandPath_LSI<CommandPath> {
 public:
  explicit CommandPath_LSI_ATA(LsiDrive drive);

  bool TestDevice() override;
  std::unique_ptr<CommandPath> Clone() const override { return CloneAs<CommandPath_LSI_ATA>(); }

 protected:
  Outcome SendOpcodeCore(const Command& command) override;
};

// Sends a CDB; what the library tells in place of a kernel.
SgReply SendLsiScsi(const LsiLibrary& library, const LsiDrive& drive, ByteView cdb,
                    const Command& command);

class CommandPath_LSI_SCSI final : public CommandPath_LSI<CommandPath_SCSI> {
 public:
  explicit CommandPath_LSI_SCSI(LsiDrive drive) : CommandPath_LSI(std::move(drive)) {}

  std::unique_ptr<CommandPath> Clone() const override { return CloneAs<CommandPath_LSI_SCSI>(); }

 protected:
  SgReply CallDevice(ByteView cdb, const Command& command) override {
    return SendLsiScsi(library_, drive_, cdb, command);
  }
};

// ATA commands in ATA PASS-THROUGH CDBs.
class CommandPath_LSI_ATA_SCSI final : public CommandPath_LSI<CommandPath_ATA_SCSI> {
 public:
  explicit CommandPath_LSI_ATA_SCSI(LsiDrive drive) : CommandPath_LSI(std::move(drive)) {}

  std::unique_ptr<CommandPath> Clone() const override {
    return CloneAs<CommandPath_LSI_ATA_SCSI>();
  }

 protected:
  SgReply CallDevice(ByteView cdb, const Command& command) override {
    return SendLsiScsi(library_, drive_, cdb, command);
  }
};

}  // namespace Morvu::DeviceManagement
