// Format: the settings, Format NVM, and the erases that stand in for it.
#include <algorithm>

#include "devices/properties/NamespaceProperties.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Erase.h"
#include "operations/erase/Format.h"
#include "support/EraseScene.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using namespace Testing;
namespace Properties = DeviceManagement::Properties;

// Opcodes: NVMe 1.0, figure 32; ACS-3.
constexpr int kFormatNvm = 0x80;
constexpr int kSetPassword = 0xF1, kErase = 0xF4;

// Where a drive of these tests can protect its data: all types, in either place.
constexpr std::uint8_t kAllProtection = 0x1F;

struct MethodFormat : MethodScene {
  explicit MethodFormat(MethodParameters parameters = {})
      : MethodScene(NvmeSpec(), "Format", std::move(parameters)) {
    drive.State().nvme.namespaces[0].endToEnd = kAllProtection;
  }
};

struct MethodDelete : MethodScene {
  explicit MethodDelete(const Simulator::DriveSpec& spec, MethodParameters parameters = {})
      : MethodScene(spec, "Delete", std::move(parameters)) {}
};

TEST(Format, SendsTheSettingsToTheNamespace) {
  MethodFormat scene({{"SecureEraseSetting", "1"},
                      {"ProtectionInformation", "2"},
                      {"LBAFormat", "3"},
                      {"ProtectionInformationLocation", "1"},
                      {"MetadataSetting", "1"}});
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, 0);
  const auto& format = FindCommand(run.commands, kFormatNvm);
  EXPECT_EQ(format.NvmeNamespace(), 1u);
  EXPECT_EQ(format.Cdw(10), 3u | 1u << 4 | 2u << 5 | 1u << 8 | 1u << 9);
  // Longer than the minute that the kernel gives a command by itself.
  EXPECT_EQ(format.timeoutMs, 7'200'000u);
  EXPECT_EQ(run.percents, (std::vector{20, 100, 100}));  // the sender's, and the format's own
  EXPECT_TRUE(scene.IsErased());
}

TEST(Format, LeavesTheOtherNamespacesAlone) {
  auto spec = NvmeSpec();
  // The identifiers go from 1 on, or from 2 on: the node's number is none.
  for (const std::uint32_t first : {1, 2})
    for (const int chosen : {1, 2, 3}) {
      spec.nsids = {first, first + 1, first + 2};
      MethodScene scene(spec, "Format");
      for (int space = 1; space <= 3; ++space) {
        scene.fleet.Drive("/dev/nvme0n" + std::to_string(space)).WriteMedium(0, scene.content);
      }
      const auto node = "/dev/nvme0n" + std::to_string(chosen);
      const auto outcome = RunLine({"-drive_path", node, "-format", "1", "-force"});
      EXPECT_EQ(outcome.code, 0) << outcome.output;
      for (int space = 1; space <= 3; ++space) {
        auto drive = scene.fleet.Drive("/dev/nvme0n" + std::to_string(space));
        const auto medium = drive.ReadMedium(0, scene.content.size());
        EXPECT_EQ(medium, space == chosen ? Bytes(medium.size()) : scene.content) << space;
      }
    }
}

// ---- The settings ----

struct SettingsCase {
  FormatSettings settings;
  std::vector<std::string> errors;
  int capabilities = kAllProtection;  // -1: the drive does not tell
};

const std::string kTypes = "Error: Invalid value for protection information. ";
const std::string kPlace = "Error: Invalid value for protection information location. ";

TEST(FormatSettings, AreCheckedAgainstANvmeDrive) {
  const std::string erase =
      "Error: Invalid value for secure erase setting. Supported values are: 0, 1, and 2.";
  const std::string layout = "Error: Invalid value for LBA Format. Supported values are: 0-3";
  const std::string metadata =
      "Error: Invalid value for metadata settings. Supported values are: 0 and 1.";
  const SettingsCase kCases[] = {
      {{}, {}},
      {{}, {}, 0},
      {{2, 3, 3, 1, 1}, {}},
      {{2, 3, 3, 1, 1}, {}, -1},
      {{.secureErase = 3}, {erase}},
      {{.protectionInformation = 4}, {kTypes + "Selected drive supports type 0, 1, 2, 3"}},
      {{.protectionInformation = 1}, {kTypes + "Selected drive supports type 0"}, 0},
      {{.protectionInformation = 2}, {kTypes + "Selected drive supports type 0, 1, 3"}, 0x05},
      {{.lbaFormat = 3}, {}},
      {{.lbaFormat = 4}, {layout}},
      {{.protectionInfoLocation = 2}, {kPlace + "Supported values are: 0 and 1."}},
      {{.protectionInfoLocation = 1}, {kPlace + "Supported value is: 0"}, 0x07},
      {{.metadata = 2}, {metadata}},
      {{3, 4, 4, 2, 2},
       {erase, kTypes + "Selected drive supports type 0, 1, 2, 3", layout,
        kPlace + "Supported values are: 0 and 1.", metadata}},
  };
  MethodFormat scene;
  scene.Prepare();
  for (const auto& row : kCases) {
    const auto device = scene.device()->Clone();
    if (row.capabilities < 0) {
      device->GetProperties().Remove(Properties::EndToEndDataProtCapabilities);
    } else {
      device->AddProperty(Properties::EndToEndDataProtCapabilities, row.capabilities);
    }
    EXPECT_EQ(CheckFormatSettings(*device, row.settings), row.errors);
  }
  // The command has four bits for the format, whatever a drive says.
  scene.device()->AddProperty(Properties::NumLBAFormats, 40);
  EXPECT_EQ(CheckFormatSettings(*scene.device(), {.lbaFormat = 16}).front(),
            "Error: Invalid value for LBA Format. Supported values are: 0-15");
}

