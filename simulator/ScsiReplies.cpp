#include "ScsiReplies.h"

#include <cstring>

#include "Ata.h"
#include "Bytes.h"

namespace Simulator {

std::array<std::uint8_t, 96> StandardInquiry(const DriveState& state) {
  const bool ata = state.kind == Kind::Ata;
  const auto firmware = GetText(state.firmware);
  std::array<std::uint8_t, 96> reply{};
  reply[0] = state.deviceType;
  reply[2] = 0x06;  // SPC-4
  reply[3] = 0x02;
  reply[4] = 91;
  reply[7] = 0x02;
  PutText(&reply[8], 8, ata ? "ATA" : GetText(state.vendor));
  PutText(&reply[16], 16, GetText(state.model));
  // The last four characters of a SATA drive's firmware, as Linux shows them.
  PutText(&reply[32], 4,
          ata && firmware.size() > 4 ? firmware.substr(firmware.size() - 4) : firmware);
  if (!ata && !state.scsi.blankInquirySerial) PutText(&reply[36], 8, GetText(state.serial));
  return reply;
}

// Drives that have a serial number in their INQUIRY data say more on the page for it.
std::string UnitSerial(const DriveState& state) {
  const auto serial = GetText(state.serial);
  const bool isShort = state.kind == Kind::Ata || state.scsi.blankInquirySerial || serial.empty();
  return isShort ? serial : serial + "0000C4";
}

namespace {

// Data for a command whose CDB gives an allocation length.
void ReplyWithin(Transaction& transaction, const std::uint8_t* reply, std::size_t size,
                 std::size_t allocation) {
  transaction.Reply(reply, std::min(size, allocation));
}

struct Pages {
  std::string_view vendor, product;
  const std::uint8_t* list;
  std::size_t count;
};

std::size_t PutPage(Drive& drive, std::uint8_t page, const Pages& pages,
                    std::uint8_t (&reply)[600]) {
  auto& state = drive.State();
  const auto serial = UnitSerial(state);
  reply[0] = state.deviceType;
  reply[1] = page;
  switch (page) {
    case 0x00:
      reply[3] = static_cast<std::uint8_t>(pages.count);
      std::memcpy(reply + 4, pages.list, pages.count);
      return 4 + pages.count;
    case 0x80:
      reply[3] = 20;
      PutText(reply + 4, 20, serial);
      return 24;
    case 0x83: {  // T10 vendor identification
      const std::string text = std::string(pages.vendor) +
                               std::string(8 - pages.vendor.size(), ' ') +
                               std::string(pages.product) + serial;
      const auto length = std::min<std::size_t>(text.size(), 200);
      reply[3] = static_cast<std::uint8_t>(length + 4);
      reply[4] = 0x02;
      reply[5] = 0x01;
      reply[7] = static_cast<std::uint8_t>(length);
      PutText(reply + 8, length, text);
      return 8 + length;
    }
    case 0x89: {  // ATA information, SAT-3
      PutBig(reply + 2, 2, 568);
      PutText(reply + 8, 8, "linux");
      PutText(reply + 16, 16, "libata");
      PutText(reply + 32, 4, "3.00");
      reply[36] = 0x34;
      reply[56] = 0xEC;
      std::uint8_t identify[512];
      BuildIdentify(drive, identify);
      std::memcpy(reply + 60, identify, sizeof identify);
      return 572;
    }
    case 0xB1:  // block device characteristics: no rotation
      reply[3] = 60;
      reply[5] = 1;
      return 64;
    default:
      return 0;
  }
}

void Inquiry(Drive& drive, Transaction& transaction, const Pages& pages) {
  const auto* cdb = transaction.command;
  const auto allocation = GetBig(cdb + 3, 2);
  if ((cdb[1] & 1) != 0) {
    std::uint8_t reply[600] = {};
    const bool listed =
        std::find(pages.list, pages.list + pages.count, cdb[2]) != pages.list + pages.count;
    const auto size = listed ? PutPage(drive, cdb[2], pages, reply) : 0;
    if (size == 0) return transaction.Refuse(0x24, 0x00);
    return ReplyWithin(transaction, reply, size, allocation);
  }
  if (cdb[2] != 0) return transaction.Refuse(0x24, 0x00);
  const auto reply = StandardInquiry(drive.State());
  ReplyWithin(transaction, reply.data(), reply.size(), allocation);
}

constexpr std::uint8_t kAtaPages[] = {0x00, 0x80, 0x83, 0x89, 0xB1};
constexpr std::uint8_t kScsiPages[] = {0x00, 0x80, 0x83, 0xB1};

}  // namespace

void ReplyAtaInquiry(Drive& drive, Transaction& transaction) {
  const auto model = GetText(drive.State().model);
  Inquiry(drive, transaction, {"ATA", model, kAtaPages, std::size(kAtaPages)});
}

void ReplyScsiInquiry(Drive& drive, Transaction& transaction) {
  const auto model = GetText(drive.State().model);
  const auto vendor = GetText(drive.State().vendor);
  Inquiry(drive, transaction, {vendor, model, kScsiPages, std::size(kScsiPages)});
}

void ReplyRequestSense(Transaction& transaction) {
  std::uint8_t reply[18] = {0x70, 0, 0, 0, 0, 0, 0, 10};
  ReplyWithin(transaction, reply, sizeof reply, transaction.command[4]);
}

// The caching and control pages, with nothing but the write cache bit in them.
void ReplyModeSense(Drive& drive, Transaction& transaction) {
  const auto* cdb = transaction.command;
  const bool ten = cdb[0] == 0x5A;
  const std::uint8_t page = cdb[2] & 0x3F;
  std::uint8_t reply[64] = {};
  std::size_t size = ten ? 8 : 4;
  if (page == 0x08 || page == 0x3F) {
    reply[size] = 0x08;
    reply[size + 1] = 18;
    const bool cache = drive.State().kind != Kind::Ata || drive.State().ata.writeCache != 0;
    reply[size + 2] = cache ? 0x04 : 0x00;
    size += 20;
  }
  if (page == 0x0A || page == 0x3F) {
    reply[size] = 0x0A;
    reply[size + 1] = 10;
    size += 12;
  }
  if (size == (ten ? 8u : 4u)) return transaction.Refuse(0x24, 0x00);
  if (ten) {
    PutBig(reply, 2, size - 2);
  } else {
    reply[0] = static_cast<std::uint8_t>(size - 1);
  }
  ReplyWithin(transaction, reply, size, ten ? GetBig(cdb + 7, 2) : cdb[4]);
}

void ReplyReadCapacity(Drive& drive, Transaction& transaction) {
  const auto& state = drive.State();
  const bool ata = state.kind == Kind::Ata;
  const auto last = ata ? state.ata.maxLba : state.sectors - 1;
  const auto size = ata ? AtaSectorSize(state) : state.sectorSize;
  std::uint8_t reply[32] = {};
  if (transaction.command[0] == 0x25) {
    PutBig(reply, 4, std::min<std::uint64_t>(last, 0xFFFFFFFF));
    PutBig(reply + 4, 4, size);
    return transaction.Reply(reply, 8);
  }
  if ((transaction.command[1] & 0x1F) != 0x10 || transaction.commandLength < 16) {
    return transaction.Refuse(0x24, 0x00);
  }
  PutBig(reply, 8, last);
  PutBig(reply + 8, 4, size);
  ReplyWithin(transaction, reply, sizeof reply, GetBig(transaction.command + 10, 4));
}

}  // namespace Simulator
