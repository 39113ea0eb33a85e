#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "devices/properties/PropertyList.h"
#include "messaging/features/CimClass.h"
#include "messaging/features/Face.h"
#include "messaging/features/Feature.h"
#include "operations/firmware/FirmwareModules.h"
#include "operations/firmware/SendFirmware.h"

namespace Morvu {

// Decides whether a drive may take new firmware, finds the images, sends them and
// looks whether the drive came back with them. The images come from a file that the
// user names, from a firmware module (include/morvu/firmware_module.h), or from two
// callbacks of the caller.
class FirmwareUpdate : public Function {
 public:
  using AttributeCollection = DeviceManagement::PropertyList;
  using FirmwareBinary = std::vector<std::uint8_t>;  // empty when it could not be had
  using EmbeddedMapping =
      std::function<std::optional<AttributeCollection>(const AttributeCollection& attributes)>;
  using EmbeddedBinary = std::function<FirmwareBinary(const std::string& name)>;

  // With `ignoreSecurity` ATA security that is on is told (136), and does not keep the
  // update from running.
  FirmwareUpdate(DeviceManagement::Device* device, bool ignoreSecurity, std::string file,
                 ProgressReporter& reporter);
  // Modules of this type, and of this audience if it is not empty, in the folder
  // FirmwareModules beside the running program and in the extra directories.
  FirmwareUpdate(DeviceManagement::Device* device, bool ignoreSecurity, std::int32_t moduleType,
                 std::string audience, std::span<const std::string> extraDirectories,
                 ProgressReporter& reporter);
  FirmwareUpdate(DeviceManagement::Device* device, bool ignoreSecurity, EmbeddedMapping mapping,
                 EmbeddedBinary binary, ProgressReporter& reporter);
  ~FirmwareUpdate() override;

  std::int32_t Execute() override;
  void Initialize() override;

  // What the drive is to get.
  const AttributeCollection& GetMapping() const { return mapping_; }
  std::uint64_t GetMappingStatus() const;
  bool HasFile() const { return !file_.empty(); }
  // Why the file gives no image, as a sentence; empty where nothing is wrong with it.
  std::string FindFileFault() const;

  // Of a run: the revision before it, and what its last image left.
  const std::string& GetOldRevision() const { return oldRevision_; }
  // The drive took the image, and goes on with its old firmware until a reset.
  bool RunsAfterReset() const { return runsAfterReset_; }
  // The NVMe status that says so; 0 for none.
  StatusCode GetNvmeStatus() const;

  // ---- The family: drive method, option, drive property ----

  struct Request {
    std::string file{};
    std::string audience{};
    bool driveSelected = false;  // a file is used only together with a selected drive
    std::vector<std::string> moduleDirectories{};
    std::uint64_t job = 0;  // that asked for it; 0 for a person
  };
  // How the update of one drive ended.
  struct Outcome {
    DeviceManagement::Device* device = nullptr;  // the caller's
    StatusCode code = Status::NotRun;
    std::string oldRevision{};
    std::string newRevision{};
    bool runsAfterReset = false;
    StatusCode nvmeStatus = Status::Completed;  // beside the code, where there was one
  };
  struct Outcomes {
    StatusCode summary = Status::NotRun;
    // Of the drives in their order, as far as the run came.
    std::vector<Outcome> drives{};
  };
  // Updates the drives one after the other, or the first with a file. The namespaces of an
  // NVMe subsystem, whose firmware is one, are one drive: the first is updated, the others
  // take its outcome. A cancel ends the run before its next drive.
  static Outcomes Runner(std::span<DeviceManagement::Device* const> devices, const Request& request,
                         Face& face);

  // The drive property "FirmwareUpdateAvailable": a CimProperty::Getter.
  static std::unique_ptr<XmlMessaging::Property> GetUpdateAvailable(
      JobContext* context, const PropertyEntry& entry, DeviceManagement::Device* device);

 private:
  struct Rules;
  enum class Source : std::uint32_t { Embedded = 0, File = 1, Module = 2 };

  AttributeCollection GetTargetMappingAttributes(const AttributeCollection& attributes);
  std::optional<AttributeCollection> GetTargetMappingAttributesFromModules(
      const AttributeCollection& attributes);
  // Takes the mapping of one module when it is the newest so far.
  struct Search;
  void ConsiderModule(const std::string& path, Search& search);

  // The names of the images in the order in which they are sent, and one of them. Only one
  // is in memory at a time.
  std::vector<std::string> ListFirmwareBinaries() const;
  FirmwareBinary GetFirmwareBinary(const std::string& name) const;
  FirmwareBinary GetTargetFirmwareFromModule(const std::string& name) const;

  std::unique_ptr<SendFirmware> MakeSender();
  bool Install(const FirmwareBinary& binary);
  bool Send(const FirmwareBinary& binary);
  bool JudgeFailure();
  bool ComesBack();
  bool Fail(StatusCode code);
  bool FailWithoutData();
  bool Cancel();

  bool ignoreSecurity_;
  Source source_;
  std::string file_;
  std::int32_t moduleType_ = 0;
  std::string audience_;
  std::vector<std::string> moduleDirectories_;  // in the order of the search
  EmbeddedMapping embeddedMapping_;
  EmbeddedBinary embeddedBinary_;

  InnerReporter images_;                  // an image's share of the run
  std::unique_ptr<SendFirmware> sender_;  // null when the update may not run
  AttributeCollection mapping_;
  std::shared_ptr<FirmwareModules> modules_ = FirmwareModules::OfRequest();
  std::shared_ptr<const FirmwareModule> module_;  // that gave the mapping
  std::string oldRevision_;
  bool runsAfterReset_ = false;
};

}  // namespace Morvu
