// The disk behind a device's node, for reads and writes of its bytes past the page cache.
//
// Bytes move by block nodes alone. A generic SCSI node takes what is written to it for a command
// of its own interface, which the drive carries out; a controller's has no bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "frame/Bytes.h"
#include "frame/FileHandle.h"
#include "frame/StatusCode.h"

namespace Morvu::DeviceManagement {

enum class Transfer { Read, Write };

class TransferDisk {
 public:
  // The block node that the kernel shows for the device behind `devicePath`; opened for reading
  // unless it is to be written. `serialNumber` is the drive's that is meant; empty when it has
  // none.
  TransferDisk(const std::string& devicePath, std::string_view serialNumber, Transfer access);

  // 0; 118 for a device without a block node; 4 when it cannot be opened, the kernel could not
  // be asked, or has another drive there.
  StatusCode GetStatus() const { return status_; }
  int GetHandle() const { return handle_.Get(); }  // -1 while closed
  const std::string& GetPath() const { return path_; }

 private:
  StatusCode Open(const std::string& devicePath, std::string_view serialNumber, Transfer access);

  std::string path_;
  FileHandle handle_;
  bool isDirect_ = true;
  StatusCode status_;

  friend StatusCode TransferFile(const TransferDisk&, Transfer, std::uint64_t, ByteSpan);
};

// One transfer of `data` as a whole, and waits for it: 0; 4 on a closed disk; 141 for no data; 82
// when the drive could not read the medium; -errno when the transfer was lost on the way; 129 when
// it ended short. Several threads may transfer at a time.
StatusCode TransferFile(const TransferDisk& disk, Transfer direction, std::uint64_t offset,
                        ByteSpan data);

}  // namespace Morvu::DeviceManagement
