#include "devices/commands/LsiLibrary.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

#include "devices/system/TaggedLibrary.h"
#include "frame/BlockedSignals.h"
#include "frame/Logger.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr char kEntryName[] = "ProcessLibCommand";

struct LoadedLibrary {
  Library object;
  LibEntry entry = nullptr;
  std::uint32_t references = 0;
};

struct LoadedLibraries {
  std::mutex mutex;  // guards the one below
  std::map<std::string, LoadedLibrary> byPath;

  // The place of a handle that LoadLibrary gave.
  auto Find(void* handle) {
    return std::ranges::find_if(
        byPath, [&](const auto& entry) { return entry.second.object.get() == handle; });
  }
};

LoadedLibraries& GetLoaded() {
  static auto& loaded = *new LoadedLibraries;  // jobs use it while the process ends
  return loaded;
}

bool CallEntry(LibEntry entry, const LibCall& call, const LibTarget& target, ByteSpan block) {
  LibRequest request;
  request.group = call.group;
  request.command = call.command;
  request.controller = target.controller;
  request.volume = target.volume;
  request.device = target.device;
  request.length = static_cast<std::uint32_t>(block.size());
  request.block = block.empty() ? nullptr : block.data();
  const BlockedSignals blocked;
  return entry(&request) == 0;
}

bool Begin(LibEntry entry) {
  LibBlock block(LibCalls::Begin);
  return CallEntry(entry, LibCalls::Begin, {}, block.GetBytes());
}

}  // namespace

std::vector<ByteView> LibBlock::GetRecords(const BlockList& list) const {
  std::vector<ByteView> records;
  const auto claimed = Get(kListCount);
  const auto room = bytes_.size() < list.first ? 0 : (bytes_.size() - list.first) / list.stride;
  const auto count = std::min({claimed, std::uint64_t{room}, std::uint64_t{list.most}});
  for (std::size_t i = 0; i < count; ++i) {
    records.push_back(ByteView(bytes_).subspan(list.first + i * list.stride, list.stride));
  }
  return records;
}

void* LsiLibrary::LoadLibrary(const std::string& path) {
  auto& loaded = GetLoaded();
  const std::lock_guard lock(loaded.mutex);
  if (const auto held = loaded.byPath.find(path); held != loaded.byPath.end()) {
    ++held->second.references;
    return held->second.object.get();
  }
  auto library = LoadTaggedLibrary(path);
  if (library == nullptr) return nullptr;
  MORVU_LOG(kLogInfo, "LoadLibrary", "Verified " + path);
  const auto entry = reinterpret_cast<LibEntry>(GetSymbol(library, kEntryName));
  if (entry == nullptr || !Begin(entry)) return nullptr;
  return loaded.byPath.emplace(path, LoadedLibrary{std::move(library), entry, 1})
      .first->second.object.get();
}

void LsiLibrary::UnloadLibrary(void* handle) {
  auto& loaded = GetLoaded();
  const std::lock_guard lock(loaded.mutex);
  const auto held = loaded.Find(handle);
  if (held == loaded.byPath.end() || --held->second.references > 0) return;
  (void)CallEntry(held->second.entry, LibCalls::End, {}, {});
  loaded.byPath.erase(held);
}

LibEntry LsiLibrary::GetEntry(void* handle) {
  auto& loaded = GetLoaded();
  const std::lock_guard lock(loaded.mutex);
  const auto held = loaded.Find(handle);
  return held == loaded.byPath.end() ? nullptr : held->second.entry;
}

LsiLibrary::LsiLibrary(std::string path) : path_(std::move(path)) {
  handle_ = LoadLibrary(path_);
  if (handle_ != nullptr) entry_ = GetEntry(handle_);
}

LsiLibrary::LsiLibrary(LsiLibrary&& other) noexcept
    : path_(std::move(other.path_)),
      handle_(std::exchange(other.handle_, nullptr)),
      entry_(other.entry_) {}

LsiLibrary& LsiLibrary::operator=(LsiLibrary&& other) noexcept {
  std::swap(path_, other.path_);
  std::swap(handle_, other.handle_);
  std::swap(entry_, other.entry_);
  return *this;
}

LsiLibrary::~LsiLibrary() {
  if (handle_ != nullptr) UnloadLibrary(handle_);
}

bool LsiLibrary::Call(const LibCall& call, const LibTarget& target, LibBlock& block) const {
  return IsLoaded() && CallEntry(entry_, call, target, block.GetBytes());
}

}  // namespace Morvu::DeviceManagement
