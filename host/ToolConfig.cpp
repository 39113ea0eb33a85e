#include "Tool.h"
#include "messaging/drive_class/MorvuSSD.h"

namespace MorvuTool {
namespace {

constexpr std::string_view kLegalLines[] = {
    "Manages Morvu solid-state drives attached to this computer by SATA, SAS and",
    "NVMe: lists them, shows their health, updates, erases, tests and configures",
    "them. Some features erase all data on a drive; they ask before they begin.",
};

constexpr std::string_view kLicense =
    R"(Permission is granted to use this tool, and to copy it unchanged, on computers
with drives that the user owns or has been asked to look after.

The tool is provided as it is, without warranty of any kind, express or
implied, including but not limited to the warranties of merchantability,
fitness for a particular purpose and noninfringement. In no event shall its
authors be liable for any claim, damages, loss of data or other liability
arising from its use.
)";

constexpr std::string_view kDescription =
    "Lists the solid-state drives of this computer and runs one feature on a selected drive.;"
    "Select a drive by its index, partition, serial number or device path. A selected "
    "drive without a feature shows its basic information. No arguments at all show the drive list.;"
    "The process must have the rights to open /dev/sg* and /dev/nvme*.;"
    "The exit status is 0 when the run ended well.";

constexpr std::string_view kHelpNote =
    "\"-help smart\" tells of the options with that word alone; all of them follow here. A drive "
    "is selected for sure by -drive_serial; -drive_list shows the serial numbers. More is in "
    "\"man morvussd\".";

Morvu::DeviceManagement::ScanOptions MakeScanOptions() {
  Morvu::DeviceManagement::ScanOptions options;
  options.identify = true;
  options.findLogical = true;
  return options;
}

const Morvu::ToolConfig kToolConfig = {
    .toolName = "morvussd",
    .productName = "Morvu SSD Tool",
    .version = MORVU_TOOL_VERSION,
    .legalLines = kLegalLines,
    .closingNote = "Use -help for the list of options, -license for the software license.",
    .description = kDescription,
    .helpNote = kHelpNote,
    .license = kLicense,
    .defaultOption = "-drive_list",
    .scanOptions = MakeScanOptions(),
    .driveProperties = Morvu::GetDriveProperties(),
};

}  // namespace

const Morvu::ToolConfig& GetToolConfig() { return kToolConfig; }

}  // namespace MorvuTool
