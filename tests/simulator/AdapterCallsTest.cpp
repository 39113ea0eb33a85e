// The vendor's library of a fleet's RAID controllers is strict: one wrong byte refuses a call, and
// leaves its block as it was.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "AdapterCalls.h"
#include "TestFleet.h"

extern "C" int morvu_simulator_adapter_call(void* request);

namespace Simulator {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct AdapterCase {
  std::uint8_t group, command;
  std::uint32_t length;
  std::vector<std::pair<std::size_t, std::uint8_t>> head;  // bytes of the block
  std::size_t headSize;                                    // where each byte is looked at
};

// Room behind the block for a length that lies.
constexpr std::size_t kSpare = 512;

struct AdapterRequest {
  explicit AdapterRequest(const AdapterCase& call) : block(call.length + kSpare) {
    bytes[0] = call.group;
    bytes[1] = call.command;
    std::memcpy(bytes + 28, &call.length, 4);
    for (const auto& [at, value] : call.head) block[at] = value;
    hasBlock = call.length != 0;
  }
  int Send() {
    auto* address = hasBlock ? block.data() : nullptr;
    alignas(8) std::uint8_t request[32 + sizeof address];
    std::memcpy(request, bytes, 32);
    std::memcpy(request + 32, &address, sizeof address);
    return morvu_simulator_adapter_call(request);
  }
  std::uint8_t bytes[32] = {};
  Bytes block;
  bool hasBlock = true;
};

TEST(AdapterCalls, AreRefusedForEachWrongByte) {
  TestFleet fleet;
  const int controller = fleet.AddController();
  fleet.Add({.serial = "BTWL1", .sectors = 64, .controller = controller});
  fleet.AddVolume({"LSI_0_0"});
  const AdapterCase kBegin{0, 0, 68, {}, 68}, kEnd{0, 9, 0, {}, 0};
  const AdapterCase kCases[] = {
      {0, 3, 19, {{16, '/'}, {17, 'a'}}, 16},
      {1, 4, 6152, {}, 6152},
      {1, 12, 9220, {}, 9220},
      {3, 11, 516, {}, 516},
      // IDENTIFY DEVICE by DMA flags would be another command: PIO, 512 bytes in.
      {6,
       2,
       60 + 512,
       {{2, 2}, {4, 20}, {8, 17}, {20, 0x27}, {21, 0x80}, {22, 0xEC}, {37, 2}},
       60 + 512},
      // INQUIRY of 96 bytes.
      {6, 1, 64 + 96, {{2, 2}, {3, 6}, {12, 0x12}, {16, 96}, {60, 96}}, 12},
  };
  EXPECT_EQ(AdapterRequest(kCases[1]).Send(), 1) << "before the begin";
  ASSERT_EQ(AdapterRequest(kBegin).Send(), 0);
  EXPECT_EQ(AdapterRequest(kBegin).Send(), 1) << "twice";
  for (const auto& call : kCases) {
    SCOPED_TRACE(std::to_string(call.group) + "/" + std::to_string(call.command));
    EXPECT_EQ(AdapterRequest(call).Send(), 0);
    constexpr std::size_t kLengthLow = 28;  // the bytes above it would ask for megabytes
    for (std::size_t at = 0; at <= kLengthLow; ++at) {
      AdapterRequest wrong(call);
      wrong.bytes[at] ^= 0x40;
      const auto before = wrong.block;
      EXPECT_EQ(wrong.Send(), 1) << "byte " << at << " of the request";
      EXPECT_EQ(wrong.block, before);
    }
    // Of the frame only its mark and its end are the library's business.
    constexpr std::size_t kCommand = 22, kFrameEnd = 34;
    for (std::size_t at = 0; at < call.headSize; at += at < 64 ? 1 : 61) {
      if (call.group == 6 && at >= kCommand && at < kFrameEnd) continue;
      AdapterRequest wrong(call);
      wrong.block[at] ^= 0x40;
      const auto before = wrong.block;
      EXPECT_EQ(wrong.Send(), 1) << "byte " << at << " of the block";
      EXPECT_EQ(wrong.block, before);
    }
  }
  EXPECT_EQ(AdapterRequest(kEnd).Send(), 0);
  EXPECT_EQ(AdapterRequest(kEnd).Send(), 1);
  EXPECT_EQ(GetAdapterRecord().begun, GetAdapterRecord().ended);
}

}  // namespace
}  // namespace Simulator
