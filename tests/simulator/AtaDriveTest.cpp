#include "Bytes.h"
#include "Commands.h"
#include "gtest/gtest.h"

namespace Simulator {
namespace {

using AtaDrive = OneDrive;

TEST_F(AtaDrive, AbortsNopAndUnknownCommands) {
  Attach();
  for (const std::uint8_t command : {0x00, 0xFF, 0x60}) {
    const auto answer = PioIn(handle, {command});
    EXPECT_EQ(0x51, answer.AtaStatus());
    EXPECT_EQ(0x04, answer.AtaError());
  }
}

TEST_F(AtaDrive, ReadsBackWhatIsWrittenAndRefusesTheSectorBehindTheLast) {
  Attach({.sectors = 1000});
  Bytes data(512, 0xA5);
  PioOut(handle, {0x34, 0, 1, 999, true}, data);
  EXPECT_EQ(data, PioIn(handle, {0x24, 0, 1, 999, true}).data);
  EXPECT_EQ(data, drive.ReadMedium(999 * 512, 512));
  const auto beyond = PioIn(handle, {0x24, 0, 1, 1000, true});
  EXPECT_EQ(0x10, beyond.AtaError());
  EXPECT_EQ(1000u, beyond.Lba());
  EXPECT_EQ(0, beyond.resid);  // a SATA layer tells none
}

TEST_F(AtaDrive, GivesRegistersInEachSenseFormat) {
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

TEST_F(AtaDrive, ErasesOnlyWithThePasswordAndDirectlyBehindPrepare) {
  Attach({.sectors = 1000});
  drive.WriteMedium(0, Bytes(512, 1));
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
  const auto ended = PioOut(handle, {0xF4}, password);  // two minutes are more than it was given
  EXPECT_EQ(0x0B, ended.sense[1]);
  EXPECT_EQ(0x40, ended.AtaStatus());
  EXPECT_EQ(1, drive.State().ata.security.enabled);
  drive.State().ata.identify[89] = 0;
  NonData(handle, {0xF3});
  EXPECT_EQ(0x50, PioOut(handle, {0xF4}, password).AtaStatus());
  EXPECT_EQ(0, drive.ReadMedium(0, 1)[0]);
  EXPECT_EQ(0, drive.State().ata.security.enabled);
}

TEST_F(AtaDrive, LocksAtPowerOnAndCountsWrongPasswords) {
  Attach();
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

TEST_F(AtaDrive, SetsItsMaximumOnlyDirectlyBehindReadNativeMax) {
  Attach({.sectors = 5000});
  EXPECT_EQ(0x51, NonData(handle, {0x37, 0, 1, 999, true}).AtaStatus());
  EXPECT_EQ(4999u, NonData(handle, {0x27, 0, 0, 0, true}).Lba());
  EXPECT_EQ(0x50, NonData(handle, {0x37, 0, 1, 999, true}).AtaStatus());
  EXPECT_EQ(0x51, PioIn(handle, {0x24, 0, 1, 1000, true}).AtaStatus());
}

TEST_F(AtaDrive, SanitizesOverTimeAndAnswersLittleMeanwhile) {
  Attach({.sectors = 1000});
  drive.WriteMedium(0, Bytes(512, 1));
  drive.State().ata.sanitize.durationMs = 100000;
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

Answer Download(const Handle& handle, const Bytes& image, std::size_t block, std::uint8_t blocks,
                std::uint8_t mode) {
  const Bytes piece(image.begin() + block * 512, image.begin() + (block + blocks) * 512);
  return PioOut(handle, {0x92, mode, blocks, static_cast<std::uint64_t>(block) << 8}, piece);
}

TEST_F(AtaDrive, TakesFirmwareInSegmentsWithoutAGap) {
  Attach({.firmware = "OLD00001"});
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

Bytes Key(std::initializer_list<std::uint16_t> words) {
  Bytes key(512);
  std::size_t at = 0;
  for (const auto word : words) {
    PutLittle(&key[at], word);
    at += 2;
  }
  return key;
}

constexpr std::uint64_t kSctStatus = 0xC24FE0, kSctData = 0xC24FE1;

TEST_F(AtaDrive, SetsAndGetsBySct) {
  Attach();
  const auto send = [&](std::initializer_list<std::uint16_t> words) {
    return PioOut(handle, {0xB0, 0xD6, 1, kSctStatus}, Key(words));
  };
  EXPECT_EQ(0x50, send({4, 1, 0x0003, 0x0105, 1}).AtaStatus());  // feature control, set
  const auto get = send({4, 2, 0x0003});
  EXPECT_EQ(0x05, get.sense[13]);  // count 7:0, and LBA 7:0
  EXPECT_EQ(0x01, get.sense[15]);
  const auto saves = PioIn(handle, {0xB0, 0xD5, 1, kSctStatus}).data;
  EXPECT_EQ(999, GetLittle<std::uint16_t>(&saves[482]));
  struct Refused {
    std::initializer_list<std::uint16_t> words;
    std::uint16_t status;  // ACS-3, table 204
  };
  const Refused refused[] = {
      {{9, 1}, 0x0010},       {{3, 3, 1}, 0x0004},         {{3, 2, 3}, 0x0005},
      {{4, 4, 1}, 0x000C},    {{4, 1, 0xD003, 1}, 0x000C}, {{4, 2, 0x7777}, 0x000D},
      {{4, 1, 1, 4}, 0x000E}, {{4, 1, 3, 0}, 0x000E},      {{4, 1, 1, 1, 2}, 0x000F},
      {{5, 1, 7}, 0x0011},    {{0xC002, 3}, 0x0001},       {{0xC003, 2}, 0x0001},
  };
  for (const auto& [words, status] : refused) {
    EXPECT_EQ(0x51, send(words).AtaStatus());
    const auto told = PioIn(handle, {0xB0, 0xD5, 1, kSctStatus}).data;
    EXPECT_EQ(status, GetLittle<std::uint16_t>(&told[14]));
  }
  EXPECT_EQ(0x51, PioIn(handle, {0xB0, 0xD5, 1, kSctData}).AtaStatus());  // no table was asked for
  EXPECT_EQ(1, send({5, 1, 2}).sense[13]);
  EXPECT_EQ(2, PioIn(handle, {0xB0, 0xD5, 1, kSctData}).data[0]);
  EXPECT_EQ(0x50, send({0xC002, 2}).AtaStatus());
  EXPECT_EQ(2, PioIn(handle, {0xEC, 0, 1}).data[2 * 138]);
}

TEST_F(AtaDrive, TurnsTheWriteCacheOnAndOffBySct) {
  Attach();
  const auto isOn = [&] { return (PioIn(handle, {0xEC, 0, 1}).data[2 * 85] & 0x20) != 0; };
  const auto set = [&](std::uint16_t state) {
    PioOut(handle, {0xB0, 0xD6, 1, kSctStatus}, Key({4, 1, 1, state, 1}));
  };
  set(3);
  EXPECT_FALSE(isOn());
  set(2);
  EXPECT_TRUE(isOn());
  set(3);
  drive.PowerCycle();
  EXPECT_FALSE(isOn());
}

TEST_F(AtaDrive, ReadsLogsByPageAndVendorLogsAsAStream) {
  Attach();
  Bytes content(4 * 512);
  for (std::size_t i = 0; i < content.size(); ++i)
    content[i] = static_cast<std::uint8_t>(i / 512 + 1);
  drive.SetLog(0x80, content);
  drive.SetLog(0xDE, content);
  const auto log = [&](std::uint8_t address, std::uint8_t page, std::uint8_t blocks) {
    return PioIn(handle, {0x2F, 0, blocks, static_cast<std::uint64_t>(page) << 8 | address, true},
                 blocks);
  };
  EXPECT_EQ(4, log(0x00, 0, 1).data[2 * 0xDE]);
  EXPECT_EQ(3, log(0x80, 2, 2).data[0]);
  EXPECT_EQ(0x51, log(0x80, 4, 1).AtaStatus());
  EXPECT_EQ(0x51, log(0x81, 0, 1).AtaStatus());
  EXPECT_EQ(1, log(0xDE, 0, 2).data[0]);
  EXPECT_EQ(3, log(0xDE, 0, 2).data[0]);
  log(0x00, 0, 1);
  EXPECT_EQ(1, log(0xDE, 0, 2).data[0]);
}

}  // namespace
}  // namespace Simulator
