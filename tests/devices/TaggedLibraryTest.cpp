// Tagged shared objects: what passes, and what a single wrong byte does.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "devices/system/TaggedLibrary.h"
#include "frame/Files.h"

namespace Morvu::DeviceManagement {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes MakeBytes(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
  return bytes;
}

class TaggedLibraryTest : public testing::Test {
 protected:
  TaggedLibraryTest()
      : folder_(std::filesystem::path(testing::TempDir()) /
                ("tagged-" + std::to_string(::getpid()))) {
    std::filesystem::create_directories(folder_);
  }
  ~TaggedLibraryTest() override { std::filesystem::remove_all(folder_); }

  std::string Path(const std::string& name) const { return (folder_ / name).string(); }

  std::string Save(const Bytes& bytes, const std::string& name = "plain.so") const {
    EXPECT_TRUE(SaveBinary(Path(name), bytes, false));
    return Path(name);
  }

  // A tagged file of a body of `size` bytes.
  Bytes Sign(std::size_t size) const {
    const auto plain = Save(MakeBytes(size));
    EXPECT_TRUE(SignLibrary(plain));
    return ReadFileBytes(GetTaggedPath(plain)).value();
  }

  std::ptrdiff_t CountFiles() const {
    return std::distance(std::filesystem::directory_iterator(folder_), {});
  }
  bool Verifies(const Bytes& bytes) const { return VerifyLibrary(Save(bytes, "changed.so")); }

 private:
  std::filesystem::path folder_;
};

TEST_F(TaggedLibraryTest, SignedFilesVerifyAtEveryLength) {
  constexpr std::size_t kPiece = 64 * 1024;
  for (const std::size_t size : {std::size_t{1}, std::size_t{15}, std::size_t{16}, std::size_t{17},
                                 kPiece - 1, kPiece, kPiece + 1, 2 * kPiece + 16}) {
    SCOPED_TRACE(size);
    const auto tagged = Sign(size);
    const auto padded = (size + 15) / 16 * 16;
    ASSERT_EQ(padded + kTrailerSize, tagged.size());
    // The object is there in plain, with zeros behind it.
    auto body = MakeBytes(size);
    body.resize(padded);
    EXPECT_TRUE(std::equal(body.begin(), body.end(), tagged.begin()));
    EXPECT_TRUE(Verifies(tagged));
  }
}

TEST_F(TaggedLibraryTest, EveryByteCounts) {
  const auto tagged = Sign(20);
  for (std::size_t at = 0; at < tagged.size(); ++at) {
    auto changed = tagged;
    changed[at] ^= static_cast<std::uint8_t>(1u << at % 8);
    ASSERT_FALSE(Verifies(changed)) << "byte " << at;
  }
}

TEST_F(TaggedLibraryTest, CutAndLengthenedFilesFail) {
  const auto tagged = Sign(32);
  for (std::size_t size = 0; size < tagged.size(); ++size) {
    ASSERT_FALSE(Verifies({tagged.begin(), tagged.begin() + static_cast<std::ptrdiff_t>(size)}))
        << size;
  }
  for (const std::size_t more : {1, 16, 80}) {
    auto longer = tagged;
    longer.resize(longer.size() + more);
    EXPECT_FALSE(Verifies(longer)) << more;
  }
  // The smallest lengths that are a trailer alone, and one byte more.
  EXPECT_FALSE(Verifies(MakeBytes(80)));
  EXPECT_FALSE(Verifies(MakeBytes(81)));
  EXPECT_FALSE(Verifies(MakeBytes(96)));
}

TEST_F(TaggedLibraryTest, TagsDifferFromOneSigningToTheNext) { EXPECT_NE(Sign(64), Sign(64)); }

TEST_F(TaggedLibraryTest, WhatIsNoFileFailsAtOnce) {
  EXPECT_FALSE(VerifyLibrary(Path("absent")));
  EXPECT_FALSE(VerifyLibrary(Path("")));
  ASSERT_EQ(0, mkfifo(Path("pipe").c_str(), 0600));
  EXPECT_FALSE(VerifyLibrary(Path("pipe")));
  EXPECT_FALSE(VerifyLibrary(""));
  EXPECT_FALSE(SignLibrary(Path("absent")));
  EXPECT_FALSE(SignLibrary(Save({}, "empty")));
  EXPECT_FALSE(std::filesystem::exists(GetTaggedPath(Path("empty"))));
}

// No file of this process grows beyond the limit, as on a disk that is full.
class FullDisk {
 public:
  explicit FullDisk(rlim_t limit) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit now{limit, before_.rlim_max};
    handler_ = std::signal(SIGXFSZ, SIG_IGN);
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &now), 0);
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }

 private:
  rlimit before_{};
  void (*handler_)(int);
};

