// Tagged shared objects: what passes, and what a single wrong byte does.
#include <gtest/gtest.h>
#include <sys/stat.h>

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

TEST_F(TaggedLibraryTest, FullDiskLeavesNoHalfCopy) {
  const auto plain = Save(MakeBytes(100000));
  std::filesystem::create_symlink("/dev/full", GetTaggedPath(plain));
  EXPECT_FALSE(SignLibrary(plain));
  EXPECT_FALSE(std::filesystem::is_symlink(GetTaggedPath(plain)));
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
