// Tagged shared objects: a shared object with a trailer that proves its integrity.
//
//   position                 size  content
//   before the trailer       rest  the shared object as it is, padded with zeros to
//                                  whole AES blocks
//   80 bytes from the end      16  initialisation vector
//   64 bytes from the end      64  SHA3-512 of the part before the trailer as AES-256
//                                  in CBC mode enciphers it under that vector
//
// What is on disk stays in plain: the loader ignores what stands behind the object. Only
// what was verified is loaded: a sealed copy in memory, of 512 MiB at most, whatever becomes
// of the file.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "frame/Platform.h"

namespace Morvu::DeviceManagement {

inline constexpr std::size_t kVectorSize = 16;
inline constexpr std::size_t kTagSize = 64;
inline constexpr std::size_t kTrailerSize = kVectorSize + kTagSize;
// What the kernel shows as the name of a copy in memory.
inline constexpr char kTaggedCopyName[] = "morvu-tagged";

// Whether the file is a regular one whose tag is that of its content.
[[nodiscard]] bool VerifyLibrary(const std::string& path);

// The file as a loaded object, if it is a tagged one; else null. The object has the name of
// its copy, not of the file: it does not find its folder by it.
Library LoadTaggedLibrary(const std::string& path);

// The first path that verifies; empty when none does.
std::string FindVerified(std::span<const std::string> paths);

// Writes a tagged copy of a plain library: to `tagged`, or beside it as "modified_" and its
// name. An earlier copy is replaced by the whole new one, or stays as it is: false when a
// read or a write fails.
[[nodiscard]] bool SignLibrary(const std::string& path);
[[nodiscard]] bool SignLibrary(const std::string& path, const std::string& tagged);

// The path of the copy that SignLibrary makes beside a library.
std::string GetTaggedPath(const std::string& path);

}  // namespace Morvu::DeviceManagement
