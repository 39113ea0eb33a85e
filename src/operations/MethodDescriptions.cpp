#include "operations/MethodDescriptions.h"

#include <algorithm>
#include <functional>

namespace Morvu {
namespace {

using Parameters = std::span<const MethodParameter>;

constexpr Parameters kNone;
constexpr MethodParameter kFull[] = {{"full", "boolean"}};
constexpr MethodParameter kDelete[] = {{"force", "boolean"}, {"Crypto", "boolean"}};
constexpr MethodParameter kSelfTest[] = {{"SelfTest", "string", true}};
constexpr MethodParameter kOptionalFile[] = {{"file", "string"}};
constexpr MethodParameter kFile[] = {{"file", "string", true}};
constexpr MethodParameter kNvmeLog[] = {{"file", "string", true}, {"LogID", "uint16", true}};
constexpr MethodParameter kSecureErase[] = {{"EnhancedErase", "boolean"}, {"force", "boolean"}};
constexpr MethodParameter kFormat[] = {
    {"SecureEraseSetting", "uint8"}, {"ProtectionInformation", "uint8"},
    {"LBAFormat", "uint8"},          {"ProtectionInformationLocation", "uint8"},
    {"MetadataSetting", "uint8"},    {"force", "boolean"},
};
constexpr MethodParameter kReadLog[] = {
    {"LogAddress", "uint8", true},
    {"PageNum", "uint16", true},
    {"Sectors", "uint16", true},
    {"file", "string", true},
};

struct Description {
  std::string_view method;
  std::string_view text;
};

constexpr Description kDescriptions[] = {
    {"IdentifyParser", "Parse identify device data and save it to a file."},
    {"ReadEventLog", "Read the device's event log binary and save it to a file."},
    {"ReadNlog", "Read the device's nlog binary and save it to a file."},
    {"SecureErase", "blah blah blah secure erase"},
    {"StandbyImmediate", "Issue an ATA Standby immediate command."},
};

// The marks of the table.
constexpr unsigned P = 1;
constexpr unsigned N = 2;
constexpr unsigned S = 4;
constexpr unsigned T = 8;

constexpr MethodDescription MakeRow(std::string_view name, std::string_view displayName,
                                    std::string_view category, std::string_view target,
                                    unsigned marks, Parameters parameters,
                                    std::string_view tableName) {
  const auto* description = std::ranges::find(kDescriptions, name, &Description::method);
  return {.name = name,
          .displayName = displayName,
          .description = description == std::end(kDescriptions) ? "" : description->text,
          .category = category,
          .targetType = target,
          .prompt = (marks & P) != 0,
          .cancelSupported = (marks & N) == 0,
          .parameters = parameters,
          .hasStatus = (marks & S) != 0,
          .hasTable = (marks & T) != 0,
          .tableName = tableName};
}

constexpr MethodDescription kMethods[] = {
#define METHOD(name, displayName, category, target, marks, parameters, tableName) \
  MakeRow(name, displayName, category, target, marks, parameters, tableName),
#include "operations/MethodDescriptions.inc"
#undef METHOD
};
static_assert(std::size(kMethods) == 18);
// Strictly rising.
static_assert(std::ranges::adjacent_find(kMethods, std::ranges::greater_equal{},
                                         &MethodDescription::name) == std::end(kMethods));

}  // namespace

std::span<const MethodDescription> GetMethodDescriptions() { return kMethods; }

const MethodDescription* FindMethodDescription(std::string_view name) {
  const auto* row = std::ranges::lower_bound(kMethods, name, {}, &MethodDescription::name);
  return row == std::end(kMethods) || row->name != name ? nullptr : row;
}

}  // namespace Morvu