TEST(FormatSettings, AreCheckedAgainstASataDrive) {
  MethodDelete scene(SataSpec());
  scene.Prepare();
  EXPECT_TRUE(CheckFormatSettings(*scene.device(), {1, 9, 9, 9, 9}).empty());
  const auto errors = CheckFormatSettings(*scene.device(), {.secureErase = 2});
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0],
            "Error: Invalid value for secure erase setting. Supported values are: 0, and 1 for "
            "ATA drives.");
}

// A slip in a number formats nothing.
TEST(Format, RefusesASettingThatIsNone) {
  for (const auto* value :
       {"3", "255", "256", "258", "-1", "crypto", "1x", "", "0x1", "99999999999999999999999"}) {
    for (const auto* name : {"SecureEraseSetting", "LBAFormat"}) {
      if (std::string_view(name) == "LBAFormat" && std::string_view(value) == "3") continue;
      MethodFormat scene({{name, value}, {"force", "True"}});
      const auto run = RunScene(scene, nullptr, 0);
      EXPECT_EQ(run.code, Status::InvalidArguments) << name << " " << value;
      EXPECT_TRUE(scene.IsUntouched());
    }
  }
}

TEST(Format, TheLineChecksItsArguments) {
  LineScene scene(SataSpec(), {}, "");
  const std::vector<std::string> kLines[] = {
      {"-format", "-force"},                                                     // no drive
      {"-drive_index", "0", "-format", "2", "-force"},                           // NVMe only
      {"-drive_index", "0", "-format", "x", "-force"},                           // no number
      {"-drive_index", "0", "-format", "256", "-force"},                         // not 0
      {"-drive_index", "0", "-format", "0", "y", "-force"},                      // no number
      {"-drive_index", "0", "-format", "0", "0", "0", "0", "0", "0", "-force"},  // six
  };
  for (const auto& line : kLines) EXPECT_EQ(RunLine(line).code, 73) << Join(line, " ");
  EXPECT_TRUE(scene.IsUntouched());
  EXPECT_EQ(RunLine({"-drive_index", "0", "-format", "0", "7", "7", "7", "1", "-force"}).code, 0);
  EXPECT_TRUE(scene.IsErased());
}

// ---- The drive methods ----

TEST(Format, DeleteKeepsTheLayoutOfANvmeDrive) {
  for (const bool crypto : {true, false}) {
    MethodDelete scene(NvmeSpec(), {{"Crypto", crypto ? "True" : "False"}});
    auto& space = scene.drive.State().nvme.namespaces[0];
    space.endToEnd = kAllProtection;
    space.format = 1;
    space.metadata = 1;
    space.protection = 0x08 | 2;
    const auto run = RunScene(scene, nullptr, 0);
    EXPECT_EQ(run.code, 0);
    const auto erase = crypto ? 2u : 1u;
    EXPECT_EQ(FindCommand(run.commands, kFormatNvm).Cdw(10),
              1u | 1u << 4 | 2u << 5 | 1u << 8 | erase << 9);
    EXPECT_EQ(space.format, 1);
    EXPECT_EQ(space.protection, 0x08 | 2);
  }
}

TEST(Format, DeleteErasesASataDrive) {
  for (const bool enhanced : {true, false}) {
    MethodDelete scene(SataSpec(), {{"Crypto", enhanced ? "True" : "False"}});
    const auto run = RunScene(scene, nullptr, 0);
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(FindCommand(run.commands, kErase).dataHead[0], enhanced ? 2 : 0);
    EXPECT_TRUE(scene.IsErased());
  }
}

TEST(Format, AFrozenSataDriveIsSanitized) {
  MethodDelete scene(SataSpec(), {{"Crypto", "False"}});
  scene.drive.State().ata.security.frozen = 1;
  scene.drive.State().ata.sanitize.durationMs = 3000;
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(std::ranges::count(GetOpcodes(run.commands), kSetPassword), 0);
  EXPECT_TRUE(scene.IsErased());
}

// Its number is no namespace's, and a namespace that has no node is not formatted blindly.
TEST(Format, RefusesAControllerWithoutNamespaces) {
  auto spec = NvmeSpec();
  spec.namespaces = 0;
  spec.serial = "LONELY0";
  MethodScene scene(NvmeSpec(), "Format");
  auto controller = scene.fleet.Add(spec);
  ASSERT_EQ(controller.Node(), "/dev/nvme1");
  auto& hidden = controller.State().nvme.namespaces[1];
  hidden = scene.drive.State().nvme.namespaces[0];
  const auto outcome = RunLine({"-drive_path", "/dev/nvme1", "-format", "1", "-force"});
  EXPECT_EQ(outcome.code, Status::NotSupportedByDrive) << outcome.output;
  for (const auto& entry : controller.Journal()) EXPECT_NE(entry.Opcode(), kFormatNvm);
}

}  // namespace
}  // namespace Morvu
