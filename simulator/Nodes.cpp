#include "Nodes.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/nvme_ioctl.h>
#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "FleetFiles.h"
#include "Real.h"

#ifdef __x86_64__
static_assert(sizeof(sg_io_hdr) == 88 && sizeof(nvme_user_io) == 48);
static_assert(NVME_IOCTL_SUBMIT_IO == 0x40304E42);
#else
static_assert(sizeof(sg_io_hdr) == 64 && sizeof(nvme_user_io) == 44);
static_assert(NVME_IOCTL_SUBMIT_IO == 0x402C4E42);
#endif
static_assert(sizeof(nvme_admin_cmd) == 72 && NVME_IOCTL_ADMIN_CMD == 0xC0484E41);

namespace Simulator {

namespace {

constexpr std::size_t kMaxDescriptors = 65536;
constexpr int kSgVersion = 30536;
// The kernel's, which the C library's <scsi/scsi_ioctl.h> leaves out.
constexpr unsigned long kScsiGetIdLun = 0x5382, kScsiGetBusNumber = 0x5386;
constexpr std::uint32_t kMaxTransfer = 64u << 20;

std::array<std::atomic<OpenNode*>, kMaxDescriptors> openNodes;

bool InRange(int descriptor) {
  return descriptor >= 0 && static_cast<std::size_t>(descriptor) < kMaxDescriptors;
}

int Fail(int errorNumber) {
  errno = errorNumber;
  return -1;
}

Direction DirectionOf(int sg) {
  if (sg == SG_DXFER_TO_DEV) return Direction::ToDevice;
  if (sg == SG_DXFER_FROM_DEV || sg == SG_DXFER_TO_FROM_DEV) return Direction::FromDevice;
  return Direction::None;
}

template <typename Record>
auto* Pointer(Record address) {
  return reinterpret_cast<std::uint8_t*>(static_cast<std::uintptr_t>(address));
}

// What a signal does to the thread that waits for the drive.
enum class Delivery { None, Ends, Restarts };

Delivery Deliver(int signal) {
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  struct sigaction action {};
  sigaction(signal, nullptr, &action);
  const bool isTaken = sigismember(&blocked, signal) == 0 && action.sa_handler != SIG_IGN;
  pthread_kill(pthread_self(), signal);
  if (!isTaken) return Delivery::None;
  return (action.sa_flags & SA_RESTART) != 0 ? Delivery::Restarts : Delivery::Ends;
}

// The wait for a generic node can be interrupted, that for a block node cannot. False when
// it was: the drive has worked on all the same.
bool ExecuteInterruptibly(OpenNode& open, Transaction& transaction) {
  const auto first = transaction;
  open.node.drive->Execute(transaction);
  if (transaction.signal == 0) return true;
  const auto delivery = Deliver(transaction.signal);
  if (open.node.block || delivery == Delivery::None) return true;
  if (delivery == Delivery::Ends) return false;
  transaction = first;
  open.node.drive->Execute(transaction);
  return true;
}

int SgIo(OpenNode& open, sg_io_hdr& header) {
  if (open.node.drive->State().kind == Kind::Nvme) return Fail(ENOTTY);
  if (header.interface_id != 'S') return Fail(ENOSYS);
  if (header.cmdp == nullptr || header.cmd_len < 6) return Fail(EMSGSIZE);
  if (header.iovec_count != 0) return Fail(EINVAL);
  if (header.dxfer_len > kMaxTransfer) return Fail(ENOMEM);
  const auto direction = DirectionOf(header.dxfer_direction);
  const bool moves = direction != Direction::None && header.dxfer_len != 0;
  if (moves && header.dxferp == nullptr) return Fail(EFAULT);

  Transaction transaction;
  transaction.ioctl = Ioctl::SgIo;
  transaction.command = header.cmdp;
  transaction.commandLength = header.cmd_len;
  transaction.direction = direction;
  transaction.data = moves ? static_cast<std::uint8_t*>(header.dxferp) : nullptr;
  transaction.length = moves ? header.dxfer_len : 0;
  transaction.requested = header.dxfer_len;
  transaction.timeoutMs = header.timeout;
  if (!ExecuteInterruptibly(open, transaction)) return Fail(EINTR);
  if (transaction.errorNumber != 0) return Fail(transaction.errorNumber);

  header.status = transaction.scsiStatus;
  header.masked_status = static_cast<unsigned char>(transaction.scsiStatus >> 1 & 0x1F);
  header.msg_status = 0;
  header.host_status = transaction.hostStatus;
  header.driver_status = transaction.driverStatus;
  const auto sense = std::min<unsigned>(transaction.senseLength, header.mx_sb_len);
  if (sense != 0 && header.sbp != nullptr) std::memcpy(header.sbp, transaction.sense, sense);
  header.sb_len_wr = static_cast<unsigned char>(header.sbp != nullptr ? sense : 0);
  if (transaction.senseLength != 0) header.driver_status |= 0x08;
  // Linux's SATA layer tells no residual.
  const bool isSata = open.node.drive->State().kind == Kind::Ata;
  header.resid = isSata ? 0 : static_cast<int>(transaction.length - transaction.transferred);
  header.duration = 0;
  const bool troubled = header.status != 0 || header.host_status != 0 || header.driver_status != 0;
  header.info = troubled ? SG_INFO_CHECK : SG_INFO_OK;
  return 0;
}

Direction NvmeDirection(std::uint8_t opcode, std::uint32_t length) {
  if (length == 0 || (opcode & 3) == 0) return Direction::None;
  return (opcode & 1) != 0 ? Direction::ToDevice : Direction::FromDevice;
}

// A controller asks for no retry of what it has refused for good; media errors may pass.
int WithFlags(std::uint16_t status) {
  constexpr int kDoNotRetry = 1 << 14;
  constexpr int kMediaErrors = 2;
  return status == 0 || status >> 8 == kMediaErrors ? status : status | kDoNotRetry;
}

template <typename Record>
int NvmePassThrough(OpenNode& open, Record& record, Ioctl ioctl) {
  if (record.data_len > kMaxTransfer) return Fail(ENOMEM);
  if (record.data_len != 0 && record.addr == 0) return Fail(EFAULT);
  Transaction transaction;
  transaction.ioctl = ioctl;
  transaction.command = reinterpret_cast<const std::uint8_t*>(&record);
  transaction.commandLength = sizeof record;
  transaction.direction = NvmeDirection(record.opcode, record.data_len);
  transaction.data = Pointer(record.addr);
  transaction.length = record.data_len;
  transaction.requested = record.data_len;
  transaction.timeoutMs = record.timeout_ms;
  transaction.nsid = open.node.nsid;
  open.node.drive->Execute(transaction);
  if (transaction.errorNumber != 0) return Fail(transaction.errorNumber);
  if (transaction.signal != 0) Deliver(transaction.signal);
  record.result = transaction.nvmeResult;
  return WithFlags(transaction.nvmeStatus);
}

// The I/O record is handed on in the form of the pass-through record, which
// is the same in both widths and holds all that the drive reads.
int NvmeSubmit(OpenNode& open, const nvme_user_io& io) {
  if (open.node.nsid == 0) return Fail(ENOTTY);
  if (io.opcode != 0x01 && io.opcode != 0x02 && io.opcode != 0x05) return Fail(EINVAL);
  const auto& state = open.node.drive->State();
  nvme_passthru_cmd record{};
  record.opcode = io.opcode;
  record.flags = io.flags;
  record.nsid = open.node.nsid;
  record.addr = io.addr;
  const auto format = state.nvme.namespaces[open.node.nsid - 1].format;
  record.data_len = (io.nblocks + 1u) * (format >= 2 ? 4096u : 512u);
  record.cdw10 = static_cast<std::uint32_t>(io.slba);
  record.cdw11 = static_cast<std::uint32_t>(io.slba >> 32);
  record.cdw12 = io.nblocks | static_cast<std::uint32_t>(io.control) << 16;
  record.cdw13 = io.dsmgmt;
  record.cdw14 = io.reftag;
  record.cdw15 = io.apptag | static_cast<std::uint32_t>(io.appmask) << 16;
  return NvmePassThrough(open, record, Ioctl::NvmeIo);
}

int NvmeIoctl(OpenNode& open, unsigned long request, void* argument) {
  switch (request) {
    case NVME_IOCTL_ID:
      return open.node.nsid != 0 ? static_cast<int>(open.node.nsid) : Fail(ENOTTY);
    case NVME_IOCTL_ADMIN_CMD:
      return NvmePassThrough(open, *static_cast<nvme_passthru_cmd*>(argument), Ioctl::NvmeAdmin);
    case NVME_IOCTL_ADMIN64_CMD:
      return NvmePassThrough(open, *static_cast<nvme_passthru_cmd64*>(argument), Ioctl::NvmeAdmin);
    case NVME_IOCTL_IO_CMD:
      return NvmePassThrough(open, *static_cast<nvme_passthru_cmd*>(argument), Ioctl::NvmeIo);
    case NVME_IOCTL_IO64_CMD:
      return NvmePassThrough(open, *static_cast<nvme_passthru_cmd64*>(argument), Ioctl::NvmeIo);
    case NVME_IOCTL_SUBMIT_IO:
      return NvmeSubmit(open, *static_cast<const nvme_user_io*>(argument));
    case NVME_IOCTL_RESET:
      open.node.drive->PowerCycle();
      return 0;
    case NVME_IOCTL_RESCAN:
      return 0;
    default:
      return Fail(ENOTTY);
  }
}

int RefreshDisk(const Node& node, unsigned long request) {
  const auto fleet = ActiveFleet();
  if (fleet == nullptr) return 0;
  const auto block = fleet->DiskOf(node);
  // The first sector holds the table.
  if (request == BLKRRPART && !node.drive->IsReadable(node.nsid, 0, 512)) return Fail(EIO);
  if (request == BLKRRPART) return RereadPartitions(fleet->Root(), block) ? 0 : Fail(EBUSY);
  AppendEvent(fleet->Root(), "flush /dev/" + block);
  return 0;
}

struct DiskSize {
  std::uint64_t bytes;
  std::uint32_t sector;
};

DiskSize SizeOf(const OpenNode& open) {
  const auto& state = open.node.drive->State();
  if (state.kind != Kind::Nvme) return {state.sectors * state.sectorSize, state.sectorSize};
  const auto& space = state.nvme.namespaces[open.node.nsid - 1];
  return {space.bytes, space.format >= 2 ? 4096u : 512u};
}

int BlockIoctl(OpenNode& open, unsigned long request, void* argument) {
  const auto disk = SizeOf(open);
  switch (request) {
    case BLKGETSIZE64:
      *static_cast<std::uint64_t*>(argument) = disk.bytes;
      return 0;
    case BLKSSZGET:
      *static_cast<int*>(argument) = static_cast<int>(disk.sector);
      return 0;
    case BLKBSZSET:
      return 0;
    case BLKFLSBUF:
    case BLKRRPART:
      return RefreshDisk(open.node, request);
    default:
      return Fail(ENOTTY);
  }
}

// Each drive hangs on a host adapter of its own, with the number of its node.
int HostNumber(const OpenNode& open) { return std::atoi(open.node.drive->Name().c_str() + 2); }

void PutAddress(const OpenNode& open, sg_scsi_id& address) {
  address = sg_scsi_id{};
  address.host_no = HostNumber(open);
  address.scsi_type = open.node.drive->State().deviceType;
  address.h_cmd_per_lun = 1;
  address.d_queue_depth = 1;
}

// What SCSI_IOCTL_GET_IDLUN fills; no header of the kernel's declares it.
struct IdLun {
  std::uint32_t address;  // target, LUN, channel and host, a byte each
  std::uint32_t hostUniqueId;
};

void PutAddress(const OpenNode& open, IdLun& address) {
  address = {static_cast<std::uint32_t>(HostNumber(open)) << 24,
             static_cast<std::uint32_t>(HostNumber(open))};
}

}  // namespace

std::shared_ptr<void> ClaimDisk(const Fleet& fleet, const Node& node) {
  const auto block = fleet.DiskOf(node);
  if (IsMounted(fleet.Root(), block)) return nullptr;
  const auto path = fleet.Root() + "/drives/" + block + ".claim";
  const int file = Libc().open64(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (file < 0 || flock(file, LOCK_EX | LOCK_NB) != 0) {
    if (file >= 0) Libc().close(file);
    return nullptr;
  }
  return {new int(file), [](int* held) {
            Libc().close(*held);
            delete held;
          }};
}

void Register(int descriptor, OpenNode open) {
  if (!InRange(descriptor)) return;
  delete openNodes[static_cast<std::size_t>(descriptor)].exchange(new OpenNode(std::move(open)));
}

void Forget(int descriptor) {
  if (!InRange(descriptor)) return;
  auto& slot = openNodes[static_cast<std::size_t>(descriptor)];
  if (slot.load(std::memory_order_relaxed) != nullptr) delete slot.exchange(nullptr);
}

OpenNode* FindOpen(int descriptor) {
  if (!InRange(descriptor)) return nullptr;
  return openNodes[static_cast<std::size_t>(descriptor)].load(std::memory_order_acquire);
}

void Duplicate(int from, int to) {
  Forget(to);
  if (const auto* open = FindOpen(from)) Register(to, *open);
}

int NodeIoctl(OpenNode& open, unsigned long request, void* argument) {
  if (request == NVME_IOCTL_ID) return NvmeIoctl(open, request, argument);
  if (argument == nullptr && request != BLKFLSBUF && request != BLKRRPART &&
      request != NVME_IOCTL_RESET && request != NVME_IOCTL_RESCAN) {
    return Fail(EFAULT);
  }
  switch (request) {
    case SG_IO:
      return SgIo(open, *static_cast<sg_io_hdr*>(argument));
    case SG_GET_VERSION_NUM:
      if (open.node.drive->State().kind == Kind::Nvme) return Fail(ENOTTY);
      *static_cast<int*>(argument) = kSgVersion;
      return 0;
    case SG_GET_TIMEOUT:
      return 6000;
    case SG_SET_TIMEOUT:
    case SG_SET_RESERVED_SIZE:
    case SG_SET_FORCE_PACK_ID:
      return 0;
    case SG_GET_RESERVED_SIZE:
      *static_cast<int*>(argument) = 32768;
      return 0;
    case SG_GET_SCSI_ID:
      PutAddress(open, *static_cast<sg_scsi_id*>(argument));
      return 0;
    case kScsiGetIdLun:
      PutAddress(open, *static_cast<IdLun*>(argument));
      return 0;
    case kScsiGetBusNumber:
      *static_cast<int*>(argument) = HostNumber(open);
      return 0;
    case SG_EMULATED_HOST:
      *static_cast<int*>(argument) = open.node.drive->State().kind == Kind::Ata ? 1 : 0;
      return 0;
    default:
      break;
  }
  if (open.node.block) {
    const int result = BlockIoctl(open, request, argument);
    const bool isOther = result != 0 && errno == ENOTTY;
    if (!isOther || open.node.drive->State().kind != Kind::Nvme) return result;
  }
  return open.node.drive->State().kind == Kind::Nvme ? NvmeIoctl(open, request, argument)
                                                     : Fail(ENOTTY);
}

namespace {

// How the memory of a direct transfer lies (queue/dma_alignment).
std::uintptr_t AlignmentOf(const OpenNode& open) {
  return open.node.drive->State().kind == Kind::Ata ? 512 : 4;
}

ssize_t MoveRaw(OpenNode& open, std::uint8_t opcode, void* data, size_t size,
                std::uint64_t offset) {
  const bool isWrite = opcode == 'W';
  if (!open.node.block) {
    return Fail(open.node.drive->State().kind == Kind::Nvme ? EINVAL : ESPIPE);
  }
  if (isWrite && !open.writable) return Fail(EBADF);
  const auto disk = SizeOf(open);
  const auto address = reinterpret_cast<std::uintptr_t>(data);
  if (open.direct &&
      (offset % disk.sector != 0 || size % disk.sector != 0 || address % AlignmentOf(open) != 0)) {
    return Fail(EINVAL);
  }
  if (offset >= disk.bytes || size == 0) return isWrite && size != 0 ? Fail(ENOSPC) : 0;
  RawCommand command{};
  command.opcode = opcode;
  command.direct = open.direct;
  std::memcpy(command.offset, &offset, sizeof offset);
  Transaction transaction;
  transaction.ioctl = Ioctl::Raw;
  transaction.command = reinterpret_cast<const std::uint8_t*>(&command);
  transaction.commandLength = sizeof command;
  transaction.direction = isWrite ? Direction::ToDevice : Direction::FromDevice;
  transaction.data = static_cast<std::uint8_t*>(data);
  transaction.length = static_cast<std::uint32_t>(
      std::min<std::uint64_t>({size, disk.bytes - offset, kMaxTransfer}));
  transaction.requested = transaction.length;
  transaction.nsid = open.node.nsid;
  auto& state = open.node.drive->State();
  open.node.drive->Execute(transaction);
  if (transaction.errorNumber != 0) return Fail(transaction.errorNumber);
  std::atomic_ref<std::uint64_t>(isWrite ? state.rawWrites : state.rawReads)
      .fetch_add(1, std::memory_order_relaxed);
  std::atomic_ref<std::uint64_t>(state.rawBytes)
      .fetch_add(transaction.transferred, std::memory_order_relaxed);
  return static_cast<ssize_t>(transaction.transferred);
}

// The SG interface's form before version 3 (<scsi/sg.h>, struct sg_header): the command stands
// behind the header, its length by its group code (SPC-4, 4.2.5.1).
ssize_t WriteOldHeader(OpenNode& open, const std::uint8_t* bytes, size_t size) {
  constexpr std::uint8_t kLengths[] = {6, 10, 10, 12, 16, 12, 10, 10};
  constexpr size_t kHeader = 36;
  static_assert(sizeof(sg_header) == kHeader);
  if (size < kHeader + 6) return Fail(EIO);
  std::array<std::uint8_t, 16> command{};
  const auto* data = bytes + kHeader;
  const size_t length = std::min<size_t>(kLengths[data[0] >> 5], size - kHeader);
  std::memcpy(command.data(), data, length);
  std::vector<std::uint8_t> out(data + length, bytes + size);
  sg_io_hdr header{};
  header.interface_id = 'S';
  header.cmdp = command.data();
  header.cmd_len = kLengths[data[0] >> 5];
  header.dxfer_direction = out.empty() ? SG_DXFER_NONE : SG_DXFER_TO_DEV;
  header.dxfer_len = static_cast<unsigned>(out.size());
  header.dxferp = out.data();
  return SgIo(open, header) == 0 ? static_cast<ssize_t>(size) : -1;
}

}  // namespace

ssize_t NodeWrite(OpenNode& open, const void* header, size_t size) {
  if (open.node.drive->State().kind == Kind::Nvme) return Fail(EINVAL);
  const auto* data = static_cast<const std::uint8_t*>(header);
  int second = 0;  // a direction, below 0, in version 3; before it the length of the reply
  if (size >= 2 * sizeof second) std::memcpy(&second, data + sizeof second, sizeof second);
  if (second >= 0) return WriteOldHeader(open, data, size);
  if (size < sizeof(sg_io_hdr)) return Fail(EINVAL);
  sg_io_hdr copy;
  std::memcpy(&copy, header, sizeof copy);
  if (SgIo(open, copy) != 0) return -1;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(&copy);
  open.reply.assign(bytes, bytes + sizeof copy);
  return static_cast<ssize_t>(sizeof copy);
}

ssize_t NodeRead(OpenNode& open, void* header, size_t size) {
  if (open.node.drive->State().kind == Kind::Nvme) return Fail(EINVAL);
  if (open.reply.empty()) return Fail(EAGAIN);
  if (size < open.reply.size()) return Fail(EINVAL);
  std::memcpy(header, open.reply.data(), open.reply.size());
  const auto read = static_cast<ssize_t>(open.reply.size());
  open.reply.clear();
  return read;
}

ssize_t RawRead(OpenNode& open, void* data, size_t size, std::uint64_t offset) {
  return MoveRaw(open, 'R', data, size, offset);
}

ssize_t RawWrite(OpenNode& open, const void* data, size_t size, std::uint64_t offset) {
  return MoveRaw(open, 'W', const_cast<void*>(data), size, offset);
}

}  // namespace Simulator
