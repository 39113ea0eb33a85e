#include "Commands.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

#include "AdapterCalls.h"
#include "Bytes.h"
#include "Controllers.h"
#include "Fault.h"
#include "Fleet.h"
#include "Options.h"

namespace Simdrives {

namespace {

using namespace Simulator;

std::shared_ptr<Fleet> OpenFleet(const std::string& folder) {
  auto fleet = Fleet::Open(folder);
  if (fleet == nullptr) {
    throw Failure("there is no fleet in " + folder + "; \"morvu-simdrives make " + folder +
                  "\" makes one");
  }
  return fleet;
}

Node FindNode(const std::shared_ptr<Fleet>& fleet, const std::string& node) {
  auto found = fleet->Find(node);
  if (!found) throw Failure("there is no simulated drive " + node + " in the fleet");
  return found;
}

template <typename Value>
struct Choice {
  std::string_view name;
  Value value;
};

template <typename Value, std::size_t Size>
Value Choose(const Choice<Value> (&choices)[Size], const std::string& name, std::string_view what) {
  std::string names;
  for (const auto& choice : choices) {
    if (choice.name == name) return choice.value;
    names += (names.empty() ? "" : ", ") + std::string(choice.name);
  }
  throw UsageError(std::string(what) + " is one of " + names + ", not \"" + name + "\"");
}

constexpr Choice<Kind> kKinds[] = {{"ata", Kind::Ata}, {"nvme", Kind::Nvme}, {"scsi", Kind::Scsi}};
// clang-format off
constexpr Choice<SenseFormat> kSenseFormats[] = {
    {"descriptor", SenseFormat::Descriptor},
    {"sat3", SenseFormat::FixedSat3},
    {"old-kernel", SenseFormat::FixedOldKernel},
    {"none", SenseFormat::None},
};
// clang-format off
// clang-format on
constexpr Choice<CommandClass> kClasses[] = {
    {"any", CommandClass::Any},        {"ata", CommandClass::Ata},
    {"scsi", CommandClass::Scsi},      {"nvme-admin", CommandClass::NvmeAdmin},
    {"nvme-io", CommandClass::NvmeIo},
};
// clang-format on
constexpr Choice<Garbage> kGarbage[] = {
    {"zeros", Garbage::Zeros}, {"ones", Garbage::Ones}, {"random", Garbage::Random}};

std::vector<std::string> SplitAtCommas(const std::string& text) {
  std::vector<std::string> words;
  std::istringstream stream(text);
  for (std::string word; std::getline(stream, word, ',');) words.push_back(word);
  return words;
}

std::string AddDrive(Fleet& fleet, const DriveSpec& spec) {
  std::string error;
  auto node = fleet.Add(spec, error);
  if (node.empty()) throw Failure(error);
  return node;
}

constexpr std::uint64_t kGigabyte = 1000000000;

// A drive of each kind, two of them with something on them.
void AddDemoDrives(Fleet& fleet) {
  const auto boot = AddDrive(fleet, {.kind = Kind::Ata,
                                     .model = "MORVU SSDSC2BB480G4",
                                     .serial = "BTWL407301AB480QGN",
                                     .firmware = "D2010370",
                                     .sectors = 480 * kGigabyte / 512});
  fleet.AddPartition(boot, 200 * kGigabyte, "ext4", "/", {});
  AddDrive(fleet, {.kind = Kind::Ata,
                   .model = "MORVU SSDSC2BA200G3",
                   .serial = "BTTV252600CD200GGN",
                   .firmware = "5DV10270",
                   .sectors = 200 * kGigabyte / 512});
  const auto data = AddDrive(fleet, {.kind = Kind::Nvme,
                                     .model = "MORVU SSDPEDMD400G4",
                                     .serial = "CVFT4174000E400BGN",
                                     .firmware = "8DV10171",
                                     .sectors = 400 * kGigabyte / 512});
  fleet.AddPartition(data, 100 * kGigabyte, "xfs", "/data", {});
  AddDrive(fleet, {.kind = Kind::Scsi,
                   .model = "SSD400SAS",
                   .serial = "SAS00012",
                   .firmware = "A001",
                   .sectors = 400 * kGigabyte / 512});
}

std::string NodeOf(const std::string& name) {
  BoundDrive bound;
  return ParseBoundName(name, bound) ? name : "/dev/" + name;
}

const char* KindName(Kind kind) {
  return kind == Kind::Ata ? "ATA" : kind == Kind::Nvme ? "NVMe" : "SCSI";
}

Fault MakeFault(const Options& options) {
  const auto& words = options.Words();
  const auto& action = words[2];
  const auto value = [&](std::size_t at, const char* what) -> const std::string& {
    if (words.size() <= at) throw UsageError("the fault " + action + " needs " + what);
    return words[at];
  };
  if (action == "fail") return Fault::Fail();
  if (action == "ata-error") {
    return Fault::AtaError(ToHexByte(value(3, "a status and an error register")),
                           ToHexByte(value(4, "an error register")));
  }
  if (action == "sense") {
    return Fault::ScsiError(0x02, ToHexByte(value(3, "key, ASC and ASCQ")),
                            ToHexByte(value(4, "ASC and ASCQ")), ToHexByte(value(5, "ASCQ")));
  }
  if (action == "scsi-status") return Fault::ScsiError(ToHexByte(value(3, "a status byte")));
  if (action == "nvme-status") {
    return Fault::NvmeStatus(
        static_cast<std::uint16_t>(ToNumber(value(3, "a status"), 0x7FF, "an NVMe status")));
  }
  if (action == "errno")
    return Fault::IoctlError(static_cast<int>(ToNumber(value(3, "an errno"), 4095, "an errno")));
  if (action == "host") {
    const auto host = ToHexByte(value(3, "a host status"));
    return Fault::HostError(host, words.size() > 4 ? ToHexByte(words[4]) : 0);
  }
  if (action == "vanish") return Fault::Vanish();
  if (action == "delay")
    return Fault::Delay(
        static_cast<std::uint32_t>(ToNumber(value(3, "milliseconds"), 3600000, "a delay")));
  if (action == "short")
    return Fault::ShortData(
        static_cast<std::uint32_t>(ToNumber(value(3, "a count of bytes"), UINT32_MAX, "a length")));
  if (action == "garbage")
    return Fault::GarbageData(Choose(kGarbage, value(3, "zeros, ones or random"), "garbage"));
  if (action == "hang") return Fault::Hang();
  if (action == "signal")
    return Fault::Signal(static_cast<int>(ToNumber(value(3, "a signal"), 64, "a signal")));
  if (action == "kill")
    return options.Has("--afterwards") ? Fault::KillAfter() : Fault::KillBefore();
  throw UsageError("unknown fault \"" + action + "\"; \"morvu-simdrives fault --help\" lists them");
}

}  // namespace

int Make(const Arguments& arguments) {
  const Options options(arguments, {"--demo"}, {});
  options.NeedWords(1, 1, "make FLEET [--demo]");
  std::string error;
  if (!Fleet::Make(options.Words()[0], error)) throw Failure(error);
  if (options.Has("--demo")) AddDemoDrives(*OpenFleet(options.Words()[0]));
  return 0;
}

int Add(const Arguments& arguments) {
  const Options options(
      arguments, {"--usb", "--no-journal", "--refuses-identify", "--hidden"},
      {"--kind", "--model", "--serial", "--firmware", "--vendor", "--size", "--sector-size",
       "--namespaces", "--device-type", "--sense", "--nsids", "--controllers", "--behind"});
  options.NeedWords(1, 1, "add FLEET --kind ata|nvme|scsi [options]");
  if (!options.Has("--kind")) throw UsageError("add needs --kind ata, nvme or scsi");
  DriveSpec spec;
  spec.kind = Choose(kKinds, options.Text("--kind"), "--kind");
  spec.model = options.Text("--model", spec.model);
  spec.serial = options.Text("--serial", spec.serial);
  spec.firmware = options.Text("--firmware", spec.firmware);
  spec.vendor = options.Text("--vendor", spec.vendor);
  spec.sectorSize = static_cast<std::uint32_t>(options.Number("--sector-size", 512));
  if (spec.sectorSize != 512 && spec.sectorSize != 4096)
    throw UsageError("--sector-size is 512 or 4096");
  spec.sectors = ToBytes(options.Text("--size", "4G")) / spec.sectorSize;
  spec.namespaces =
      static_cast<unsigned>(ToNumber(options.Text("--namespaces", "1"), 16, "--namespaces"));
  for (const auto& nsid : SplitAtCommas(options.Text("--nsids"))) {
    spec.nsids.push_back(static_cast<std::uint32_t>(ToNumber(nsid, 16, "--nsids")));
  }
  spec.controllers =
      static_cast<unsigned>(ToNumber(options.Text("--controllers", "1"), 4, "--controllers"));
  spec.deviceType =
      static_cast<int>(ToNumber(options.Text("--device-type", "0"), 31, "--device-type"));
  spec.senseFormat = Choose(kSenseFormats, options.Text("--sense", "descriptor"), "--sense");
  if (options.Has("--behind"))
    spec.controller = static_cast<int>(ToNumber(options.Text("--behind"), 65535, "--behind"));
  spec.isHidden = options.Has("--hidden");
  if (spec.isHidden && spec.controller < 0) throw UsageError("--hidden needs --behind");
  spec.usb = options.Has("--usb");
  spec.journal = !options.Has("--no-journal");
  spec.refusesIdentify = options.Has("--refuses-identify");
  std::printf("%s\n", AddDrive(*OpenFleet(options.Words()[0]), spec).c_str());
  return 0;
}

int List(const Arguments& arguments) {
  const Options options(arguments, {}, {});
  options.NeedWords(1, 1, "list FLEET");
  const auto fleet = OpenFleet(options.Words()[0]);
  std::printf("%-14s %-5s %-40s %-20s %-8s %12s %9s\n", "Node", "Kind", "Model", "Serial",
              "Firmware", "Sectors", "Commands");
  for (const auto& name : fleet->DriveNames()) {
    const auto node = fleet->Find(name);
    if (!node) {
      std::printf("%-14s cannot be read\n", NodeOf(name).c_str());
      continue;
    }
    const auto& state = node.drive->State();
    std::printf("%-14s %-5s %-40s %-20s %-8s %12llu %9llu%s%s\n", NodeOf(name).c_str(),
                KindName(state.kind), GetText(state.model).c_str(), GetText(state.serial).c_str(),
                GetText(state.firmware).c_str(), static_cast<unsigned long long>(state.sectors),
                static_cast<unsigned long long>(state.commands),
                state.faultCount != 0 ? "  (faults set)" : "",
                state.vanished ? "  (vanished)" : "");
  }
  return 0;
}

int Journal(const Arguments& arguments) {
  const Options options(arguments, {"--clear"}, {});
  options.NeedWords(2, 2, "journal FLEET NODE [--clear]");
  const auto fleet = OpenFleet(options.Words()[0]);
  const auto node = FindNode(fleet, options.Words()[1]);
  if (options.Has("--clear")) {
    node.drive->ClearJournal();
    return 0;
  }
  for (const auto& entry : ReadJournal(node.drive->JournalPath()))
    std::printf("%s\n", entry.Text().c_str());
  return 0;
}

int SetFault(const Arguments& arguments) {
  const Options options(arguments, {"--afterwards"},
                        {"--command", "--opcode", "--feature", "--class", "--times"});
  options.NeedWords(3, 6, "fault FLEET NODE ACTION [values] [options]");
  const auto& words = options.Words();
  if (words[2] == "clear") {
    FindNode(OpenFleet(words[0]), words[1]).drive->ClearFaults();
    return 0;
  }
  auto fault = MakeFault(options);
  if (options.Has("--class") || options.Has("--opcode")) {
    if (!options.Has("--opcode")) throw UsageError("--class needs --opcode");
    fault.OnOpcode(options.HexByte("--opcode"),
                   Choose(kClasses, options.Text("--class", "any"), "--class"));
  }
  if (options.Has("--feature")) fault.OnFeature(options.HexByte("--feature"));
  if (options.Has("--command")) {
    const auto n = ToNumber(options.Text("--command"), UINT32_MAX, "--command");
    if (n == 0) throw UsageError("--command counts from 1, the next one");
    fault.OnCommand(static_cast<std::uint32_t>(n));
  }
  if (options.Has("--times"))
    fault.Times(
        static_cast<std::uint32_t>(ToNumber(options.Text("--times"), UINT32_MAX, "--times")));
  const auto fleet = OpenFleet(words[0]);
  if (!FindNode(fleet, words[1]).drive->Inject(fault.Slot())) {
    throw Failure(
        "the drive holds as many faults as it can; \"fault FLEET NODE clear\" takes them away");
  }
  return 0;
}

int AddPartition(const Arguments& arguments) {
  const Options options(arguments, {}, {"--size", "--mount", "--type", "--volume-group"});
  options.NeedWords(2, 2, "partition FLEET NODE [options]");
  const auto fleet = OpenFleet(options.Words()[0]);
  FindNode(fleet, options.Words()[1]);
  for (const auto* name : {"--mount", "--type", "--volume-group"}) {
    if (options.Text(name).find_first_of(" \t\n") != std::string::npos)
      throw UsageError(std::string(name) + " may hold no blanks");
  }
  const auto node = fleet->AddPartition(options.Words()[1], ToBytes(options.Text("--size", "1G")),
                                        options.Text("--type", "ext4"), options.Text("--mount"),
                                        options.Text("--volume-group"));
  if (node.empty()) throw Failure("this drive takes no partition: it is no disk");
  std::printf("%s\n", node.c_str());
  return 0;
}

int AddController(const Arguments& arguments) {
  const Options options(arguments, {"--no-pass-through"}, {});
  options.NeedWords(1, 1, "controller FLEET [--no-pass-through]");
  std::printf("%u\n",
              OpenFleet(options.Words()[0])->AddController(!options.Has("--no-pass-through")));
  return 0;
}

int AddVolume(const Arguments& arguments) {
  const Options options(arguments, {"--no-disk"}, {"--of"});
  options.NeedWords(1, 1, "volume FLEET --of DRIVE,... [--no-disk]");
  if (!options.Has("--of")) throw UsageError("volume needs --of and the names of drives");
  const auto fleet = OpenFleet(options.Words()[0]);
  std::string error;
  const bool hasDisk = !options.Has("--no-disk");
  const auto number = fleet->AddVolume(SplitAtCommas(options.Text("--of")), hasDisk, error);
  if (number < 0) throw Failure(error);
  const auto volume = ReadVolumes(fleet->Root()).back();
  std::printf("%s\n", hasDisk ? ("/dev/sg" + std::to_string(volume.generic)).c_str()
                              : std::to_string(number).c_str());
  return 0;
}

int SetLibraryFault(const Arguments& arguments) {
  const Options options(arguments, {}, {});
  options.NeedWords(2, 9, "library-fault FLEET FAULT...");
  std::vector<std::string> faults(options.Words().begin() + 1, options.Words().end());
  if (faults.front() == "clear") faults.clear();
  for (const auto& fault : faults) {
    if (!IsLibraryFault(fault))
      throw UsageError("a fault of the library is one of " + ListLibraryFaults() + ", not \"" +
                       fault + "\"");
  }
  WriteLibraryFaults(OpenFleet(options.Words()[0])->Root(), faults);
  return 0;
}

int SetRoot(const Arguments& arguments) {
  const Options options(arguments, {}, {});
  options.NeedWords(2, 2, "root FLEET DEVICE");
  OpenFleet(options.Words()[0])->SetRootMount(options.Words()[1]);
  return 0;
}

int AddBadSectors(const Arguments& arguments) {
  const Options options(arguments, {}, {});
  options.NeedWords(3, 4, "bad-sectors FLEET NODE LBA [COUNT]");
  const auto& words = options.Words();
  const auto fleet = OpenFleet(words[0]);
  const auto node = FindNode(fleet, words[1]);
  const auto& state = node.drive->State();
  if (state.sectors == 0) throw Failure(words[1] + " has no sectors");
  const auto lba = ToNumber(words[2], state.sectors - 1, "LBA");
  const auto count = words.size() < 4 ? 1 : ToNumber(words[3], state.sectors - lba, "COUNT");
  const std::uint64_t size = state.sectorSize;
  if (!node.drive->AddBadRange(node.nsid, lba * size, count * size)) {
    throw Failure("the drive has too many bad places already");
  }
  return 0;
}

int SetLog(const Arguments& arguments) {
  const Options options(arguments, {}, {});
  options.NeedWords(4, 4, "log FLEET NODE ADDRESS FILE");
  const auto& words = options.Words();
  const auto fleet = OpenFleet(words[0]);
  const auto node = FindNode(fleet, words[1]);
  std::ifstream file(words[3], std::ios::binary);
  if (!file) throw Failure("cannot read " + words[3]);
  const std::string content((std::istreambuf_iterator<char>(file)), {});
  const bool isNvme = node.drive->State().kind == Kind::Nvme;
  const std::string_view vendor = "D2-";
  char name[24];
  if (isNvme && words[2].starts_with(vendor)) {
    std::snprintf(name, sizeof name, "nvme-D2-%u",
                  static_cast<unsigned>(ToNumber(words[2].substr(vendor.size()), 3, "ADDRESS")));
  } else {
    std::snprintf(name, sizeof name, "%s-%02X", isNvme ? "nvme" : "ata", ToHexByte(words[2]));
  }
  node.drive->WriteLog(name, content.data(), content.size());
  return 0;
}

int PowerCycle(const Arguments& arguments) {
  const Options options(arguments, {}, {});
  options.NeedWords(1, 2, "power-cycle FLEET [NODE]");
  const auto fleet = OpenFleet(options.Words()[0]);
  if (options.Words().size() == 2) {
    FindNode(fleet, options.Words()[1]).drive->PowerCycle();
    return 0;
  }
  for (const auto& name : fleet->DriveNames()) FindNode(fleet, name).drive->PowerCycle();
  return 0;
}

int Clock(const Arguments& arguments) {
  const Options options(arguments, {}, {});
  options.NeedWords(2, 2, "clock FLEET SECONDS");
  OpenFleet(options.Words()[0])
      ->AdvanceClock(
          static_cast<std::int64_t>(ToNumber(options.Words()[1], 1000000000, "SECONDS")) * 1000);
  return 0;
}

}  // namespace Simdrives
