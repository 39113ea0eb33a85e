// I/O commands of a simulated namespace.
#include <cstring>

#include "Bytes.h"
#include "Nvme.h"

namespace Simulator {

namespace {

struct Range {
  std::uint64_t offset, size;
};

// The bytes that the command means; false, and the command failed, when there
// are none such.
bool Decode(NvmeCommand& command, Range& range, bool needsData) {
  const auto* space = command.Namespace();
  if (space == nullptr) {
    command.Fail(kNvmeInvalidNamespace);
    return false;
  }
  const std::uint64_t sector = NvmeSectorSize(*space);
  const auto lba = command.Cdw(10) | static_cast<std::uint64_t>(command.Cdw(11)) << 32;
  const auto blocks = (command.Cdw(12) & 0xFFFF) + 1;
  const auto sectors = space->bytes / sector;
  if (lba >= sectors || blocks > sectors - lba) {
    command.Fail(kNvmeLbaRange);
    return false;
  }
  range = {lba * sector, blocks * sector};
  if (!needsData || command.Data().length >= range.size) return true;
  command.Fail(kNvmeDataTransfer);
  return false;
}

}  // namespace

void NvmeFlush(NvmeCommand& command) {
  if (command.Namespace() == nullptr && command.Nsid() != 0xFFFFFFFF)
    command.Fail(kNvmeInvalidNamespace);
}

void NvmeRead(NvmeCommand& command) {
  Range range{};
  if (!Decode(command, range, true)) return;
  auto& data = command.Data();
  const auto size = static_cast<std::size_t>(range.size);
  if (!command.TheDrive().ReadMedium(command.Nsid(), range.offset, data.data, size))
    return command.Fail(kNvmeUnrecoveredRead);
  data.transferred = static_cast<std::uint32_t>(size);
}

void NvmeWrite(NvmeCommand& command) {
  Range range{};
  if (!Decode(command, range, true)) return;
  auto& data = command.Data();
  const auto size = static_cast<std::size_t>(range.size);
  if (!command.TheDrive().WriteMedium(command.Nsid(), range.offset, data.data, size))
    return command.Fail(kNvmeDataTransfer);
  data.transferred = static_cast<std::uint32_t>(size);
}

void NvmeCompare(NvmeCommand& command) {
  Range range{};
  if (!Decode(command, range, true)) return;
  std::vector<std::uint8_t> held(static_cast<std::size_t>(range.size));
  if (!command.TheDrive().ReadMedium(command.Nsid(), range.offset, held.data(), held.size()))
    return command.Fail(kNvmeDataTransfer);
  if (std::memcmp(held.data(), command.Data().data, held.size()) != 0)
    command.Fail(kNvmeCompareFailure);
}

void NvmeWriteZeroes(NvmeCommand& command) {
  Range range{};
  if (Decode(command, range, false))
    command.TheDrive().DiscardMedium(command.Nsid(), range.offset, range.size);
}

void NvmeDatasetManagement(NvmeCommand& command) {
  const auto* space = command.Namespace();
  if (space == nullptr) return command.Fail(kNvmeInvalidNamespace);
  const auto ranges = (command.Cdw(10) & 0xFF) + 1;
  if (command.Data().length < ranges * 16) return command.Fail(kNvmeDataTransfer);
  if ((command.Cdw(11) & 4) == 0) return;  // hints only
  const std::uint64_t sector = NvmeSectorSize(*space);
  for (std::uint32_t i = 0; i < ranges; ++i) {
    const auto* entry = command.Data().data + 16 * i;
    const std::uint64_t blocks = GetLittle<std::uint32_t>(entry + 4);
    const auto lba = GetLittle<std::uint64_t>(entry + 8);
    if (lba > space->bytes / sector || blocks > space->bytes / sector - lba)
      return command.Fail(kNvmeLbaRange);
    command.TheDrive().DiscardMedium(command.Nsid(), lba * sector, blocks * sector);
  }
}

}  // namespace Simulator
