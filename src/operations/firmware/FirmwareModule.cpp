#include "operations/firmware/FirmwareModule.h"

#include <algorithm>

#include "devices/system/TaggedLibrary.h"
#include "frame/Logger.h"
#include "frame/StatusCode.h"

namespace Morvu {
namespace {

using TypeExport = std::int32_t();
using DateExport = std::uint64_t();
using AudienceExport = std::int32_t(char* buffer, std::uint32_t* size);
using MappingExport = std::int32_t(const char* request, std::uint32_t length, char* buffer,
                                   std::uint32_t* size);
using BinaryExport = std::int32_t(const char* name, std::uint32_t length, std::uint8_t* buffer,
                                  std::uint32_t* size);

constexpr std::uint32_t kFirstSize = 1024;
// Larger answers are not taken, whatever a module says that it needs.
constexpr std::uint32_t kLargestText = 16 * 1024 * 1024;
constexpr std::uint32_t kLargestImage = 256 * 1024 * 1024;

// Calls foreign code, which may throw. What it throws is gone before its library is.
template <typename Call>
auto Guarded(Call call) -> std::optional<decltype(call())> try {
  return call();
} catch (...) {
  MORVU_LOG(kLogError, "Guarded", "A firmware module threw.");
  return {};
}

// An answer, and the buffer that it came in.
struct Answer {
  std::vector<std::uint8_t> buffer;
  std::uint32_t size = 0;
};

// Calls an export by the rule of its buffer: the first 141 tells the size to call it
// again with, a second one is a failure.
template <typename Call>
std::optional<Answer> Fetch(std::uint32_t largest, Call call) {
  Answer answer{std::vector<std::uint8_t>(kFirstSize), kFirstSize};
  const auto ask = [&] { return call(answer.buffer.data(), &answer.size); };
  auto result = Guarded(ask);
  if (result == Status::BufferTooSmall) {
    if (answer.size > largest) return {};
    answer.buffer.assign(std::max(answer.size, kFirstSize), 0);
    result = Guarded(ask);
  }
  if (result != Status::Completed || answer.size > answer.buffer.size()) return {};
  return answer;
}

// The text in the buffer; nothing when it does not end there.
std::optional<std::string> ToText(const std::optional<Answer>& answer) {
  if (!answer) return {};
  const auto end = std::ranges::find(answer->buffer, std::uint8_t{0});
  if (end == answer->buffer.end()) return {};
  return std::string(answer->buffer.begin(), end);
}

}  // namespace

std::optional<FirmwareModule> FirmwareModule::Open(const std::string& path) {
  auto library = DeviceManagement::LoadTaggedLibrary(path);
  if (!library) return {};
  return FirmwareModule(std::move(library));
}

bool FirmwareModule::Exports(std::initializer_list<const char*> names) const {
  return std::ranges::all_of(
      names, [&](const char* name) { return GetSymbol(library_, name) != nullptr; });
}

bool FirmwareModule::CanMap() const {
  return Exports({"Load", "Unload", "GetDate", "GetTargetFirmwareMappingAttributes",
                  "GetTargetAudience", "GetType"});
}

bool FirmwareModule::CanSupply() const {
  return Exports({"Load", "Unload", "GetTargetFirmwareBinary"});
}

std::optional<std::int32_t> FirmwareModule::GetType() const {
  return Guarded(Find<TypeExport>("GetType"));
}

std::optional<std::uint64_t> FirmwareModule::GetDate() const {
  return Guarded(Find<DateExport>("GetDate"));
}

std::optional<std::string> FirmwareModule::GetTargetAudience() const {
  auto* get = Find<AudienceExport>("GetTargetAudience");
  return ToText(Fetch(kLargestText, [&](std::uint8_t* buffer, std::uint32_t* size) {
    return get(reinterpret_cast<char*>(buffer), size);
  }));
}

std::optional<std::string> FirmwareModule::GetTargetFirmwareMappingAttributes(
    const std::string& request) const {
  auto* get = Find<MappingExport>("GetTargetFirmwareMappingAttributes");
  return ToText(Fetch(kLargestText, [&](std::uint8_t* buffer, std::uint32_t* size) {
    return get(request.c_str(), static_cast<std::uint32_t>(request.size()),
               reinterpret_cast<char*>(buffer), size);
  }));
}

std::optional<std::vector<std::uint8_t>> FirmwareModule::GetTargetFirmwareBinary(
    const std::string& name) const {
  auto* get = Find<BinaryExport>("GetTargetFirmwareBinary");
  auto answer = Fetch(kLargestImage, [&](std::uint8_t* buffer, std::uint32_t* size) {
    return get(name.c_str(), static_cast<std::uint32_t>(name.size()), buffer, size);
  });
  if (!answer) return {};
  answer->buffer.resize(answer->size);
  return std::move(answer->buffer);
}

}  // namespace Morvu
