#include "cli/ToolOptions.h"

#include "cli/QRKCLI.h"
#include "devices/discovery/AdapterManager.h"

namespace Morvu {
namespace {

using Lines = std::string_view[];

constexpr Lines kHelpText = {
    "Display the help string and exit.All other arguments will be ignored."};
constexpr ArgumentDeclaration kHelpArguments[] = {
    {"[keyword]",
     "(Optional) Perform a keyword search on each feature name and feature description. Put quotes "
     "around the keyword when wanting to include spaces."}};
constexpr Lines kHelpExamples = {"-help drive_index"};

constexpr Lines kLicenseText = {"Display the tool's software license."};

constexpr Lines kLogText = {
    "Saves a debug log of the execution steps the tool took to run the selected functionality. By "
    "default the log is saved to a file with the name in the following format: "
    "'LOG_{date}_{time}.txt'"};
constexpr ArgumentDeclaration kLogArguments[] = {
    {"[filename]", "(Optional) Save the log file using the given name instead of the default."}};
constexpr Lines kLogExamples = {"-log myLog.txt"};

constexpr Lines kListText = {
    "Display a list of attached drives to the screen. All other arguments besides -help will be "
    "ignored. For each detected drive, the drive's index, model string, serial number, firmware "
    "revision, and device path will be displayed."};
constexpr ArgumentDeclaration kListArguments[] = {
    {"[filename]",
     "(Optional) Save the drive list information to the given file. File will be in CSV format."}};
constexpr Lines kListExamples = {"-drive_list drive_list_output.txt"};

constexpr Lines kIndexText = {
    "Use to select a specific drive to interact with. Drive selection is made by index value. You "
    "must specify a drive for most features to work. If no other parameters are specified then "
    "basic information of the selected drive will be displayed."};
constexpr ArgumentDeclaration kIndexArguments[] = {
    {"(index_num)",
     "(Required) A valid drive index number. See the output of -drive_list for the index value of "
     "each attached drive."}};
constexpr Lines kIndexExamples = {"-drive_index 1"};

constexpr Lines kLetterText = {
    "Use to select a specific drive to interact with. Drive selection is made by drive letter. You "
    "must specify a drive for most features to work.If no other parameters are specified then "
    "basic information of the selected drive will be displayed."};
constexpr ArgumentDeclaration kLetterArguments[] = {
    {"(partition_string)",
     "(Required) A valid drive partition string. See the output of -drive_list for the partition "
     "string of each attached drive."}};
constexpr Lines kLetterExamples = {"-drive_letter C"};

constexpr Lines kSerialText = {
    "Use to select a specific drive to interact with. Drive selection is made by drive serial "
    "number. You must specify a drive for most features to work.If no other parameters are "
    "specified then basic information of the selected drive will be displayed."};
constexpr ArgumentDeclaration kSerialArguments[] = {
    {"(serial_num)",
     "(Required) A valid serial number of an attached drive. See the output of -drive_list for the "
     "serial number of each attached drive."}};
constexpr Lines kSerialExamples = {"-drive_serial BTWL402600K4480QGN"};

constexpr Lines kSeveralText = {
    "Use to select several drives at once, for features that read or that update firmware. The "
    "feature runs on all of them side by side; output and result of each drive follow in the order "
    "of -drive_list, and the exit status tells the worst. A serial number that no drive has, or "
    "several have, refuses the whole line."};
constexpr ArgumentDeclaration kSeveralArguments[] = {
    {"(serial_num | all)",
     "(Required) Serial numbers of attached drives, with blanks between them, or \"all\"."}};
constexpr Lines kSeveralExamples = {
    "-drives all -smart", "-drives BTWL402600K4480QGN CVFT4030004F800CGN -firmware_update"};

constexpr Lines kPathText = {
    "Use to select a specific drive to interact with. Drive selection is made by drive's path. You "
    "must specify a drive for most features to work. If no other parameters are specified then "
    "basic information of the selected drive will be displayed."};
constexpr ArgumentDeclaration kPathArguments[] = {
    {"(path)",
     "(Required) A valid drive path of an attached drive. See the output of -drive_list for the "
     "drive path of each attached drive."}};
constexpr Lines kPathExamples = {"-drive_path /dev/sg0"};

constexpr Lines kRecordText = {
    "Records the ATA and SCSI commands of the feature and what came back, a file for each drive "
    "that it "
    "works on. Passwords are left out, but with -with_passwords. A file that exists stays as it "
    "is: "
    "the new name gets a number."};
constexpr ArgumentDeclaration kRecordArguments[] = {
    {"[filename]", "(Optional) The file, in XML. Defaults to recording_<date and time>.xml."}};
constexpr Lines kRecordExamples = {"-drive_index 1 -smart -record smart.xml"};
constexpr Lines kWithPasswordsText = {
    "Used with -record: what security commands give a drive, passwords and keys, stands in the "
    "file as well."};
constexpr Lines kWithPasswordsExamples = {
    "-drive_index 1 -secure_erase -record erase.xml -with_passwords"};
constexpr Lines kForceText = {"Use to bypass all the user prompts."};
constexpr Lines kForceExamples = {"-drive_index 1 -[Feature_with_prompt] -force"};

constexpr Lines kQuietText = {
    "Show results only: no banner, no description of the selected drive, no line for a good end."};
constexpr Lines kQuietExamples = {"-health -quiet"};

constexpr Lines kVolatileText = {
    "Set the volatile option flag for SCT Feature Control. Setting this flag will make the changes "
    "persist after a power cycle."};
constexpr Lines kVolatileExamples = {"-drive_index 1 -wc_state 2 -volatile"};

constexpr Lines kControllerText = {
    "Use to parse NVMe identify controller data. Must be used with -identify option; it is ignored "
    "with all other options. Selected drive must support NVMe commands"};
constexpr Lines kControllerExamples = {"-drive_index 2 -identify -controller"};

constexpr Lines kLsiText = {
    "Include the drives behind LSI RAID controllers. The controller vendor's library, "
    "libLSI.AdapterAPI.so.4.02, must stand beside the tool and must have been tagged. A RAID "
    "volume is shown as \"(RAID Volume)\", a drive that is part of one as \"(RAID Member)\"."};
constexpr Lines kLsiExamples = {"-lsi -drive_list", "-lsi -drive_path LSI_0_4 -smart"};

constexpr Lines kJsonText = {
    "Print one JSON document, and nothing else, in place of the texts: the drives, tables and "
    "results of this command line. No question is asked: a feature that would ask is refused "
    "unless -force is given."};
constexpr Lines kJsonExamples = {"-json", "-drive_index 1 -smart -json"};

using enum OptionCategory;
constexpr auto kFlag = OptionKind::Flag;
constexpr auto kNumbers = OptionKind::Numbers;
constexpr auto kText = OptionKind::Text;
constexpr auto kTexts = OptionKind::Texts;
constexpr auto kNothing = OptionScan::None;
constexpr auto kDrives = OptionScan::Drives;
constexpr auto kAll = OptionScan::Partitions;
constexpr auto kAny = OptionScan::Any;

constexpr std::string_view kHelpNames[] = {"help", "--help", "-h"};

std::vector<std::string> FindSerialNodes(const std::string& serial) {
  return DeviceManagement::FindNodesBySerial(serial);
}

}  // namespace

std::span<const ToolOption> GetToolOptions() {
  using DeviceManagement::FindNodesByPartition;
  using DeviceManagement::FindNodesByPath;
  // clang-format off
  static constexpr ToolOption kToolOptions[] = {
      //name           kind      category        help             arguments         examples             scan       handler                     nodes                 drives' own
      {{"-help",         kTexts,   Tool,           kHelpText,       kHelpArguments,   kHelpExamples,       kNothing}, &QRKCLI::ShowHelp,         nullptr,               false, kHelpNames},
      {{"-license",      kFlag,    Tool,           kLicenseText,    {},               {},                  kNothing}, &QRKCLI::ShowLicense},
      {{"-log",          kTexts,   Tool,           kLogText,        kLogArguments,    kLogExamples,        kAny},     &QRKCLI::StartLog},
      {{"-drive_list",   kTexts,   Tool,           kListText,       kListArguments,   kListExamples,       kDrives},  &QRKCLI::ShowDriveList},
      {{"-drive_index",  kNumbers, DriveSelection, kIndexText,      kIndexArguments,  kIndexExamples,      kAll},     &QRKCLI::PickByIndex},
      {{"-drive_letter", kText,    DriveSelection, kLetterText,     kLetterArguments, kLetterExamples,     kAll},     &QRKCLI::PickByLetter,     &FindNodesByPartition, false},
      {{"-drive_serial", kText,    DriveSelection, kSerialText,     kSerialArguments, kSerialExamples,     kAll},     &QRKCLI::PickBySerial,     &FindSerialNodes,      true},
      {{"-drive_path",   kText,    DriveSelection, kPathText,       kPathArguments,   kPathExamples,       kAll},     &QRKCLI::PickByPath,       &FindNodesByPath,      false},
      {{kSeveralDrives,  kTexts,   DriveSelection, kSeveralText,    kSeveralArguments, kSeveralExamples,   kAll},     &QRKCLI::PickSeveral},
      {{"-record",       kTexts,   Modifier,       kRecordText,     kRecordArguments, kRecordExamples,     kAny}},
      {{"-with_passwords", kFlag,  Modifier,       kWithPasswordsText, {},            kWithPasswordsExamples, kAny}},
      {{"-force",        kFlag,    Modifier,       kForceText,      {},               kForceExamples,      kAny}},
      {{"-quiet",        kFlag,    Modifier,       kQuietText,      {},               kQuietExamples,      kAny}},
      {{"-volatile",     kFlag,    Modifier,       kVolatileText,   {},               kVolatileExamples,   kAny}},
      {{"-controller",   kFlag,    Modifier,       kControllerText, {},               kControllerExamples, kAny}},
      {{"-lsi",          kFlag,    Modifier,       kLsiText,        {},               kLsiExamples,        kAny}},
      {{kJsonOption,     kFlag,    Modifier,       kJsonText,       {},               kJsonExamples,       kAny}},
      // For families that declare them.
      {{"-drive_id",     kText,    DriveSelection, {},              {},               {},                  kAll},     &QRKCLI::PickByIdentifier, nullptr,               false, {}, false},
      {{"-drive_csmi",   kNumbers, DriveSelection, {},              {},               {},                  kAll},     &QRKCLI::PickByAddress,    nullptr,               false, {}, false},
  };
  // clang-format on
  return kToolOptions;
}

const ToolOption* FindToolOption(std::string_view name) {
  for (const auto& option : GetToolOptions()) {
    if (option.declaration.name == name) return &option;
  }
  return nullptr;
}

}  // namespace Morvu
