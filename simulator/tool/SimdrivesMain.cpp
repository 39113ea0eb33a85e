// morvu-simdrives: fleets of simulated drives for the developer of a host.
#include <cstdio>
#include <exception>

#include "Commands.h"
#include "Options.h"

namespace {

using namespace Simdrives;

struct CommandRow {
  std::string_view name;
  int (*run)(const Arguments&);
  const char* help;
};

// clang-format off
constexpr CommandRow kCommands[] = {
    {"make", Make,
     "make FLEET [--demo]\n"
     "  Make an empty fleet in the folder FLEET; with --demo a fleet with two SATA\n"
     "  drives, an NVMe drive and a SAS drive, and partitions on two of them.\n"},
    {"add", Add,
     "add FLEET --kind ata|nvme|scsi [options]\n"
     "  Add a drive and print its node.\n"
     "  --model TEXT --serial TEXT --firmware TEXT --vendor TEXT   who it says it is\n"
     "  --size N[K|M|G|T]    capacity (4G); the medium is a sparse file\n"
     "  --sector-size N      512 or 4096\n"
     "  --namespaces N       NVMe: 0 to 16 (1)\n"
     "  --nsids N,N,...      NVMe: the namespaces' identifiers (1,2,...)\n"
     "  --controllers N      NVMe: 1 to 4 of one subsystem (1)\n"
     "  --refuses-identify   NVMe: a controller that fails IDENTIFY\n"
     "  --usb                the drive hangs on a USB port\n"
     "  --device-type N      SCSI device type; 0 is a disk, 5 a CD drive\n"
     "  --behind N           behind the RAID controller N, without a node; prints \"LSI_N_0\"\n"
     "  --hidden             behind a controller that keeps the drive for itself\n"
     "  --sense FORMAT       ATA registers in the sense data: descriptor, sat3, old-kernel, none\n"
     "  --no-journal         keep no journal\n"},
    {"list", List, "list FLEET\n  The drives of the fleet.\n"},
    {"run", Run,
     "run FLEET [--skip-waits] -- PROGRAM [arguments]\n"
     "  Run a program that meets the fleet's drives in place of the machine's own.\n"
     "  With --skip-waits its waits end at once, and their time passes for the drives.\n"
     "  Ends with the program's exit code; 126 or 127 when it cannot be run.\n"},
    {"journal", Journal,
     "journal FLEET NODE [--clear]\n  The commands that the drive was sent, one a line; or empty the journal.\n"},
    {"fault", SetFault,
     "fault FLEET NODE ACTION [values] [options]\n"
     "  Set what goes wrong. Without options it meets every command.\n"
     "  fail                     the command fails as its kind does: aborted, busy, internal error\n"
     "  ata-error STATUS ERROR   refused with these registers, in hexadecimal: ata-error 51 04\n"
     "  sense KEY ASC ASCQ       CHECK CONDITION, in hexadecimal: sense 05 20 00\n"
     "  scsi-status STATUS       another SCSI status byte: scsi-status 08\n"
     "  nvme-status STATUS       status code type and code: nvme-status 0x10A\n"
     "  errno N                  the ioctl fails\n"
     "  host STATUS [DRIVER]     the host adapter fails\n"
     "  vanish                   the node is gone, until \"clear\" or a power cycle\n"
     "  delay MILLISECONDS       the command takes longer\n"
     "  short BYTES              fewer data than asked for\n"
     "  garbage zeros|ones|random  other data than the drive's\n"
     "  hang                     no answer until the time-out\n"
     "  signal N                 the thread that sends the command gets the signal\n"
     "  kill [--afterwards]      the program dies before (after) the drive has worked\n"
     "  clear                    take all faults away\n"
     "  --command N              the N-th command from now that fits; 1 is the next\n"
     "  --opcode XX [--class ata|scsi|nvme-admin|nvme-io]   only this opcode\n"
     "  --feature XX             only with this Features register, or cdw10 7:0\n"
     "  --times N                only N commands\n"},
    {"partition", AddPartition,
     "partition FLEET NODE [--size N[K|M|G|T]] [--mount DIRECTORY] [--type ext4] [--volume-group NAME]\n"
     "  Add a partition as the kernel, df, mount and pvdisplay show it, and print its node.\n"},
    {"controller", AddController,
     "controller FLEET [--no-pass-through]\n"
     "  Add a RAID controller and its vendor's library, and print its number.\n"
     "  --no-pass-through    its drives take no ATA commands in SCSI commands\n"},
    {"volume", AddVolume,
     "volume FLEET --of DRIVE,DRIVE,... [--no-disk]\n"
     "  Make a RAID volume of drives behind a controller, and print the node of its disk;\n"
     "  with --no-disk the system has none, and the volume's number is printed.\n"},
    {"library-fault", SetLibraryFault,
     "library-fault FLEET FAULT...|clear\n"
     "  What goes wrong with the controllers' library; an unknown fault prints them all.\n"},
    {"root", SetRoot, "root FLEET DEVICE\n  What is mounted on /: a partition, or /dev/mapper/vg0-root.\n"},
    {"set", Set,
     "set FLEET NODE FIELD=VALUE...\n"
     "  Set what the drive remembers: frozen=1, next-firmware=NEW00002, error-text=ASSERT,\n"
     "  self-test-seconds=60, word.138=2 (IDENTIFY DEVICE), attribute.05=3 (SMART, raw), ...\n"
     "  An unknown field prints them all.\n"},
    {"bad-sectors", AddBadSectors,
     "bad-sectors FLEET NODE LBA [COUNT]\n  Sectors that cannot be read, one or COUNT from LBA on, until the faults are cleared.\n"},
    {"log", SetLog,
     "log FLEET NODE ADDRESS FILE\n  What a log page holds: an ATA log address or an NVMe log identifier, in hexadecimal,\n  or D2-N for the vendor log N of an NVMe drive.\n"},
    {"power-cycle", PowerCycle, "power-cycle FLEET [NODE]\n  Cut the power of one drive, or of all, and give it again.\n"},
    {"clock", Clock, "clock FLEET SECONDS\n  Let time pass for the drives: self-tests and sanitizes go on by it.\n"},
};
// clang-format on

void PrintHelp() {
  std::printf("morvu-simdrives: simulated drives, to test a program without a drive.\n\n");
  for (const auto& row : kCommands) std::printf("morvu-simdrives %s\n", row.help);
  std::printf(
      "Exit codes: 0 done, 1 could not be done, 2 not understood; \"run\" has its program's.\n");
}

// A text as troff takes it: a line that begins with spaces or a dot stays as it is.
std::string Escape(std::string_view text) {
  std::string plain = "\\&";
  for (const char c : text) {
    if (c == '\\') {
      plain += "\\e";
    } else if (c == '-') {
      plain += "\\-";
    } else {
      plain += c;
      if (c == '\n') plain += "\\&";
    }
  }
  return plain;
}

void PrintManualPage() {
  std::printf(
      ".TH MORVU\\-SIMDRIVES 1 \"\" \"Morvu SSD features\" \"User Commands\"\n"
      ".SH NAME\nmorvu\\-simdrives \\- simulated drives to test a program on\n"
      ".SH SYNOPSIS\n.B morvu\\-simdrives\n.I COMMAND FLEET\n[arguments]\n"
      ".SH DESCRIPTION\nA fleet is a folder of simulated SATA, SAS and NVMe drives. A program that "
      "is "
      "run on it meets them in place of the machine's own.\n.SH COMMANDS\n");
  for (const auto& row : kCommands) {
    const std::string_view help(row.help);
    const auto end = help.find('\n');
    std::printf(".TP\n.B %s\n.EX\n%s.EE\n", Escape(help.substr(0, end)).c_str(),
                Escape(help.substr(end + 1, help.size() - end - 2)).append("\n").c_str());
  }
  std::printf(
      ".SH EXIT STATUS\n0 done, 1 could not be done, 2 not understood; the command run has its "
      "program's.\n.SH EXAMPLES\n.EX\nmorvu\\-simdrives make /tmp/fleet \\-\\-demo\n"
      "morvu\\-simdrives run /tmp/fleet \\-\\- morvussd \\-drive_list\n.EE\n"
      ".SH SEE ALSO\n.BR morvussd (8)\n");
}

bool IsHelp(std::string_view word) {
  return word == "-help" || word == "--help" || word == "-h" || word == "help";
}

int RunCommand(const CommandRow& row, const Arguments& arguments) {
  if (!arguments.empty() && IsHelp(arguments[0])) {
    std::printf("morvu-simdrives %s", row.help);
    return 0;
  }
  return row.run(arguments);
}

}  // namespace

int main(int count, char** words) {
  if (count < 2 || IsHelp(words[1])) {
    PrintHelp();
    return count < 2 ? 2 : 0;
  }
  if (std::string_view(words[1]) == "manual-page") {  // for the build
    PrintManualPage();
    return 0;
  }
  try {
    for (const auto& row : kCommands) {
      if (row.name == words[1]) return RunCommand(row, Arguments(words + 2, words + count));
    }
    throw UsageError(std::string("unknown command ") + words[1] +
                     "; \"morvu-simdrives -help\" lists them");
  } catch (const UsageError& error) {
    std::fprintf(stderr, "morvu-simdrives: %s\n", error.what());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "morvu-simdrives: %s\n", error.what());
    return 1;
  }
}
