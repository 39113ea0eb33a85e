// The simulated drives, reached as any program reaches them.
#include "TestFleet.h"

#include <aio.h>
#include <fcntl.h>
#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "Bytes.h"
#include "gtest/gtest.h"

namespace Simulator {
namespace {

using Bytes = std::vector<std::uint8_t>;

class Handle {
 public:
  explicit Handle(const std::string& node) : descriptor_(open(node.c_str(), O_RDWR | O_NONBLOCK)) {}
  ~Handle() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  int Get() const { return descriptor_; }

 private:
  int descriptor_;
};

struct Answer {
  int result = 0;
  int status = 0, host = 0, resid = 0;
  std::array<std::uint8_t, 32> sense{};
  Bytes data;
  std::uint8_t AtaStatus() const { return sense[21]; }
  std::uint8_t AtaError() const { return sense[11]; }
  std::uint32_t Lba() const { return sense[15] | sense[17] << 8 | sense[19] << 16; }
};

Answer Send(const Handle& handle, Bytes cdb, int direction, Bytes data) {
  Answer answer;
  answer.data = std::move(data);
  sg_io_hdr header{};
  header.interface_id = 'S';
  header.dxfer_direction = direction;
  header.cmd_len = static_cast<unsigned char>(cdb.size());
  header.cmdp = cdb.data();
  header.mx_sb_len = static_cast<unsigned char>(answer.sense.size());
  header.sbp = answer.sense.data();
  header.dxfer_len = static_cast<unsigned>(answer.data.size());
  header.dxferp = answer.data.data();
  header.timeout = 5000;
  answer.result = ioctl(handle.Get(), SG_IO, &header);
  answer.status = header.status;
  answer.host = header.host_status;
  answer.resid = header.resid;
  return answer;
}

struct Ata {
  std::uint8_t command;
  std::uint8_t features = 0, count = 0;
  std::uint64_t lba = 0;
  bool extended = false;
  std::uint8_t device = 0x40;
};

// With CK_COND, so that the registers come back.
Bytes Cdb(const Ata& ata, int protocol) {
  if (!ata.extended) {
    return {0xA1,
            static_cast<std::uint8_t>(protocol << 1),
            0x2E,
            ata.features,
            ata.count,
            static_cast<std::uint8_t>(ata.lba),
            static_cast<std::uint8_t>(ata.lba >> 8),
            static_cast<std::uint8_t>(ata.lba >> 16),
            ata.device,
            ata.command,
            0,
            0};
  }
  const auto at = [&](int shift) { return static_cast<std::uint8_t>(ata.lba >> shift); };
  return {0x85,         static_cast<std::uint8_t>(protocol << 1 | 1),
          0x2E,         0,
          ata.features, 0,
          ata.count,    at(24),
          at(0),        at(32),
          at(8),        at(40),
          at(16),       ata.device,
          ata.command,  0};
}

Answer NonData(const Handle& handle, const Ata& ata) {
  return Send(handle, Cdb(ata, 3), SG_DXFER_NONE, {});
}
Answer PioIn(const Handle& handle, const Ata& ata, std::size_t blocks = 1) {
  return Send(handle, Cdb(ata, 4), SG_DXFER_FROM_DEV, Bytes(blocks * 512));
}
Answer PioOut(const Handle& handle, const Ata& ata, Bytes data) {
  return Send(handle, Cdb(ata, 5), SG_DXFER_TO_DEV, std::move(data));
}

std::string Swapped(const Bytes& block, std::size_t at, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; i += 2) {
    text += static_cast<char>(block[at + i + 1]);
    text += static_cast<char>(block[at + i]);
  }
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string Output(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return "popen failed";
  std::string text;
  char block[256];
  for (std::size_t count; (count = fread(block, 1, sizeof block, pipe)) > 0;)
    text.append(block, count);
  pclose(pipe);
  return text;
}

TEST(AtaDrive, IdentifiesItself) {
  TestFleet fleet;
  auto drive = fleet.Add(
      {.model = "MORVU SSDSC2BB480G4", .serial = "BTWL1", .firmware = "D2010370", .sectors = 5000});
  const Handle handle(drive.Node());
  const auto answer = PioIn(handle, {0xEC, 0, 1});
  ASSERT_EQ(0, answer.result);
  EXPECT_EQ("MORVU SSDSC2BB480G4", Swapped(answer.data, 54, 40));
  EXPECT_EQ("BTWL1", Swapped(answer.data, 20, 20));
  EXPECT_EQ("D2010370", Swapped(answer.data, 46, 8));
  EXPECT_EQ(5000, answer.data[120] | answer.data[121] << 8);
  std::uint8_t sum = 0;
  for (const auto byte : answer.data) sum = static_cast<std::uint8_t>(sum + byte);
  EXPECT_EQ(0, sum);
  const auto journal = drive.Journal();
  ASSERT_EQ(1u, journal.size());
  EXPECT_EQ(0xEC, journal[0].AtaOpcode());
  EXPECT_EQ(512u, journal[0].transferLength);
  EXPECT_EQ(5000u, journal[0].timeoutMs);
}

TEST(AtaDrive, AbortsNopAndUnknownCommands) {
  TestFleet fleet;
  const Handle handle(fleet.Add({}).Node());
  for (const std::uint8_t command : {0x00, 0xFF, 0x60}) {
    const auto answer = PioIn(handle, {command});
    EXPECT_EQ(0x51, answer.AtaStatus());
    EXPECT_EQ(0x04, answer.AtaError());
  }
}

TEST(AtaDrive, ReadsBackWhatIsWrittenAndRefusesTheSectorBehindTheLast) {
  TestFleet fleet;
  auto drive = fleet.Add({.sectors = 1000});
  const Handle handle(drive.Node());
  Bytes data(512, 0xA5);
  PioOut(handle, {0x34, 0, 1, 999, true}, data);
  EXPECT_EQ(data, PioIn(handle, {0x24, 0, 1, 999, true}).data);
  EXPECT_EQ(data, drive.ReadMedium(999 * 512, 512));
  const auto beyond = PioIn(handle, {0x24, 0, 1, 1000, true});
  EXPECT_EQ(0x10, beyond.AtaError());
  EXPECT_EQ(1000u, beyond.Lba());
  EXPECT_EQ(512, beyond.resid);
}

TEST(AtaDrive, GivesRegistersInEachSenseFormat) {
  TestFleet fleet;
  const Handle sat3(fleet.Add({.senseFormat = SenseFormat::FixedSat3}).Node());
  auto answer = NonData(sat3, {0xE5, 0, 1});
  EXPECT_EQ(0x70, answer.sense[0]);
  EXPECT_EQ(0x50, answer.sense[4]);
  EXPECT_EQ(0xFF, answer.sense[6]);

  const Handle old(fleet.Add({.senseFormat = SenseFormat::FixedOldKernel}).Node());
  answer = NonData(old, {0xE5, 0, 1});
  EXPECT_EQ(0x72, answer.sense[0]);  // success is as it should be
  EXPECT_EQ(0xFF, answer.sense[13]);
  answer = PioIn(old, {0xEC, 0, 1});
  EXPECT_EQ(0x70, answer.sense[0]);  // PIO data-in looks failed
  EXPECT_EQ(0x58, answer.sense[9]);
  EXPECT_NE(0, answer.data[54]);  // with its data there
  answer = PioIn(old, {0x00});
  EXPECT_EQ(0x04, answer.sense[8]);
  EXPECT_EQ(0x51, answer.sense[9]);
}

TEST(AtaDrive, ErasesOnlyWithThePasswordAndDirectlyBehindPrepare) {
  TestFleet fleet;
  auto drive = fleet.Add({.sectors = 1000});
  drive.WriteMedium(0, Bytes(512, 1));
  const Handle handle(drive.Node());
  Bytes password(512), wrong(512);
  std::memcpy(&password[2], "secret", 6);
  std::memcpy(&wrong[2], "guess", 5);
  EXPECT_EQ(0x50, PioOut(handle, {0xF1}, password).AtaStatus());
  EXPECT_EQ(0x51, PioOut(handle, {0xF4}, password).AtaStatus());  // not prepared
  NonData(handle, {0xF3});
  NonData(handle, {0xE5});
  EXPECT_EQ(0x51, PioOut(handle, {0xF4}, password).AtaStatus());  // not directly behind
  NonData(handle, {0xF3});
  EXPECT_EQ(0x51, PioOut(handle, {0xF4}, wrong).AtaStatus());
  EXPECT_EQ(1, drive.ReadMedium(0, 1)[0]);
  NonData(handle, {0xF3});
  EXPECT_EQ(0x50, PioOut(handle, {0xF4}, password).AtaStatus());
  EXPECT_EQ(0, drive.ReadMedium(0, 1)[0]);
  EXPECT_EQ(0, drive.State().ata.security.enabled);
}

TEST(AtaDrive, LocksAtPowerOnAndCountsWrongPasswords) {
  TestFleet fleet;
  auto drive = fleet.Add({});
  const Handle handle(drive.Node());
  Bytes password(512), wrong(512);
  std::memcpy(&password[2], "secret", 6);
  PioOut(handle, {0xF1}, password);
  drive.PowerCycle();
  EXPECT_EQ(0x51, PioIn(handle, {0x24, 0, 1, 0, true}).AtaStatus());
  EXPECT_EQ(0x51, PioOut(handle, {0xF6}, password).AtaStatus());
  for (int i = 0; i < 5; ++i) PioOut(handle, {0xF2}, wrong);
  EXPECT_EQ(0x51, PioOut(handle, {0xF2}, password).AtaStatus());  // the count has expired
  drive.PowerCycle();
  EXPECT_EQ(0x50, PioOut(handle, {0xF2}, password).AtaStatus());
  EXPECT_EQ(0x50, PioOut(handle, {0xF6}, password).AtaStatus());
  NonData(handle, {0xF5});
  EXPECT_EQ(0x51, PioOut(handle, {0xF1}, password).AtaStatus());  // frozen
}

TEST(AtaDrive, SetsItsMaximumOnlyDirectlyBehindReadNativeMax) {
  TestFleet fleet;
  auto drive = fleet.Add({.sectors = 5000});
  const Handle handle(drive.Node());
  EXPECT_EQ(0x51, NonData(handle, {0x37, 0, 1, 999, true}).AtaStatus());
  EXPECT_EQ(4999u, NonData(handle, {0x27, 0, 0, 0, true}).Lba());
  EXPECT_EQ(0x50, NonData(handle, {0x37, 0, 1, 999, true}).AtaStatus());
  EXPECT_EQ(0x51, PioIn(handle, {0x24, 0, 1, 1000, true}).AtaStatus());
}

TEST(AtaDrive, RunsASelfTestOverTheFleetsTime) {
  TestFleet fleet;
  auto drive = fleet.Add({});
  drive.State().ata.selfTest.shortMs = 100000;
  drive.State().ata.selfTest.nextResult = 7;
  const Handle handle(drive.Node());
  NonData(handle, {0xB0, 0xD4, 0, 0xC24F01});
  fleet.AdvanceClock(std::chrono::seconds(65));
  EXPECT_EQ(0xF3, PioIn(handle, {0xB0, 0xD0, 1, 0xC24F00}).data[363]);
  fleet.AdvanceClock(std::chrono::seconds(40));
  EXPECT_EQ(0x70, PioIn(handle, {0xB0, 0xD0, 1, 0xC24F00}).data[363]);
}

TEST(AtaDrive, SanitizesOverTimeAndAnswersLittleMeanwhile) {
  TestFleet fleet;
  auto drive = fleet.Add({.sectors = 1000});
  drive.WriteMedium(0, Bytes(512, 1));
  drive.State().ata.sanitize.durationMs = 100000;
  const Handle handle(drive.Node());
  EXPECT_EQ(0x51, NonData(handle, {0xB4, 0x12, 0, 0x12345678, true}).AtaStatus());
  EXPECT_EQ(0x50, NonData(handle, {0xB4, 0x12, 0, 0x426B4572, true}).AtaStatus());
  fleet.AdvanceClock(std::chrono::seconds(50));
  const auto half = NonData(handle, {0xB4, 0x00, 0, 0, true});
  EXPECT_EQ(0x40, half.sense[12]);  // in progress
  EXPECT_NEAR(0x8000, half.Lba(), 0x200);
  EXPECT_EQ(0x51, PioIn(handle, {0x24, 0, 1, 0, true}).AtaStatus());
  EXPECT_EQ(0x50, PioIn(handle, {0xEC, 0, 1}).AtaStatus());
  fleet.AdvanceClock(std::chrono::seconds(60));
  const auto end = NonData(handle, {0xB4, 0x00, 0, 0, true});
  EXPECT_EQ(0x80, end.sense[12]);
  EXPECT_EQ(0xFFFFu, end.Lba());
  EXPECT_EQ(0, drive.ReadMedium(0, 1)[0]);
}

Bytes Image(std::string_view revision, std::uint32_t size) {
  Bytes image(size, 0x5A);
  std::memcpy(image.data(), "MorvuSimFirmware", 16);
  std::memset(&image[16], ' ', 8);
  std::memcpy(&image[16], revision.data(), std::min<std::size_t>(8, revision.size()));
  for (int i = 0; i < 4; ++i) image[24 + i] = static_cast<std::uint8_t>(size >> (8 * i));
  return image;
}

Answer Download(const Handle& handle, const Bytes& image, std::size_t block, std::uint8_t blocks,
                std::uint8_t mode) {
  const Bytes piece(image.begin() + block * 512, image.begin() + (block + blocks) * 512);
  return PioOut(handle, {0x92, mode, blocks, static_cast<std::uint64_t>(block) << 8}, piece);
}

TEST(AtaDrive, TakesFirmwareInSegmentsWithoutAGap) {
  TestFleet fleet;
  auto drive = fleet.Add({.firmware = "OLD00001"});
  const Handle handle(drive.Node());
  const auto image = Image("NEW00002", 4 * 512);
  EXPECT_EQ(0x50, Download(handle, image, 0, 2, 3).AtaStatus());
  EXPECT_EQ(0x51, Download(handle, image, 3, 1, 3).AtaStatus());  // block 2 is left out
  EXPECT_EQ(0x50, Download(handle, image, 0, 2, 3).AtaStatus());
  EXPECT_EQ("OLD00001", GetText(drive.State().firmware));
  EXPECT_EQ(0x50, Download(handle, image, 2, 2, 3).AtaStatus());
  EXPECT_EQ("NEW00002", Swapped(PioIn(handle, {0xEC, 0, 1}).data, 46, 8));

  const auto later = Image("NEW00003", 2 * 512);
  EXPECT_EQ(0x50, Download(handle, later, 0, 2, 0x0E).AtaStatus());
  EXPECT_EQ("NEW00002", GetText(drive.State().firmware));
  drive.PowerCycle();
  EXPECT_EQ("NEW00003", GetText(drive.State().firmware));
}

struct NvmeAnswer {
  int result;
  std::uint32_t value;
  Bytes data;
};

NvmeAnswer Admin(const Handle& handle, std::uint8_t opcode, std::uint32_t nsid, std::uint32_t cdw10,
                 std::uint32_t cdw11 = 0, Bytes data = {}) {
  nvme_admin_cmd command{};
  command.opcode = opcode;
  command.nsid = nsid;
  command.cdw10 = cdw10;
  command.cdw11 = cdw11;
  command.addr = reinterpret_cast<std::uintptr_t>(data.data());
  command.data_len = static_cast<std::uint32_t>(data.size());
  const int result = ioctl(handle.Get(), NVME_IOCTL_ADMIN_CMD, &command);
  return {result, command.result, std::move(data)};
}

TEST(NvmeDrive, IdentifiesFormatsAndRefuses) {
  TestFleet fleet;
  auto drive = fleet.Add(
      {.kind = Kind::Nvme, .model = "MORVU SSDPEDMD400G4", .serial = "CVFT1", .sectors = 80000});
  ASSERT_EQ("/dev/nvme0n1", drive.Node());
  drive.WriteMedium(0, Bytes(512, 7));
  const Handle controller("/dev/nvme0");
  const auto id = Admin(controller, 0x06, 0, 1, 0, Bytes(4096));
  ASSERT_EQ(0, id.result);
  EXPECT_EQ(0, std::memcmp(&id.data[24], "MORVU SSDPEDMD400G4 ", 20));
  EXPECT_EQ(0x10A, Admin(controller, 0x80, 1, 0x0F).result);
  EXPECT_EQ(0, Admin(controller, 0x80, 1, 2 | 1 << 9).result);
  const auto space = Admin(controller, 0x06, 1, 0, 0, Bytes(4096));
  EXPECT_EQ(10000, space.data[0] | space.data[1] << 8);
  EXPECT_EQ(2, space.data[26]);
  EXPECT_EQ(0, drive.ReadMedium(0, 1)[0]);
  EXPECT_EQ(0x001, Admin(controller, 0xC1, 0, 0).result);
  EXPECT_EQ(0x00B, Admin(controller, 0x80, 9, 0).result);
}

TEST(NvmeDrive, TakesFirmwareIntoASlotAndRunsItAfterAReset) {
  TestFleet fleet;
  auto drive = fleet.Add({.kind = Kind::Nvme, .firmware = "OLD1"});
  const Handle controller("/dev/nvme0");
  const auto image = Image("NEW2", 8192);
  const Bytes first(image.begin(), image.begin() + 4096), second(image.begin() + 4096, image.end());
  EXPECT_EQ(0, Admin(controller, 0x11, 0, 1023, 0, first).result);
  EXPECT_EQ(0x107, Admin(controller, 0x10, 0, 0x09).result);                // half an image
  EXPECT_EQ(0x114, Admin(controller, 0x11, 0, 1023, 2048, second).result);  // a gap
  EXPECT_EQ(0, Admin(controller, 0x11, 0, 1023, 1024, second).result);
  EXPECT_EQ(0, Admin(controller, 0x10, 0, 0x09).result);
  EXPECT_EQ("OLD1", GetText(drive.State().firmware));
  drive.PowerCycle();
  EXPECT_EQ("NEW2", GetText(drive.State().firmware));
}

TEST(NvmeDrive, ReadsAndWritesByTheIoRecordOfThisWidth) {
  TestFleet fleet;
  auto drive = fleet.Add({.kind = Kind::Nvme, .sectors = 1000});
  const Handle node(drive.Node());
  Bytes data(1024, 0x42);
  nvme_user_io io{};
  io.opcode = 1;
  io.nblocks = 1;
  io.slba = 998;
  io.addr = reinterpret_cast<std::uintptr_t>(data.data());
  EXPECT_EQ(0, ioctl(node.Get(), NVME_IOCTL_SUBMIT_IO, &io));
  EXPECT_EQ(data, drive.ReadMedium(998 * 512, 1024));
  io.slba = 999;
  EXPECT_EQ(0x080, ioctl(node.Get(), NVME_IOCTL_SUBMIT_IO, &io));
}

TEST(ScsiDrive, AnswersInquiryAndRefusesAtaPassThrough) {
  TestFleet fleet;
  auto drive = fleet.Add({.kind = Kind::Scsi,
                          .model = "SSD400 SAS",
                          .serial = "SER12345",
                          .firmware = "A001",
                          .sectors = 800});
  const Handle handle(drive.Node());
  const auto inquiry = Send(handle, {0x12, 0, 0, 0, 255, 0}, SG_DXFER_FROM_DEV, Bytes(512));
  EXPECT_EQ(0, inquiry.status);
  EXPECT_EQ(0, std::memcmp(&inquiry.data[8], "MORVU   SSD400 SAS      A001SER12345", 36));
  const auto refused = PioIn(handle, {0xEC, 0, 1});
  EXPECT_EQ(0x05, refused.sense[2]);
  EXPECT_EQ(0x20, refused.sense[12]);
  const auto capacity =
      Send(handle, {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, SG_DXFER_FROM_DEV, Bytes(512));
  EXPECT_EQ(799, capacity.data[2] << 8 | capacity.data[3]);
}

TEST(Faults, MeetTheCommandThatTheyAreSetFor) {
  TestFleet fleet;
  auto drive = fleet.Add({});
  const Handle handle(drive.Node());
  drive.Inject(Fault::AtaError(0x51, 0x40).OnOpcode(0xE5).OnCommand(2));
  EXPECT_EQ(0x50, NonData(handle, {0xE5}).AtaStatus());
  EXPECT_EQ(0x50, NonData(handle, {0xE0}).AtaStatus());
  EXPECT_EQ(0x40, NonData(handle, {0xE5}).AtaError());
  EXPECT_EQ(0x50, NonData(handle, {0xE5}).AtaStatus());

  drive.Inject(Fault::HostError(0x07).OnCommand(1));
  EXPECT_EQ(7, NonData(handle, {0xE5}).host);
  drive.Inject(Fault::IoctlError(EIO).OnCommand(1));
  EXPECT_EQ(-1, NonData(handle, {0xE5}).result);
  drive.Inject(Fault::Hang().OnCommand(1));
  EXPECT_EQ(3, NonData(handle, {0xE5}).host);
  drive.Inject(Fault::ShortData(100).OnCommand(1));
  EXPECT_EQ(412, PioIn(handle, {0xEC, 0, 1}).resid);
  drive.Inject(Fault::GarbageData(Garbage::Ones).OnCommand(1));
  EXPECT_EQ(Bytes(512, 0xFF), PioIn(handle, {0xEC, 0, 1}).data);

  drive.Inject(Fault::Vanish().OnCommand(2));
  EXPECT_EQ(0, NonData(handle, {0xE5}).result);
  EXPECT_EQ(-1, NonData(handle, {0xE5}).result);
  EXPECT_EQ(-1, open(drive.Node().c_str(), O_RDWR));
  EXPECT_EQ(ENODEV, errno);
  drive.ClearFaults();
  EXPECT_EQ(0, NonData(handle, {0xE5}).result);
}

TEST(Faults, StateAndJournalOutliveAKilledProcess) {
  TestFleet fleet;
  auto drive = fleet.Add({});
  drive.Inject(Fault::KillAfter().OnOpcode(0xF1));
  const pid_t child = fork();
  if (child == 0) {
    const Handle handle(drive.Node());
    PioOut(handle, {0xF1}, Bytes(512));
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(1, drive.State().ata.security.enabled);
  EXPECT_EQ(0xF1, drive.Journal().back().AtaOpcode());
  const Handle handle(drive.Node());
  drive.ClearFaults();
  EXPECT_EQ(0x50, NonData(handle, {0xE5}).AtaStatus());  // the lock is free
}

TEST(Files, ShellPipelinesSeeAMachineWithTheseDrives) {
  TestFleet fleet;
  auto disk = fleet.Add({});
  fleet.Add({.usb = true});
  fleet.Add({.kind = Kind::Nvme});
  fleet.Add({.kind = Kind::Scsi, .deviceType = 5});
  EXPECT_EQ("/dev/sda1", disk.AddPartition(1 << 20, "/data"));
  fleet.Drive("/dev/nvme0n1").AddPartition();
  fleet.SetRoot("/dev/mapper/vg0-root");

  EXPECT_EQ("sg0\nsg1\nsg2\n", Output("ls -l /dev/sg* | grep -E -o \"sg[[:digit:]]+\""));
  EXPECT_EQ("/dev/nvme0\n/dev/nvme0n1\n/dev/nvme0n1p1\n", Output("ls /dev/n*"));
  EXPECT_EQ("nvme0n1p1\n", Output("ls -l /dev/nvme0n1* | grep -o \"nvme0n1p.*\""));
  EXPECT_NE(std::string::npos, Output("ls -l /sys/class/scsi_generic/ | grep -E sg1$").find("usb"));
  EXPECT_EQ(std::string::npos, Output("ls -l /sys/class/scsi_generic/ | grep -E sg0$").find("usb"));

  auto path = Output("ls -l /sys/class/scsi_generic | grep -o \"../../[[:alnum:][:punct:]]*/sg0\"");
  ASSERT_TRUE(path.ends_with("/scsi_generic/sg0\n")) << path;
  path.resize(path.size() - std::strlen("scsi_generic/sg0\n"));
  EXPECT_EQ("sda1\n", Output("ls -l /sys/class/block | grep -o \"" + path +
                             "block/sd[[:alpha:]]/sd[[:alpha:]][[:digit:]]\\+\" | grep -o "
                             "\"sd[[:alpha:]][[:digit:]]\\+\""));
  EXPECT_EQ("/dev/sda1\n", Output("df -T | grep -o /dev/sda1"));
  EXPECT_EQ("ext4\n", Output("df -T -B 1 | grep /dev/sda1 | awk '{print $2}'"));
  EXPECT_EQ("2048\n", Output("df -T -B 512 | grep /dev/sda1 | awk '{print ($4+$5)}'"));
  EXPECT_EQ("/dev/mapper/vg0-root on / type ext4 (rw,relatime)\n",
            Output("mount | grep \" on / \""));
  EXPECT_EQ("", Output("cat /dev/null"));

  std::ifstream type("/sys/class/scsi_generic/sg2/device/type");
  std::string text;
  std::getline(type, text);
  EXPECT_EQ("5", text);
}

TEST(Files, MountAndVolumeGroupsFollowTheTables) {
  TestFleet fleet;
  auto disk = fleet.Add({});
  const auto partition = disk.AddPartition(1 << 20);
  const auto volume = disk.AddPartition(1 << 20, "", "LVM2_member", "vg0");
  EXPECT_EQ("", Output("df -T | grep -o " + partition));
  EXPECT_EQ(0, system(("mount " + partition + " /mnt/MorvuTestFolder").c_str()));
  EXPECT_EQ(partition + " on /mnt/MorvuTestFolder type ext4 (rw,relatime)\n",
            Output("mount | grep " + partition));
  EXPECT_EQ(0, system("umount -l /mnt/MorvuTestFolder 2>/dev/null"));
  EXPECT_EQ("", Output("df -T | grep -o " + partition));
  EXPECT_NE(0, system("mount /dev/sda9 /mnt/x 2>/dev/null"));
  EXPECT_EQ("  VG Name               vg0\n",
            Output("pvdisplay " + volume + " 2>/dev/null | grep \"VG Name\""));
}

TEST(Faults, BadSectorsMeetEveryWayOfReading) {
  TestFleet fleet;
  auto drive = fleet.Add({.sectors = 1000});
  drive.AddBadSectors(500, 2);
  const Handle handle(drive.Node());
  EXPECT_EQ(0x40, PioIn(handle, {0x24, 0, 8, 494, true}, 8).AtaError());
  EXPECT_EQ(0x50, PioIn(handle, {0x24, 0, 6, 494, true}, 6).AtaStatus());
  EXPECT_EQ(0x40, NonData(handle, {0x42, 0, 1, 501, true}).AtaError());
  Bytes data(1024);
  aiocb64 block{};
  block.aio_fildes = handle.Get();
  block.aio_buf = data.data();
  block.aio_nbytes = data.size();
  block.aio_offset = 499 * 512;
  EXPECT_EQ(0, aio_read64(&block));
  EXPECT_EQ(EIO, aio_error64(&block));
  EXPECT_EQ(-1, aio_return64(&block));
  block.aio_offset = 498 * 512;
  EXPECT_EQ(0, aio_read64(&block));
  while (aio_error64(&block) == EINPROGRESS) {
  }
  EXPECT_EQ(1024, aio_return64(&block));
  EXPECT_EQ(1u, drive.State().rawReads);
}

TEST(Faults, ARefusedReadMayHandBackAnEarlierCommandsData) {
  TestFleet fleet;
  auto drive = fleet.Add({.sectors = 1000});
  drive.State().staleData = 1;
  const Handle handle(drive.Node());
  const auto identify = PioIn(handle, {0xEC, 0, 1});
  const auto refused = PioIn(handle, {0x24, 0, 1, 1000, true});
  EXPECT_EQ(0x51, refused.AtaStatus());
  EXPECT_EQ(identify.data, refused.data);
}

TEST(Files, FilesOfAMountedPartitionStayInTheFleet) {
  TestFleet fleet;
  auto disk = fleet.Add({});
  const auto partition = disk.AddPartition(1 << 20);
  EXPECT_EQ(0, system("mkdir '/mnt/MorvuTestFolder' 2>/dev/null"));
  EXPECT_EQ(0, system(("mount " + partition + " /mnt/MorvuTestFolder > /dev/null 2>&1").c_str()));
  EXPECT_EQ(partition + " on /mnt/MorvuTestFolder type ext4 (rw,relatime)\n",
            Output("mount | grep " + partition + " | grep /mnt/MorvuTestFolder"));
  std::ofstream("/mnt/MorvuTestFolder/a.bin") << "data";
  struct stat file {};
  EXPECT_EQ(0, stat("/mnt/MorvuTestFolder/a.bin", &file));
  EXPECT_EQ(4, file.st_size);
  EXPECT_EQ(0, system("find /mnt/MorvuTestFolder -maxdepth 1 -name 'a*' -delete"));
  EXPECT_NE(0, stat("/mnt/MorvuTestFolder/a.bin", &file));
  EXPECT_EQ(0, system("umount -l /mnt/MorvuTestFolder 2>/dev/null"));
  EXPECT_EQ(0, system("rmdir /mnt/MorvuTestFolder"));
}

TEST(Files, NodesLookLikeDevicesAndReadLikeTheMedium) {
  TestFleet fleet;
  auto drive = fleet.Add({.sectors = std::uint64_t{16} << 21});  // beyond 32 bits
  drive.WriteMedium(4096, Bytes(512, 9));
  struct stat node {};
  ASSERT_EQ(0, stat(drive.Node().c_str(), &node));
  EXPECT_TRUE(S_ISCHR(node.st_mode));
  EXPECT_NE(0, stat("/dev/sg7", &node));
  const int direct = open(drive.Node().c_str(), O_RDONLY | O_DIRECT);
  ASSERT_GE(direct, 0);
  alignas(4096) std::array<std::uint8_t, 4096> block;
  EXPECT_EQ(4096, pread(direct, block.data(), block.size(), 4096));
  EXPECT_EQ(9, block[0]);
  close(direct);
}

}  // namespace
}  // namespace Simulator
