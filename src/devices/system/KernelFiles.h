// What the kernel tells in folders, links and small files. Nothing (nullopt) means that it
// could not be asked; it never means that there is nothing.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "frame/FileHandle.h"

namespace Morvu::DeviceManagement {

// The names in a folder, by their bytes. A folder that does not exist has none.
std::optional<std::vector<std::string>> ListFolder(const std::string& path);
// Those in an open folder, whose descriptor stays the caller's.
std::optional<std::vector<std::string>> ListFolderAt(int folder);

// Where a symbolic link leads, as it is written there.
std::optional<std::string> ReadLink(const std::string& path);

// A folder whose links and attributes are read one after the other: they are found from
// where it stands, and not from the root.
class KernelFolder {
 public:
  explicit KernelFolder(const std::string& path);

  // Where a link in it leads; nothing, with errno, where it could not be asked.
  std::optional<std::string> ReadLinkOf(const std::string& name) const;
  // The text of an attribute, to 4 KiB, without blanks and line feeds at its ends; empty
  // where it could not be read.
  std::string ReadAttributeOf(const std::string& name) const;

 private:
  FileHandle handle_;
};

// The whole of a small file, to 1 MiB. Nothing for a file that does not exist.
std::optional<std::string> ReadKernelFile(const std::string& path);

// The same without blanks and line feeds at its ends; empty where it could not be read.
std::string ReadAttribute(const std::string& path);

}  // namespace Morvu::DeviceManagement
