#include "devices/system/TaggedLibrary.h"

#include <cryptopp/aes.h>
#include <cryptopp/modes.h>
#include <cryptopp/osrng.h>
#include <cryptopp/secblock.h>
#include <cryptopp/sha3.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/filesystem/path.hpp>
#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include "frame/Bytes.h"
#include "frame/FileHandle.h"
#include "frame/Files.h"
#include "frame/Logger.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::size_t kCipherBlock = CryptoPP::AES::BLOCKSIZE;
static_assert(kVectorSize == kCipherBlock && kTagSize == CryptoPP::SHA3_512::DIGESTSIZE);

// Files go through memory in pieces of whole cipher blocks.
constexpr std::size_t kPiece = 64 * 1024;
static_assert(kPiece % kCipherBlock == 0);

// More is not taken into memory, whatever lies in a folder of modules.
constexpr std::uint64_t kLargestTagged = 512 * 1024 * 1024;

// The key is stored nowhere: each of its bytes is the byte here XOR the key byte
// before it, and the first XOR the seed.
constexpr std::uint8_t kKeySeed = 0x5F;
// clang-format off
constexpr std::uint8_t kKeyTable[] = {
    0xC3, 0x0A, 0x58, 0x85, 0x01, 0x8B, 0x46, 0x6F, 0x2E, 0x12, 0x27, 0x84, 0xAE, 0xF7, 0xD9, 0x1F,
    0xF5, 0x9C, 0xD7, 0xA9, 0xE5, 0x55, 0x90, 0x11, 0x25, 0xD6, 0x08, 0x14, 0x6E, 0x07, 0x6E, 0xEB,
};
// clang-format on
static_assert(std::size(kKeyTable) == CryptoPP::AES::MAX_KEYLENGTH);

// Wipes itself when it is released.
using KeyBlock = CryptoPP::SecByteBlock;

KeyBlock BuildKey() {
  KeyBlock key(std::size(kKeyTable));
  std::uint8_t previous = kKeySeed;
  for (std::size_t i = 0; i < key.size(); ++i) previous = key[i] = kKeyTable[i] ^ previous;
  return key;
}

using Vector = std::array<std::uint8_t, kVectorSize>;
using Tag = std::array<std::uint8_t, kTagSize>;

// Makes the tag of a body that passes by in pieces of whole cipher blocks.
class Tagger {
 public:
  Tagger(const KeyBlock& key, const Vector& vector)
      : cipher_(key.data(), key.size(), vector.data()) {}

  // The piece is enciphered in place.
  void Add(ByteSpan piece) {
    cipher_.ProcessData(piece.data(), piece.data(), piece.size());
    digest_.Update(piece.data(), piece.size());
  }

  Tag Finish() {
    Tag tag;
    digest_.Final(tag.data());
    return tag;
  }

 private:
  CryptoPP::CBC_Mode<CryptoPP::AES>::Encryption cipher_;
  CryptoPP::SHA3_512 digest_;
};

class TaggedFile : public FileHandle {
 public:
  explicit TaggedFile(FileHandle handle) : FileHandle(std::move(handle)) {}

