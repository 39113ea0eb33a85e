// The open block node of a whole disk, and what the kernel does on it. The lock is flock(2)'s,
// at which udev looks too: it reads no disk that somebody has locked for himself.
#pragma once

#include <string>

#include "frame/FileHandle.h"

namespace Morvu::DeviceManagement {

class BlockNode {
 public:
  enum class Access {
    Plain,
    Exclusive,  // O_EXCL: refused (EBUSY) while a file system, swap or another device has the disk
  };
  // Read-only: the close of a writer makes udev read the disk anew.
  BlockNode(std::string path, Access access);

  bool IsOpen() const { return handle_.IsOpen(); }
  int GetOpenError() const { return openError_; }  // errno; 0 when it is open
  int GetHandle() const { return handle_.Get(); }
  const std::string& GetPath() const { return path_; }

  enum class Lock {
    Taken,
    Shared,  // others read, as udev does for moments
    Owned,   // somebody has it for himself
    Failed,  // the system could not be asked
  };
  // Does not wait. The lock goes with the node.
  Lock TryLock(bool shared) const;

  // Each gives 0 or errno.
  int Flush() const;             // writes what is buffered for the node, and forgets it
  int RereadPartitions() const;  // EBUSY while a partition is open

 private:
  Lock FindOwner() const;

  std::string path_;
  FileHandle handle_;
  int openError_ = 0;
};

}  // namespace Morvu::DeviceManagement
