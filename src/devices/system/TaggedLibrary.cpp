#include "devices/system/TaggedLibrary.h"

#include <cryptopp/aes.h>
#include <cryptopp/modes.h>
#include <cryptopp/osrng.h>
#include <cryptopp/secblock.h>
#include <cryptopp/sha3.h>

#include <algorithm>
#include <array>
#include <boost/filesystem/operations.hpp>
#include <fstream>
#include <vector>

#include "frame/Bytes.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::size_t kCipherBlock = CryptoPP::AES::BLOCKSIZE;
static_assert(kVectorSize == kCipherBlock && kTagSize == CryptoPP::SHA3_512::DIGESTSIZE);

// Files go through memory in pieces of whole cipher blocks.
constexpr std::size_t kPiece = 64 * 1024;
static_assert(kPiece % kCipherBlock == 0);

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

bool Read(std::istream& in, ByteSpan bytes) {
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return static_cast<std::size_t>(in.gcount()) == bytes.size();
}

bool Write(std::ostream& out, ByteView bytes) {
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  return out.good();
}

// The size of a regular file that was opened; 0 for all else, which an open or a read
// could wait on for ever.
std::uint64_t OpenRegular(const std::string& path, std::ifstream& in) {
  boost::system::error_code error;
  if (boost::filesystem::status(path, error).type() != boost::filesystem::regular_file) return 0;
  const auto size = boost::filesystem::file_size(path, error);
  if (error) return 0;
  in.open(path, std::ios::binary);
  return in.is_open() ? size : 0;
}

std::size_t PieceSize(std::uint64_t left) {
  return static_cast<std::size_t>(std::min<std::uint64_t>(left, kPiece));
}

bool ReadTrailer(std::istream& in, std::uint64_t body, Vector& vector, Tag& tag) {
  in.seekg(static_cast<std::streamoff>(body));
  return Read(in, vector) && Read(in, tag) && in.seekg(0).good();
}

Vector DrawVector(const KeyBlock& key) {
  CryptoPP::AutoSeededX917RNG<CryptoPP::AES> random;
  random.IncorporateEntropy(key.data(), key.size());
  Vector vector;
  random.GenerateBlock(vector.data(), vector.size());
  return vector;
}

bool WriteTagged(std::istream& in, std::uint64_t size, std::ostream& out) {
  const auto key = BuildKey();
  const auto vector = DrawVector(key);
  Tagger tagger(key, vector);
  std::vector<std::uint8_t> buffer(kPiece);
  for (auto left = size; left > 0;) {
    const auto length = PieceSize(left);
    const auto padded = (length + kCipherBlock - 1) / kCipherBlock * kCipherBlock;
    const auto piece = ByteSpan(buffer).first(padded);
    if (!Read(in, piece.first(length))) return false;
    std::ranges::fill(piece.subspan(length), std::uint8_t{0});
    if (!Write(out, piece)) return false;
    tagger.Add(piece);
    left -= length;
  }
  return Write(out, vector) && Write(out, tagger.Finish());
}

}  // namespace

bool VerifyLibrary(const std::string& path) {
  std::ifstream in;
  const auto size = OpenRegular(path, in);
  if (size <= kTrailerSize) return false;
  const auto body = size - kTrailerSize;
  if (body % kCipherBlock != 0) return false;  // no cipher text of this length
  Vector vector;
  Tag stored;
  if (!ReadTrailer(in, body, vector, stored)) return false;

  Tagger tagger(BuildKey(), vector);
  std::vector<std::uint8_t> buffer(kPiece);
  for (auto left = body; left > 0;) {
    const auto piece = ByteSpan(buffer).first(PieceSize(left));
    if (!Read(in, piece)) return false;
    tagger.Add(piece);
    left -= piece.size();
  }
  const auto tag = tagger.Finish();
  return CryptoPP::VerifyBufsEqual(tag.data(), stored.data(), tag.size());
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

bool SignLibrary(const std::string& path) {
  std::ifstream in;
  const auto size = OpenRegular(path, in);
  if (size == 0) return false;
  const auto tagged = GetTaggedPath(path);
  std::ofstream out(tagged, std::ios::binary | std::ios::trunc);
  if (!out) return false;
  bool good = false;
  try {
    good = WriteTagged(in, size, out);
  } catch (const CryptoPP::Exception&) {
    // The system gave no random numbers.
  }
  out.close();
  if (good && out) return true;
  boost::system::error_code ignored;
  boost::filesystem::remove(tagged, ignored);
  return false;
}

}  // namespace Morvu::DeviceManagement
