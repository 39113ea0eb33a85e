// FeatureRecord: all that there is to say of a family of operations, in one constant beside
// the family. Methods, options, help, manual page, completion, the option tables of the
// documents, the gate before an erase and the sweeps of the tests are made from the records.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>

#include "messaging/features/CimClass.h"
#include "messaging/features/FeatureCall.h"

namespace Morvu {

namespace DeviceManagement {
class DriveHold;
}

// What may stand behind an option.
enum class OptionKind : std::uint32_t {
  Flag = 0,     // nothing
  Numbers = 1,  // decimal numbers, at least one
  Text = 2,     // exactly one text
  Texts = 3,    // any number of texts, also none
};

enum class OptionCategory : std::uint32_t {
  Tool = 0,
  DriveSelection = 1,
  Feature = 2,
  Modifier = 3,
};

// What an option wants to be looked for before it is carried out. Of several options on
// a line the one that wants least counts: it ends the run.
enum class OptionScan : std::uint32_t {
  None = 0,        // nothing
  Drives = 1,      // the drives
  Partitions = 2,  // the drives and their partitions
  Any = 3,         // it has no say
};

// One help line of an argument. Rows with the same name follow each other and are
// the lines of one argument.
struct ArgumentDeclaration {
  std::string_view name;  // "[filename]" when it may be left out, "(type)" when not
  std::string_view text;
  std::string_view argument{};                // in the first row: its name in a call
  std::span<const std::string_view> words{};  // all that it takes; empty for any
  bool mayLack = false;                       // it depends on the words before it
};

// An option as its family declares it. Examples stand without the tool's name.
struct OptionDeclaration {
  using Runner = StatusCode (*)(const FeatureCall& call);

  std::string_view name;  // with its dash
  OptionKind kind;
  OptionCategory category;
  std::span<const std::string_view> descriptions;  // paragraphs
  std::span<const ArgumentDeclaration> arguments;
  std::span<const std::string_view> examples;
  OptionScan scan = OptionScan::Partitions;
  Runner run = nullptr;  // of a feature
  // The end of a line with too few words or too many for the option.
  StatusCode wrongWords = Status::InvalidArguments;
  bool isForPrograms = false;  // nothing else is printed; sleeping drives sleep; drives may lack
  std::string_view restArgument{};  // in a call: the words behind the declared ones, with blanks
};

// What a feature does when several drives were selected by one option.
enum class OnSeveral : std::uint8_t {
  Refused,   // it destroys data or changes settings: a person selects one drive
  Each,      // it runs on each of them, side by side
  AskFirst,  // the same, once a person has confirmed it for all
  Together,  // one run has them all
};

// Where the help's first screen names a feature.
enum class HelpGroup : std::uint8_t { Read, Test, Update, Change, Erase };

struct FeatureRecord {
  std::string_view name;  // its class's
  HelpGroup group = HelpGroup::Read;
  bool destroys = false;    // the drive's data
  bool needsDrive = false;  // works on exactly one drive, which somebody must have chosen
  bool isSequence = false;  // sends commands that belong together: RunHeld keeps others off
  bool isShared = false;    // reads for long: RunHeld keeps sequences off, and lets others read
  OnSeveral onSeveral = OnSeveral::Refused;
  std::span<const CimMethod> methods{};
  std::span<const OptionDeclaration> options{};  // the features, and the modifiers of their own
};

// The run of a method or an option, whoever asked for it: all go through here. A sequence on
// one drive holds it meanwhile, a shared run with others, and is refused (180) while another holds
// it; a family that works on several drives holds each in its turn.
StatusCode RunHeld(const FeatureRecord& feature, const FeatureCall& call,
                   const std::function<StatusCode()>& run);
// The hold of one drive for a sequence; where it cannot be had, a person is told. `job` is the
// holder that others are told of, 0 for a person.
std::unique_ptr<DeviceManagement::DriveHold> HoldDrive(DeviceManagement::Device& device, Face& face,
                                                       std::uint64_t job, bool isShared = false);

// A method that does what its family's option does.
template <OptionDeclaration::Runner Run>
StatusCode RunAsMethod(const FeatureCall& call, JobContext&) {
  return Run(call);
}

}  // namespace Morvu
