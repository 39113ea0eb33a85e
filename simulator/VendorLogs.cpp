#include "VendorLogs.h"

#include "Bytes.h"

namespace Simulator {

namespace {

constexpr std::size_t kHeader = 52, kEntry = 20, kOuterHeader = 4096;

void Append(std::vector<std::uint8_t>& image, std::uint32_t word) {
  image.resize(image.size() + 4);
  PutLittle(&image[image.size() - 4], word);
}

void PutWord(std::vector<std::uint8_t>& image, std::size_t word, std::size_t value) {
  PutLittle(&image[word * 4], static_cast<std::uint32_t>(value));
}

}  // namespace

void PutEventBlock(std::uint32_t number, std::uint8_t* block) {
  PutLittle(block, number);
  PutLittle(block + 508, ~number);
}

std::vector<std::uint8_t> MakeNlog(std::span<const NlogEntry> entries) {
  std::vector<std::uint8_t> image(kHeader);
  for (const auto& entry : entries) {
    Append(image, 0x474F4C4E);  // Name
    Append(image, entry.num);
    Append(image, 0x20000000);  // BufPtr
    Append(image, entry.words);
    Append(image, 0);  // Config
    for (std::uint32_t i = 0; i < entry.words; ++i) {
      Append(image, entry.num << 16 | i);
    }
  }
  PutLittle<std::uint16_t>(&image[0], 1);  // VersionMajor
  PutLittle(&image[4], static_cast<std::uint32_t>(entries.size()));
  PutLittle(&image[8], static_cast<std::uint32_t>(image.size() - kEntry));  // TotalBytes
  PutLittle(&image[12], static_cast<std::uint32_t>(kHeader));
  PutLittle<std::uint16_t>(&image[16], 1);  // TimestampVersionMajor
  return image;
}

std::vector<std::uint8_t> MakeNvmeNlog(std::span<const std::vector<std::uint8_t>> images) {
  std::vector<std::uint8_t> whole(kOuterHeader);
  PutWord(whole, 1, kOuterHeader / 4);
  PutWord(whole, 3, images.size());
  for (std::size_t i = 0; i < images.size(); ++i) {
    PutWord(whole, 4 + i, images[i].size() / 4);
    PutWord(whole, 6 + i, whole.size() / 4);
    whole.insert(whole.end(), images[i].begin(), images[i].end());
  }
  PutWord(whole, 2, whole.size() / 4);
  return whole;
}

const std::vector<std::uint8_t>& BuiltInNlog() {
  static constexpr NlogEntry kEntries[] = {{1, 64},  {5, 256}, {4, 16},  {6, 0},
                                           {13, 40}, {20, 90}, {21, 12}, {22, 128}};
  static const auto& image = *new auto(MakeNlog(kEntries));
  return image;
}

const std::vector<std::uint8_t>& BuiltInNvmeNlog() {
  static const auto& image = *new auto([] {
    static constexpr NlogEntry kSecond[] = {{2, 32}, {7, 1500}, {19, 200}};
    const std::vector<std::uint8_t> images[] = {BuiltInNlog(), MakeNlog(kSecond)};
    return MakeNvmeNlog(images);
  }());
  return image;
}

const std::vector<std::uint8_t>& BuiltInNvmeEventLog() {
  static const auto& image = *new auto([] {
    std::vector<std::uint8_t> log(10'000);
    for (std::size_t at = kOuterHeader; at < log.size(); at += 4) PutWord(log, at / 4, at);
    PutWord(log, 2, log.size() / 4);
    return log;
  }());
  return image;
}

}  // namespace Simulator
