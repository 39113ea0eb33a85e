// A drive full of data, and an operation on it by one of its two faces: by the drive
// method, as a job calls it, or by the command line with its scan.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/CommandLine.h"
#include "support/MethodCalls.h"
#include "support/Scene.h"

namespace Morvu::EraseTesting {

using Testing::DriveScene;
using Testing::LineOutcome;
using Testing::MethodParameters;

// ACS-3's opcodes, the features of SANITIZE DEVICE and of SMART; NVMe 1.0, figure 32.
inline constexpr int kNop = 0x00, kSmart = 0xB0, kSanitize = 0xB4, kReadDma = 0xC8, kStandby = 0xE0,
                     kCheckPower = 0xE5, kIdentify = 0xEC, kSetPassword = 0xF1, kUnlock = 0xF2,
                     kPrepare = 0xF3, kEraseUnit = 0xF4, kDisable = 0xF6;
inline constexpr int kSanitizeStatus = 0x00, kCryptoScramble = 0x11, kBlockErase = 0x12;
inline constexpr int kReadData = 0xD0, kReadThresholds = 0xD1, kExecute = 0xD4;
inline constexpr int kFormatNvm = 0x80;

inline Simulator::DriveSpec SataSpec() {
  return {.model = "MORVU SSDSC2BB480G4", .serial = "BTWL1234", .sectors = 512};
}
inline Simulator::DriveSpec NvmeSpec() {
  return {.kind = Simulator::Kind::Nvme,
          .model = "MORVU SSDPEDMD400G4",
          .serial = "CVFT1234",
          .sectors = 512};
}

inline Simulator::DriveSpec SasSpec() {
  return {.kind = Simulator::Kind::Scsi, .model = "SSD400SAS", .serial = "SAS1", .sectors = 512};
}
// Its revision has logs of its own for the Event Log and the NLog, and counts its SCT saves.
inline Simulator::DriveSpec LogSpec() {
  auto spec = SataSpec();
  spec.firmware = "D2010370";
  return spec;
}

// Gives the drive its timed workload attributes: minutes and media wear.
inline void AddWorkload(Simulator::DriveState& state, std::uint64_t minutes, std::uint64_t wear) {
  auto& attributes =
      state.kind == Simulator::Kind::Nvme ? state.nvme.attributes : state.ata.attributes;
  const std::pair<std::uint8_t, std::uint64_t> kValues[] = {
      {0xE2, wear}, {0xE3, 50}, {0xE4, minutes}};
  for (const auto& [id, raw] : kValues) {
    auto* place = std::ranges::find(attributes, id, &Simulator::SmartAttribute::id);
    if (place == std::end(attributes)) {
      place = std::ranges::find(attributes, 0, &Simulator::SmartAttribute::id);
    }
    *place = {.id = id,
              .value = 100,
              .worst = 100,
              .threshold = 0,
              .flags = 0,
              .reserved = 0,
              .raw = raw};
  }
}

using Bytes = std::vector<std::uint8_t>;

// Runs a drive method on a clone of the device, as a job does.
inline StatusCode CallMethod(DeviceManagement::Device& device, std::string_view name,
                             const MethodParameters& parameters = {},
                             ProgressReporter& reporter = NoReporter(),
                             XmlMessaging::Message* reply = nullptr,
                             const std::vector<std::string>& partitions = {}) {
  JobContext context;
  context.reporter = &reporter;
  context.reply = reply;
  DeviceManagement::SelectedDevices devices;
  devices.devices.push_back(device.Clone());
  for (const auto& each : partitions) devices.partitions.emplace_back(each);
  const auto& clone = *devices.devices.front();
  const auto timeout = clone.GetTimeout();
  const auto code = Testing::CallMethod(context, name, parameters, devices);
  EXPECT_EQ(clone.GetTimeout(), timeout) << "the clone's time-out was not put back";
  return code;
}

// Runs a command line. `answers` is what the user types.
inline LineOutcome RunLine(const std::vector<std::string>& words, const std::string& answers = "") {
  return Testing::RunToolLine(words, answers);
}

// The drive's medium, a small one, is full of a pattern.
class EraseScene : public DriveScene {
 public:
  static Simulator::DriveSpec Small(Simulator::DriveSpec spec) {
    spec.sectors = std::min<std::uint64_t>(spec.sectors, 2048);
    return spec;
  }