TEST_F(TaggedLibraryTest, AFullDiskLeavesTheEarlierCopyAndNothingElse) {
  const auto plain = Save(MakeBytes(100'000));
  ASSERT_TRUE(SignLibrary(plain));
  const auto earlier = ReadFileBytes(GetTaggedPath(plain));
  {
    const FullDisk disk(50'000);
    EXPECT_FALSE(SignLibrary(plain));
    EXPECT_FALSE(SignLibrary(plain, Path("out.so")));
  }
  EXPECT_EQ(ReadFileBytes(GetTaggedPath(plain)), earlier);
  EXPECT_EQ(CountFiles(), 2);
}

TEST_F(TaggedLibraryTest, ACopyWithANameOfItsOwnTouchesNoOther) {
  const auto plain = Save(MakeBytes(1000));
  const auto other = Save(MakeBytes(7), "modified_plain.so");
  const auto out = Path("out.so");
  Save(MakeBytes(9), "out.so");
  ASSERT_TRUE(SignLibrary(plain, out));
  EXPECT_TRUE(VerifyLibrary(out));
  EXPECT_EQ(ReadFileBytes(other), MakeBytes(7));
  EXPECT_EQ(CountFiles(), 3);
  // Over itself, too.
  ASSERT_TRUE(SignLibrary(plain, plain));
  EXPECT_TRUE(VerifyLibrary(plain));
}

// Made by OpenSSL: enc -aes-256-cbc -nopad, and dgst -sha3-512 of what came out. It pins the
// key as well: modules that were tagged stay so.
TEST_F(TaggedLibraryTest, AKnownTagVerifies) {
  const std::string text = "A tagged library of 36 bytes, padded";
  Bytes file(text.begin(), text.end());
  file.resize(48);
  for (int i = 0; i < 16; ++i) file.push_back(static_cast<std::uint8_t>(0xA0 + i));
  // clang-format off
  constexpr std::uint8_t kTag[] = {
      0x04, 0xd6, 0x9d, 0x36, 0x07, 0x7b, 0x67, 0x0f, 0x88, 0xc4, 0x4c, 0xdf, 0x77, 0xc4, 0x2f, 0xb2,
      0x00, 0x66, 0xac, 0x67, 0xef, 0x44, 0x1f, 0xb9, 0x37, 0x0d, 0xda, 0x92, 0xda, 0x43, 0x2c, 0xb5,
      0xdc, 0xf5, 0xef, 0xa0, 0xe7, 0xf1, 0x8b, 0x46, 0x8a, 0x6b, 0x33, 0xac, 0x48, 0x61, 0x66, 0x2c,
      0x28, 0x13, 0xe7, 0xbf, 0xf0, 0xbe, 0xe2, 0xb3, 0x0d, 0xd1, 0x1e, 0x95, 0x64, 0x1e, 0x5d, 0xa9,
  };
  // clang-format on
  file.insert(file.end(), std::begin(kTag), std::end(kTag));
  EXPECT_TRUE(Verifies(file));
  ASSERT_EQ(file.size(), 48u + kTrailerSize);
}

TEST_F(TaggedLibraryTest, FindsTheFirstThatVerifies) {
  const auto bad = Save(MakeBytes(200), "bad.so");
  const auto good = Save(Sign(100), "good.so");
  const auto also = Save(Sign(120), "also.so");
  EXPECT_EQ(good, FindVerified(std::vector{Path("absent"), bad, good, also}));
  EXPECT_EQ("", FindVerified(std::vector{Path("absent"), bad}));
  EXPECT_EQ("", FindVerified({}));
}

}  // namespace
}  // namespace Morvu::DeviceManagement
