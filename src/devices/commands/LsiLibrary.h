// The library of an LSI RAID controller's vendor. It is a tagged shared object, loaded once
// however many hold it: by the first, which verifies it, and until the last lets go.
#pragma once

#include <string>

#include "devices/commands/LsiCalls.h"

namespace Morvu::DeviceManagement {

inline constexpr std::string_view kLsiLibraryName = "libLSI.AdapterAPI.so.4.02";

// The one symbol that is looked up: 0 is success.
using LibEntry = int (*)(LibRequest* request);

// One hold on a loaded library. Any thread may make one and call by it. No lock is held during
// a call but the first and the last one of a library, which nobody else can be in.
class LsiLibrary {
 public:
  LsiLibrary() = default;
  // Loads the library, or joins those who hold it.
  explicit LsiLibrary(std::string path);
  LsiLibrary(LsiLibrary&& other) noexcept;
  LsiLibrary& operator=(LsiLibrary&& other) noexcept;
  ~LsiLibrary();

  bool IsLoaded() const { return handle_ != nullptr; }
  const std::string& GetPath() const { return path_; }
  // False when the library failed it; what stands in the block then is to be doubted.
  [[nodiscard]] bool Call(const LibCall& call, const LibTarget& target, LibBlock& block) const;

 private:
  // Null for a file that is no such library: one that does not verify, cannot be loaded, lacks
  // the symbol or fails its first call.
  static void* LoadLibrary(const std::string& path);
  static void UnloadLibrary(void* handle);
  static LibEntry GetEntry(void* handle);

  std::string path_;
  void* handle_ = nullptr;
  LibEntry entry_ = nullptr;
};

}  // namespace Morvu::DeviceManagement
