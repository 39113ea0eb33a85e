// A firmware module that does what stands behind it in its own file: lines of KEY=VALUE,
// between two marks. Without them it is a good module with nothing to say.
//
//   type=N audience=TEXT date=N   what it tells of itself
//   mapping=XML                   its answer; without it the mapping fails
//   binary.NAME=PATH              the image of that name
//   EXPORT.result=N               the export's result, without an answer
//   EXPORT.needs=N                the first answer is 141 with this size
//   EXPORT.always=1               and the second one too
//   EXPORT.size=N                 the size that it tells on success, whatever it wrote
//   EXPORT.unterminated=1         the buffer is filled, without a NUL
//   EXPORT.throws=1
//
// EXPORT is audience, mapping or binary, and for throws also type and date.
#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>

#include "ModuleSettings.h"
#include "morvu/firmware_module.h"

namespace {

using Settings = std::map<std::string, std::string>;

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

Settings ReadSettings() {
  Dl_info info{};
  Settings settings;
  if (dladdr(reinterpret_cast<void*>(&ReadSettings), &info) == 0) return settings;
  const auto file = ReadFile(info.dli_fname);
  const auto begin = file.rfind(kSettingsBegin);
  const auto end = file.rfind(kSettingsEnd);
  if (begin == file.npos || end == file.npos || end < begin) return settings;
  std::istringstream in(file.substr(begin, end - begin));
  for (std::string line; std::getline(in, line);) {
    const auto mark = line.find('=');
    if (mark != line.npos) settings[line.substr(0, mark)] = line.substr(mark + 1);
  }
  return settings;
}

bool Has(const Settings& settings, const std::string& key) { return settings.count(key) != 0; }

std::uint64_t Number(const Settings& settings, const std::string& key) {
  return Has(settings, key) ? std::strtoull(settings.at(key).c_str(), nullptr, 0) : 0;
}

void ThrowIfTold(const Settings& settings, const std::string& what) {
  if (Has(settings, what + ".throws")) throw std::runtime_error(what);
}

[[maybe_unused]] std::int32_t Answer(const Settings& settings, const std::string& what,
                                     const std::string& content, void* buffer,
                                     std::uint32_t* size) {
  ThrowIfTold(settings, what);
  if (Has(settings, what + ".result")) {
    return static_cast<std::int32_t>(Number(settings, what + ".result"));
  }
  const auto given = *size;
  // The first call is the one with the size that the library begins with.
  if (Has(settings, what + ".needs") && (given == 1024 || Has(settings, what + ".always"))) {
    *size = static_cast<std::uint32_t>(Number(settings, what + ".needs"));
    return 141;
  }
  if (Has(settings, what + ".unterminated")) {
    std::memset(buffer, 'x', given);
    return 0;
  }
  *size = static_cast<std::uint32_t>(content.size());
  if (content.size() > given) return 141;
  std::memcpy(buffer, content.data(), content.size());
  if (Has(settings, what + ".size")) {
    *size = static_cast<std::uint32_t>(Number(settings, what + ".size"));
  }
  return 0;
}

[[maybe_unused]] std::string Terminated(std::string text) { return text.append(1, '\0'); }

}  // namespace

// The build makes one module that lacks each of the exports.
#ifndef WITHOUT_Load
int32_t Load(void) { std::abort(); }
#endif
#ifndef WITHOUT_Unload
void Unload(void) { std::abort(); }
#endif

#ifndef WITHOUT_GetType
int32_t GetType(void) {
  const auto settings = ReadSettings();
  ThrowIfTold(settings, "type");
  return static_cast<std::int32_t>(Number(settings, "type"));
}
#endif

#ifndef WITHOUT_GetDate
uint64_t GetDate(void) {
  const auto settings = ReadSettings();
  ThrowIfTold(settings, "date");
  return Number(settings, "date");
}
#endif

#ifndef WITHOUT_GetTargetAudience
int32_t GetTargetAudience(char* buffer, uint32_t* size) {
  const auto settings = ReadSettings();
  const auto text = Has(settings, "audience") ? settings.at("audience") : "";
  return Answer(settings, "audience", Terminated(text), buffer, size);
}
#endif

#ifndef WITHOUT_GetTargetFirmwareMappingAttributes
int32_t GetTargetFirmwareMappingAttributes(const char* request, uint32_t length, char* buffer,
                                           uint32_t* size) {
  const auto settings = ReadSettings();
  if (Has(settings, "request")) std::ofstream(settings.at("request")).write(request, length);
  if (std::strlen(request) != length) return 5;
  if (!Has(settings, "mapping") && !Has(settings, "mapping.throws")) return 5;
  const auto text = Has(settings, "mapping") ? settings.at("mapping") : "";
  return Answer(settings, "mapping", Terminated(text), buffer, size);
}
#endif

#ifndef WITHOUT_GetTargetFirmwareBinary
int32_t GetTargetFirmwareBinary(const char* name, uint32_t length, uint8_t* buffer,
                                uint32_t* size) {
  const auto settings = ReadSettings();
  const auto key = "binary." + std::string(name, length);
  if (!Has(settings, key)) return 5;
  return Answer(settings, "binary", ReadFile(settings.at(key)), buffer, size);
}
#endif