  // The size of a regular file; 0 for all else, which a read could wait on for ever.
  std::uint64_t GetSize() const {
    struct stat told {};
    if (!IsOpen() || fstat(Get(), &told) != 0 || !S_ISREG(told.st_mode)) return 0;
    return static_cast<std::uint64_t>(told.st_size);
  }
  bool Read(std::uint64_t offset, ByteSpan bytes) const {
    while (!bytes.empty()) {
      const auto count = pread(Get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return false;
      bytes = bytes.subspan(static_cast<std::size_t>(count));
      offset += static_cast<std::uint64_t>(count);
    }
    return true;
  }
};

// A pipe's open waits for a writer, were it not for O_NONBLOCK.
TaggedFile OpenToRead(const std::string& path) {
  return TaggedFile(OpenFile(path, O_RDONLY | O_NONBLOCK | O_NOCTTY));
}

std::size_t PieceSize(std::uint64_t left) {
  return static_cast<std::size_t>(std::min<std::uint64_t>(left, kPiece));
}

// Hands the first `size` bytes of the file over, piece by piece.
template <typename Take>
bool ReadPieces(const TaggedFile& file, std::uint64_t size, Take take) {
  std::vector<std::uint8_t> buffer(kPiece);
  for (std::uint64_t done = 0; done < size;) {
    const auto piece = ByteSpan(buffer).first(PieceSize(size - done));
    if (!file.Read(done, piece) || !take(piece)) return false;
    done += piece.size();
  }
  return true;
}

bool HasGoodTag(const TaggedFile& file) {
  const auto size = file.GetSize();
  if (size <= kTrailerSize) return false;
  const auto body = size - kTrailerSize;
  if (body % kCipherBlock != 0) return false;  // no cipher text of this length
  Vector vector;
  Tag stored;
  if (!file.Read(body, vector) || !file.Read(body + kVectorSize, stored)) return false;

  Tagger tagger(BuildKey(), vector);
  const auto add = [&](ByteSpan piece) {
    tagger.Add(piece);
    return true;
  };
  if (!ReadPieces(file, body, add)) return false;
  const auto tag = tagger.Finish();
  return CryptoPP::VerifyBufsEqual(tag.data(), stored.data(), tag.size());
}

// A file in memory. A kernel that lets no program run from one by its mode (Linux 6.3) still
// lets libraries be mapped from it; older ones do not know the flag.
int MakeMemoryFile() {
  constexpr unsigned kNoExecution = 0x0008;  // MFD_NOEXEC_SEAL
  const int handle = memfd_create(kTaggedCopyName, MFD_CLOEXEC | MFD_ALLOW_SEALING | kNoExecution);
  if (handle >= 0 || errno != EINVAL) return handle;
  return memfd_create(kTaggedCopyName, MFD_CLOEXEC | MFD_ALLOW_SEALING);
}

// Copies the file to where nobody can change it any more.
bool CopySealed(const TaggedFile& from, const TaggedFile& to) {
  const auto size = from.GetSize();
  if (size <= kTrailerSize || size > kLargestTagged || !to.IsOpen()) return false;
  std::uint64_t copied = 0;
  const auto append = [&](ByteSpan piece) {
    const bool isWritten = WriteWhole(to, piece, copied);
    copied += piece.size();
    return isWritten;
  };
  return ReadPieces(from, size, append) &&
         fcntl(to.Get(), F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) ==
             0;
}

std::string PathOf(const TaggedFile& file) { return "/proc/self/fd/" + std::to_string(file.Get()); }

// The loader knows an object by its path first. One that stays loaded for ever, as unique
// symbols make it, would be taken for the next one with its descriptor's number.
bool TakeUnusedNumber(TaggedFile& file) {
  while (void* other = dlopen(PathOf(file).c_str(), RTLD_LAZY | RTLD_NOLOAD)) {
    dlclose(other);
    FileHandle next(fcntl(file.Get(), F_DUPFD_CLOEXEC, file.Get() + 1));
    if (!next.IsOpen()) return false;
    file = TaggedFile(std::move(next));
  }
  return true;
}

Vector DrawVector(const KeyBlock& key) {
  CryptoPP::AutoSeededX917RNG<CryptoPP::AES> random;
  random.IncorporateEntropy(key.data(), key.size());
  Vector vector;
  random.GenerateBlock(vector.data(), vector.size());
  return vector;
}

// The object as it is, padded, with its trailer.
std::vector<std::uint8_t> MakeTagged(std::vector<std::uint8_t> bytes) {
  bytes.resize((bytes.size() + kCipherBlock - 1) / kCipherBlock * kCipherBlock);
  const auto key = BuildKey();
  const auto vector = DrawVector(key);
  Tagger tagger(key, vector);
  std::vector<std::uint8_t> piece;
  for (std::size_t at = 0; at < bytes.size(); at += piece.size()) {
    const auto from = ByteView(bytes).subspan(at, PieceSize(bytes.size() - at));
    piece.assign(from.begin(), from.end());
    tagger.Add(piece);
  }
  const auto tag = tagger.Finish();
  bytes.insert(bytes.end(), vector.begin(), vector.end());
  bytes.insert(bytes.end(), tag.begin(), tag.end());
  return bytes;
}

}  // namespace

bool VerifyLibrary(const std::string& path) { return HasGoodTag(OpenToRead(path)); }

Library LoadTaggedLibrary(const std::string& path) {
  const auto copy = std::make_shared<TaggedFile>(FileHandle(MakeMemoryFile()));
  if (!CopySealed(OpenToRead(path), *copy) || !HasGoodTag(*copy)) return nullptr;
  MORVU_LOG(kLogDebug, "LoadTaggedLibrary", "Verify successful.");
  if (!TakeUnusedNumber(*copy)) return nullptr;
  auto library = LoadLibrary(PathOf(*copy));
  if (library == nullptr) return nullptr;
  // The descriptor is the loaded object's name: no other file may get its number.
  return Library(library.get(), [copy, library](void*) mutable { library.reset(); });
}

std::string FindVerified(std::span<const std::string> paths) {
  const auto found = std::ranges::find_if(paths, VerifyLibrary);
  return found == paths.end() ? std::string() : *found;
}

std::string GetTaggedPath(const std::string& path) {
  const boost::filesystem::path library(path);
  const auto directory = library.has_parent_path() ? library.parent_path() : ".";
  return directory.string() + "/modified_" + library.filename().string();
}

bool SignLibrary(const std::string& path) { return SignLibrary(path, GetTaggedPath(path)); }

bool SignLibrary(const std::string& path, const std::string& tagged) {
  if (OpenToRead(path).GetSize() == 0) return false;
  auto bytes = ReadFileBytes(path);
  if (!bytes || bytes->empty()) return false;
  try {
    return SaveBinary(tagged, MakeTagged(*std::move(bytes)), false);
  } catch (const CryptoPP::Exception&) {
    return false;  // the system gave no random numbers
  }
}

}  // namespace Morvu::DeviceManagement
