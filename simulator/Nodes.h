// The open nodes of this process: which descriptor leads to which drive, and
// what an ioctl on it does.
#pragma once

#include <sys/types.h>

#include "Fleet.h"

namespace Simulator {

struct OpenNode {
  Node node;
  std::string writtenNode;  // a block node that is open for writing: udev hears of its close
  std::vector<std::uint8_t> reply{};  // of a command that was written, until it is read
  std::shared_ptr<void> claim{};      // of the disk, by an exclusive open
  bool direct = false;                // past the page cache (O_DIRECT)
  bool writable = false;
};

void Register(int descriptor, OpenNode open);
void Forget(int descriptor);
OpenNode* FindOpen(int descriptor);  // null for a descriptor of the system's own
void Duplicate(int from, int to);

// An exclusive open of a block node, which a mount and another one keep off; null then.
std::shared_ptr<void> ClaimDisk(const Fleet& fleet, const Node& node);

// As ioctl(2): -1 with errno, or the result.
int NodeIoctl(OpenNode& open, unsigned long request, void* argument);
// A write or read of a node that is no disk. A generic SCSI node takes what is written for a
// header of the SG interface, the older form of it too, and carries out the command behind it;
// the header comes back by read. A controller takes neither.
ssize_t NodeWrite(OpenNode& open, const void* header, size_t size);
ssize_t NodeRead(OpenNode& open, void* header, size_t size);

// A read or write of a node's bytes at an offset, as pread(2) and pwrite(2).
ssize_t RawRead(OpenNode& open, void* data, size_t size, std::uint64_t offset);
ssize_t RawWrite(OpenNode& open, const void* data, size_t size, std::uint64_t offset);

}  // namespace Simulator
