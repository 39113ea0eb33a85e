// A RAID controller's library that lies: its answers are the input. The first two bytes say which
// of the questions about drives and volumes fail, the third how many commands each drive ends, the
// next two how many bytes the answers to these have. They are the same for each drive, as drives
// are asked in any order. The rest are the answers about drives and volumes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "AnsweringPath.h"
#include "devices/commands/LsiLibrary.h"
#include "devices/discovery/Adapter_Generic.h"
#include "devices/discovery/Adapter_LSI.h"
#include "devices/model/ScanOptions.h"
#include "devices/properties/BasicProperties.h"

namespace {

using namespace Morvu;
using namespace Morvu::DeviceManagement;
using Morvu::Fuzz::Require;

bool IsCall(const LibRequest& request, const LibCall& call) {
  return request.group == call.group && request.command == call.command;
}

class LyingLibrary {
 public:
  void Begin(std::uint16_t failures, std::uint8_t commands, ByteView answers, ByteView lists) {
    failures_ = failures;
    commands_ = commands;
    answers_ = answers;
    lists_ = lists;
    drives_.clear();
    isVolumeUnknown_ = false;
  }
  // A question about volumes was not answered.
  bool IsVolumeUnknown() const { return isVolumeUnknown_; }

  bool Answer(const LibRequest& request) {
    const std::lock_guard lock(mutex_);
    const ByteSpan block(static_cast<std::uint8_t*>(request.block), request.length);
    if (IsCall(request, LibCalls::Begin) || IsCall(request, LibCalls::End)) return true;
    if (request.group == LibCalls::Ata.group) return AnswerDrive(request.device, block);
    const bool fails = (failures_ & 1) != 0;
    failures_ = static_cast<std::uint16_t>(failures_ >> 1);
    if (fails && !IsCall(request, LibCalls::Drives)) isVolumeUnknown_ = true;
    Give(lists_, block);
    return !fails;
  }

 private:
  struct DriveAnswers {
    unsigned count = 0;
    ByteView answers;
  };

  bool AnswerDrive(std::uint16_t device, ByteSpan block) {
    auto& drive = drives_.try_emplace(device, DriveAnswers{0, answers_}).first->second;
    Give(drive.answers, block);
    return drive.count++ < commands_;
  }
  static void Give(ByteView& from, ByteSpan block) {
    const auto given = from.first(std::min(from.size(), block.size()));
    std::ranges::copy(given, block.begin());
    from = from.subspan(given.size());
  }

  std::mutex mutex_;  // guards what follows: drives are asked side by side
  std::uint16_t failures_ = 0;
  std::uint8_t commands_ = 0;
  ByteView answers_, lists_;
  std::map<std::uint16_t, DriveAnswers> drives_;
  bool isVolumeUnknown_ = false;
};

LyingLibrary library;

void CheckDrives(const Adapter_LSI& adapter) {
  std::set<std::string> paths;
  for (const auto& drive : adapter.GetDrives()) {
    const auto path = drive->GetString(Properties::DevicePath);
    Require(path.starts_with("LSI_0_") && paths.insert(path).second);
    // Who was not asked about is a member.
    Require(drive->GetBool(Properties::RAIDMember) || !library.IsVolumeUnknown());
  }
}

}  // namespace

// The tagged library looks for it in the program.
extern "C" __attribute__((visibility("default"))) int morvu_simulator_adapter_call(void* request) {
  return library.Answer(*static_cast<const LibRequest*>(request)) ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kHead = 5;
  const ByteView input(data, size);
  if (size < kHead) return 0;
  static const LsiLibrary held(MORVU_ADAPTER_LIBRARY);  // verified once
  Require(held.IsLoaded());
  ScanOptions options;
  options.identify = true;
  options.lsiLibraryPaths = {MORVU_ADAPTER_LIBRARY};
  const SystemFacts facts;
  const auto rest = input.subspan(kHead);
  const auto ofDrives = std::min<std::size_t>(ReadLittle16(input, 3), rest.size());
  library.Begin(ReadLittle16(input, 0), input[2], rest.first(ofDrives), rest.subspan(ofDrives));

  Adapter_LSI adapter(MORVU_ADAPTER_LIBRARY, 0);
  adapter.ScanDrives(options, facts);
  CheckDrives(adapter);
  Adapter_Generic_Linux generic;
  adapter.TakeDisks(generic, options, facts);
  CheckDrives(adapter);
  return 0;
}
