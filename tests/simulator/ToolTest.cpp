// morvu-simdrives and the preload library, with the field's own tools as
// witnesses: what they print of a drive must be what the fleet says.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "TestFleet.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace Simulator {
namespace {

using testing::HasSubstr;

struct Outcome {
  int code;
  std::string text;
};

// Without an active fleet: the line goes to the real shell as it is.
Outcome Shell(const std::string& line) {
  FILE* pipe = popen((line + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return {-1, "popen failed"};
  Outcome outcome{};
  char block[512];
  for (std::size_t count; (count = fread(block, 1, sizeof block, pipe)) > 0;)
    outcome.text.append(block, count);
  const int status = pclose(pipe);
  outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}

class Tool : public testing::Test {
 protected:
  void SetUp() override {
    fleet_ = testing::TempDir() + "simdrives-" + std::to_string(getpid());
    std::filesystem::remove_all(fleet_);
    ASSERT_EQ(0, Simdrives("make FLEET").code);
    const std::pair<const char*, const char*> kDrives[] = {
        {"ata --model 'MORVU SATA' --serial ATA1 --firmware AAAA0001", "/dev/sg0\n"},
        {"nvme --model 'MORVU NVME' --serial NVME1 --firmware BBBB0001", "/dev/nvme0n1\n"},
        {"scsi --model SAS --serial SCSI1 --firmware C001", "/dev/sg1\n"},
    };
    for (const auto& [words, node] : kDrives) {
      ASSERT_EQ(node, Simdrives("add FLEET --size 1G --kind " + std::string(words)).text);
    }
  }
  void TearDown() override { std::filesystem::remove_all(fleet_); }

  Outcome Simdrives(std::string words) {
    for (auto at = words.find("FLEET"); at != words.npos; at = words.find("FLEET", at))
      words.replace(at, 5, fleet_);
    return Shell(std::string(MORVU_SIMULATOR_TOOL) + " " + words);
  }

  // Why the machine's programs cannot be run on the fleet; empty when they can.
  static std::string WhyNoPreload() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // Its runtime cannot come behind a preloaded library of its own.
    return "a preload library of a sanitizer build is of no use";
#else
    // They are of 64 bits; the library of that width is the other build's.
    const bool has = sizeof(void*) == 8 || std::filesystem::exists(MORVU_WIDE_PRELOAD);
    return has ? "" : "needs the build x86_64 beside this one";
#endif
  }

  std::string fleet_;
};

#define NEED_PRELOAD() \
  if (const auto why = WhyNoPreload(); !why.empty()) GTEST_SKIP() << why

#define NEED_PROGRAM(name) \
  NEED_PRELOAD();          \
  if (Shell("command -v " name).code != 0) GTEST_SKIP() << name " is not installed"

TEST_F(Tool, PutsDrivesBehindControllers) {
  const std::pair<const char*, const char*> kLines[] = {
      {"add FLEET --kind ata --behind 0", "no controller"},
      {"controller FLEET", "0\n"},
      {"add FLEET --kind ata --serial A1 --behind 0", "LSI_0_0\n"},
      {"add FLEET --kind scsi --serial S1 --behind 0 --hidden", "LSI_0_1\n"},
      {"add FLEET --kind nvme --behind 0", "SATA and SAS"},
      {"volume FLEET --of LSI_0_0,/dev/sg0", "no drive behind the same controller"},
      {"volume FLEET --of LSI_0_0,LSI_0_1", "/dev/sg2\n"},
      {"volume FLEET --of LSI_0_0 --no-disk", "1\n"},
      {"library-fault FLEET nonsense", "is one of begin-fails, "},
      {"library-fault FLEET many-drives", ""},
      {"set FLEET LSI_0_0 frozen=1", ""},
      {"journal FLEET LSI_0_0", ""},
      {"list FLEET", "LSI_0_0        ATA"},
  };
  for (const auto& [line, told] : kLines) {
    EXPECT_THAT(Simdrives(line).text, HasSubstr(told)) << line;
  }
}

TEST_F(Tool, RefusesWithACodeAndAReason) {
  EXPECT_EQ(2, Simdrives("").code);
  EXPECT_EQ(0, Simdrives("-help").code);
  EXPECT_EQ(0, Simdrives("fault --help").code);
  const auto check = [this](const char* words, int code, const char* reason) {
    const auto outcome = Simdrives(words);
    EXPECT_EQ(code, outcome.code) << words;
    EXPECT_THAT(outcome.text, HasSubstr(reason)) << words;
  };
  check("bogus", 2, "unknown command bogus");
  check("make FLEET", 1, "holds a fleet already");
  check("make '/tmp/a b'", 1, "letters, digits");
  check("add FLEET", 2, "--kind");
  check("add FLEET --kind floppy", 2, "one of ata, nvme, scsi");
  check("add FLEET --kind ata --size 12Q", 2, "12Q");
  check("add FLEET --kind ata --size 0", 1, "sectors");
  check("add FLEET --kind ata --serial ''", 1, "serial number");
  check("add FLEET --kind nvme --namespaces 17", 2, "at most 16");
  check("list /nowhere", 1, "no fleet in /nowhere");
  check("journal FLEET /dev/sg9", 1, "no simulated drive /dev/sg9");
  check("fault FLEET /dev/sg0 explode", 2, "unknown fault");
  check("fault FLEET /dev/sg0 ata-error 51", 2, "error register");
  check("fault FLEET /dev/sg0 vanish --opcode XYZ", 2, "hexadecimal");
  check("set FLEET /dev/sg0 colour=red", 2, "next-firmware");
  check("run FLEET -- /no/such/program", 127, "not found");
}

TEST_F(Tool, RunsAProgramWithItsExitCode) {
  NEED_PRELOAD();
  EXPECT_EQ(7, Simdrives("run FLEET -- sh -c 'exit 7'").code);
  EXPECT_EQ("2097152\n", Simdrives("run FLEET -- cat /sys/class/block/sda/size").text);
}

TEST_F(Tool, SkipsTheWaitsOfAProgramWhenAsked) {
  NEED_PROGRAM("smartctl");
  Simdrives("set FLEET /dev/sg0 self-test-seconds=100000");
  EXPECT_EQ(0, Simdrives("run FLEET -- smartctl -t short /dev/sg0").code);
  EXPECT_EQ(0, Simdrives("run FLEET --skip-waits -- sleep 110000").code);
  EXPECT_THAT(Simdrives("run FLEET -- smartctl -l selftest /dev/sg0").text,
              HasSubstr("Short offline       Completed without error"));
  EXPECT_EQ(2, Simdrives("run FLEET --skip-waits sleep 1").code);
}

TEST_F(Tool, SmartctlReadsASataDrive) {
  NEED_PROGRAM("smartctl");
  Simdrives("set FLEET /dev/sg0 attribute.05=77");
  const auto outcome = Simdrives("run FLEET -- smartctl -i -H -A /dev/sg0");
  EXPECT_EQ(0, outcome.code);
  EXPECT_THAT(outcome.text, HasSubstr("Device Model:     MORVU SATA\n"));
  EXPECT_THAT(outcome.text, HasSubstr("Serial Number:    ATA1\n"));
  EXPECT_THAT(outcome.text, HasSubstr("Firmware Version: AAAA0001\n"));
  EXPECT_THAT(outcome.text, HasSubstr("1,073,741,824 bytes"));
  EXPECT_THAT(outcome.text, HasSubstr("test result: PASSED"));
  EXPECT_THAT(outcome.text, testing::ContainsRegex("Reallocated_Sector_Ct .* 77\n"));
  EXPECT_EQ(outcome.text.npos, outcome.text.find("checksum"));
  Simdrives("set FLEET /dev/sg0 smart-failing=1");
  EXPECT_THAT(Simdrives("run FLEET -- smartctl -H /dev/sg0").text, HasSubstr("FAILED!"));
}

TEST_F(Tool, SmartctlRunsASelfTest) {
  NEED_PROGRAM("smartctl");
  Simdrives("set FLEET /dev/sg0 self-test-seconds=100000");
  EXPECT_EQ(0, Simdrives("run FLEET -- smartctl -t short /dev/sg0").code);
  Simdrives("clock FLEET 50000");
  EXPECT_THAT(Simdrives("run FLEET -- smartctl -c /dev/sg0").text,
              HasSubstr("Self-test routine in progress"));
  Simdrives("clock FLEET 60000");
  EXPECT_THAT(Simdrives("run FLEET -- smartctl -l selftest /dev/sg0").text,
              HasSubstr("Short offline       Completed without error"));
}

TEST_F(Tool, HdparmErasesWithAPassword) {
  NEED_PROGRAM("hdparm");
  EXPECT_THAT(Simdrives("run FLEET -- hdparm -I /dev/sg0").text,
              HasSubstr("Serial Number:      ATA1"));
  EXPECT_EQ(0,
            Simdrives("run FLEET -- hdparm --user-master u --security-set-pass p /dev/sg0").code);
  EXPECT_THAT(Simdrives("run FLEET -- hdparm -I /dev/sg0").text, HasSubstr("\t\tenabled\n"));
  EXPECT_EQ(0, Simdrives("run FLEET -- hdparm --user-master u --security-erase p /dev/sg0").code);
  EXPECT_THAT(Simdrives("run FLEET -- hdparm -I /dev/sg0").text, HasSubstr("\tnot\tenabled\n"));
  EXPECT_THAT(Simdrives("journal FLEET /dev/sg0").text, HasSubstr("ATA F4 features=0000"));
}

// As docs/recovery.md tells the owner of a drive whose erase was cut off.
TEST_F(Tool, HdparmUnlocksADriveThatAnEraseLeftLocked) {
  NEED_PROGRAM("hdparm");
  const std::string hdparm = "run FLEET -- hdparm --user-master u ";
  ASSERT_EQ(0, Simdrives(hdparm + "--security-set-pass quillfen /dev/sg0").code);
  Simdrives("power-cycle FLEET");
  EXPECT_THAT(Simdrives("run FLEET -- hdparm -I /dev/sg0").text, HasSubstr("\t\tlocked\n"));
  EXPECT_EQ(0, Simdrives(hdparm + "--security-unlock quillfen /dev/sg0").code);
  EXPECT_EQ(0, Simdrives(hdparm + "--security-disable quillfen /dev/sg0").code);
  EXPECT_THAT(Simdrives("run FLEET -- hdparm -I /dev/sg0").text, HasSubstr("\tnot\tenabled\n"));
  EXPECT_THAT(Simdrives("run FLEET -- hdparm --sanitize-status /dev/sg0").text,
              HasSubstr("Sanitize status"));
}

TEST_F(Tool, HdparmSeesTheMaximumAndStandby) {
  NEED_PROGRAM("hdparm");
  EXPECT_THAT(Simdrives("run FLEET -- hdparm -N /dev/sg0").text, HasSubstr("2097152/2097152"));
  Simdrives("run FLEET -- hdparm -y /dev/sg0");
  EXPECT_THAT(Simdrives("run FLEET -- hdparm -C /dev/sg0").text, HasSubstr("standby"));
}

TEST_F(Tool, HdparmReadsAllButTheBadSectors) {
  NEED_PROGRAM("hdparm");
  EXPECT_EQ(Simdrives("bad-sectors FLEET /dev/sg0 77 2").code, 0);
  EXPECT_EQ(Simdrives("run FLEET -- hdparm --read-sector 76 /dev/sg0").code, 0);
  EXPECT_NE(Simdrives("run FLEET -- hdparm --read-sector 78 /dev/sg0").code, 0);
  Simdrives("fault FLEET /dev/sg0 clear");
  EXPECT_EQ(Simdrives("run FLEET -- hdparm --read-sector 78 /dev/sg0").code, 0);
  EXPECT_NE(Simdrives("bad-sectors FLEET /dev/sg0 2097152").code, 0);
}

TEST_F(Tool, NvmeReadsFormatsAndUpdates) {
  NEED_PROGRAM("nvme");
  const auto controller = Simdrives("run FLEET -- nvme id-ctrl /dev/nvme0").text;
  EXPECT_THAT(controller, HasSubstr("sn        : NVME1 "));
  EXPECT_THAT(controller, HasSubstr("mn        : MORVU NVME "));
  EXPECT_THAT(controller, HasSubstr("fr        : BBBB0001"));
  EXPECT_THAT(Simdrives("run FLEET -- nvme id-ns /dev/nvme0n1").text,
              HasSubstr("nsze    : 0x200000"));
  EXPECT_EQ(0, Simdrives("run FLEET -- nvme format /dev/nvme0n1 -l 2 -s 1 -f").code);
  EXPECT_THAT(Simdrives("run FLEET -- nvme id-ns /dev/nvme0n1").text,
              HasSubstr("nsze    : 0x40000"));

  std::string image = "MorvuSimFirmwareBBBB0002";
  image += std::string("\x00\x20\x00\x00", 4);
  image.resize(0x2000, 'x');
  std::ofstream(fleet_ + "/image.bin", std::ios::binary) << image;
  EXPECT_EQ(0,
            Simdrives("run FLEET -- nvme fw-download /dev/nvme0 -f FLEET/image.bin -x 4096").code);
  EXPECT_EQ(0, Simdrives("run FLEET -- nvme fw-commit /dev/nvme0 -s 2 -a 1").code);
  Simdrives("power-cycle FLEET /dev/nvme0");
  EXPECT_THAT(Simdrives("run FLEET -- nvme id-ctrl /dev/nvme0").text,
              HasSubstr("fr        : BBBB0002"));
}

TEST_F(Tool, ListsOfTheSystemShowTheDrives) {
  NEED_PROGRAM("nvme");
  NEED_PROGRAM("lsblk");
  const auto disks = Simdrives("run FLEET -- lsblk -dbno NAME,SIZE").text;
  for (const auto* disk : {"sda ", "sdb ", "nvme0n1 "}) EXPECT_THAT(disks, HasSubstr(disk));
  EXPECT_THAT(Simdrives("run FLEET -- nvme list").text, HasSubstr("/dev/nvme0n1 "));
}

TEST_F(Tool, SgUtilsReadAScsiDrive) {
  NEED_PROGRAM("sg_inq");
  const auto inquiry = Simdrives("run FLEET -- sg_inq /dev/sg1").text;
  EXPECT_THAT(inquiry, HasSubstr("Product identification: SAS "));
  EXPECT_THAT(inquiry, HasSubstr("Unit serial number: SCSI1"));
  EXPECT_THAT(Simdrives("run FLEET -- sg_readcap /dev/sg1").text,
              HasSubstr("Number of logical blocks=2097152"));
}

TEST_F(Tool, AFaultSetByTheToolMeetsAnotherProgram) {
  NEED_PROGRAM("hdparm");
  ASSERT_EQ(0, Simdrives("fault FLEET /dev/sg0 vanish --opcode E5 --times 1").code);
  EXPECT_NE(0, Simdrives("run FLEET -- hdparm -C /dev/sg0").code);
  EXPECT_THAT(Simdrives("list FLEET").text, HasSubstr("(vanished)"));
  Simdrives("fault FLEET /dev/sg0 clear");
  EXPECT_EQ(0, Simdrives("run FLEET -- hdparm -C /dev/sg0").code);
}

}  // namespace
}  // namespace Simulator
