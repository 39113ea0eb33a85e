#include "Bytes.h"
#include "Commands.h"
#include "gtest/gtest.h"

namespace Simulator {
namespace {

constexpr int kDoNotRetry = 1 << 14;

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
  EXPECT_EQ(kDoNotRetry | 0x10A, Admin(controller, 0x80, 1, 0x0F).result);
  EXPECT_EQ(0, Admin(controller, 0x80, 1, 2 | 1 << 9).result);
  const auto space = Admin(controller, 0x06, 1, 0, 0, Bytes(4096));
  EXPECT_EQ(10000, space.data[0] | space.data[1] << 8);
  EXPECT_EQ(2, space.data[26]);
  EXPECT_EQ(0, drive.ReadMedium(0, 1)[0]);
  EXPECT_EQ(kDoNotRetry | 0x001, Admin(controller, 0xC1, 0, 0).result);
  EXPECT_EQ(kDoNotRetry | 0x00B, Admin(controller, 0x80, 9, 0).result);
}

TEST(NvmeDrive, TakesFirmwareIntoASlotAndRunsItAfterAReset) {
  TestFleet fleet;
  auto drive = fleet.Add({.kind = Kind::Nvme, .firmware = "OLD1"});
  const Handle controller("/dev/nvme0");
  const auto image = Image("NEW2", 8192);
  const Bytes first(image.begin(), image.begin() + 4096), second(image.begin() + 4096, image.end());
  EXPECT_EQ(0, Admin(controller, 0x11, 0, 1023, 0, first).result);
  EXPECT_EQ(kDoNotRetry | 0x107, Admin(controller, 0x10, 0, 0x09).result);  // half an image
  EXPECT_EQ(kDoNotRetry | 0x114, Admin(controller, 0x11, 0, 1023, 2048, second).result);  // a gap
  EXPECT_EQ(0, Admin(controller, 0x11, 0, 1023, 1024, second).result);
  EXPECT_EQ(0, Admin(controller, 0x10, 0, 0x09).result);
  EXPECT_EQ("OLD1", GetText(drive.State().firmware));
  drive.PowerCycle();
  EXPECT_EQ("NEW2", GetText(drive.State().firmware));
}

TEST(NvmeDrive, NumbersNodesAsTheyCome) {
  TestFleet fleet;
  auto drive = fleet.Add({.kind = Kind::Nvme, .sectors = 1000, .nsids = {2, 3}});
  ASSERT_EQ("/dev/nvme0n1", drive.Node());
  const Handle controller("/dev/nvme0"), first("/dev/nvme0n1"), second("/dev/nvme0n2");
  EXPECT_EQ(-1, ioctl(controller.Get(), NVME_IOCTL_ID, nullptr));
  EXPECT_EQ(2, ioctl(first.Get(), NVME_IOCTL_ID, nullptr));
  EXPECT_EQ(3, ioctl(second.Get(), NVME_IOCTL_ID, nullptr));
  EXPECT_EQ(-1, open("/dev/nvme0n3", O_RDWR));
  drive.WriteMedium(0, Bytes(512, 7));
  EXPECT_EQ(0, Admin(controller, 0x80, 3, 1 << 9).result);
  EXPECT_EQ(7, drive.ReadMedium(0, 1)[0]);
  EXPECT_EQ(0, Admin(controller, 0x80, 2, 1 << 9).result);
  EXPECT_EQ(0, drive.ReadMedium(0, 1)[0]);
}

using ScsiDrive = OneDrive;

TEST_F(ScsiDrive, TakesAPieceOfAnImageOnlyAtItsPlace) {
  Attach({.kind = Kind::Scsi, .firmware = "OLD1"});
  const auto image = Image("NEW2", 2048);
  const auto send = [&](std::uint8_t offset, std::size_t from) {
    const Bytes piece(image.begin() + from, image.begin() + from + 1024);
    return Send(handle, {0x3B, 7, 0, 0, offset, 0, 0, 4, 0, 0}, SG_DXFER_TO_DEV, piece).status;
  };
  EXPECT_EQ(0, send(0, 0));
  EXPECT_EQ(2, send(0, 1024));  // over the first
  EXPECT_EQ(0, send(0, 0));
  EXPECT_EQ(0, send(4, 1024));
  EXPECT_EQ("NEW2", GetText(drive.State().firmware));
}

TEST_F(ScsiDrive, AnswersInquiryAndRefusesAtaPassThrough) {
  Attach({.kind = Kind::Scsi,
          .model = "SSD400 SAS",
          .serial = "SER12345",
          .firmware = "A001",
          .sectors = 800});
  const auto inquiry = Send(handle, {0x12, 0, 0, 0, 255, 0}, SG_DXFER_FROM_DEV, Bytes(512));
  EXPECT_EQ(0, inquiry.status);
  EXPECT_EQ(0, std::memcmp(&inquiry.data[8], "MORVU   SSD400 SAS      A001SER12345", 36));
  const auto refused = PioIn(handle, {0xEC, 0, 1});
  EXPECT_EQ(0x05, refused.sense[2]);
  EXPECT_EQ(0x20, refused.sense[12]);
  drive.State().scsi.descriptorSense = 1;
  const auto described = PioIn(handle, {0xEC, 0, 1});
  EXPECT_EQ(0x72, described.sense[0]);
  EXPECT_EQ(0x20, described.sense[2]);
  const auto capacity =
      Send(handle, {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, SG_DXFER_FROM_DEV, Bytes(512));
  EXPECT_EQ(799, capacity.data[2] << 8 | capacity.data[3]);
}

}  // namespace
}  // namespace Simulator