  explicit EraseScene(const Simulator::DriveSpec& spec)
      : DriveScene(Small(spec)), content(Small(spec).sectors * spec.sectorSize) {
    for (std::size_t i = 0; i < content.size(); ++i) {
      content[i] = static_cast<std::uint8_t>(i * 7 + i / 512 + 1);
    }
    drive.WriteMedium(0, content);
  }

  void Prepare() override {
    DriveScene::Prepare();
    if (device() != nullptr && shape) shape(*device());
  }

  StatusCode Run(ProgressReporter&) override { return Status::NotRun; }

  // To the last byte.
  bool IsUntouched() { return drive.ReadMedium(0, content.size()) == content; }
  bool IsErased() { return drive.ReadMedium(0, content.size()) == Bytes(content.size()); }

  Bytes content;
  std::function<void(DeviceManagement::Device&)> shape;  // after the scan
};

// The method on the scene's drive.
class MethodScene : public EraseScene {
 public:
  MethodScene(const Simulator::DriveSpec& spec, std::string_view name,
              MethodParameters parameters = {})
      : EraseScene(spec), name_(name), parameters_(std::move(parameters)) {}
  StatusCode Run(ProgressReporter& reporter) override {
    return CallMethod(*device(), name_, parameters_, reporter, &reply);
  }
  // The text that warns the host, of the last run and those before it.
  std::string GetWarnings() const {
    std::string texts;
    for (const auto& property : reply.properties) {
      if (property->GetAttribute("name") == "Warning") texts += property->value + '\n';
    }
    return texts;
  }

  XmlMessaging::Message reply;

 private:
  std::string_view name_;
  MethodParameters parameters_;
};

// Runs the method in a process that the fault kills, before its command or behind it; whether it
// was killed.
inline bool RunKilled(MethodScene& scene, const Simulator::Fault& fault) {
  scene.drive.Inject(fault);
  const pid_t child = fork();
  if (child == 0) {
    (void)scene.Run(NoReporter());
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  scene.drive.ClearFaults();
  return WIFSIGNALED(status);
}

// The system cannot be asked for partitions any more.
inline void HidePartitions(const EraseScene& scene) {
  std::filesystem::rename(scene.fleet.Folder() + "/sys/class/block",
                          scene.fleet.Folder() + "/sys/class/hidden");
}

// The command line on the scene's drive, its scan included.
class LineScene : public EraseScene {
 public:
  LineScene(const Simulator::DriveSpec& spec, std::vector<std::string> words,
            std::string answers = "y\n")
      : EraseScene(spec), words_(std::move(words)), answers_(std::move(answers)) {
    words_.insert(words_.begin(), {"-drive_serial", spec.serial});
  }
  void Prepare() override {}
  StatusCode Run(ProgressReporter& = NoReporter()) override {
    outcome = RunLine(words_, answers_);
    return outcome.code;
  }

  LineOutcome outcome;

 private:
  std::vector<std::string> words_;
  std::string answers_;
};

// A command that only looks: the NOP that tests the connection, IDENTIFY DEVICE, and the reads
// of the medium before an erase and behind it.
inline bool IsLook(const Simulator::JournalEntry& command) {
  if (command.ioctl == Simulator::Ioctl::NvmeIo) return command.Opcode() == 0x02;
  if (!command.IsAta()) return false;
  constexpr int kLooks[] = {0x00, 0x25, 0xC8, 0xEC};
  return std::ranges::count(kLooks, command.Opcode()) > 0;
}

// The opcodes of the commands that do more than look.
inline std::vector<int> GetOpcodes(const std::vector<Simulator::JournalEntry>& commands) {
  std::vector<int> opcodes;
  for (const auto& command : commands) {
    if (!IsLook(command)) opcodes.push_back(command.Opcode());
  }
  return opcodes;
}

// The one command with this opcode.
inline const Simulator::JournalEntry& FindCommand(
    const std::vector<Simulator::JournalEntry>& commands, int opcode) {
  const Simulator::JournalEntry* found = nullptr;
  for (const auto& command : commands) {
    if (command.Opcode() != opcode) continue;
    EXPECT_EQ(found, nullptr) << "more than one command " << opcode;
    found = &command;
  }
  static const Simulator::JournalEntry kNone{};
  EXPECT_NE(found, nullptr) << "no command " << opcode;
  return found == nullptr ? kNone : *found;
}

}  // namespace Morvu::EraseTesting
