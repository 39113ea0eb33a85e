#include "messaging/drive_class/RequestCheck.h"

#include <algorithm>
#include <limits>
#include <span>
#include <string_view>
#include <utility>

#include "devices/properties/BasicProperties.h"
#include "devices/properties/ScanProperties.h"
#include "frame/Text.h"
#include "frame/status/Requests.h"
#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/DeviceSelection.h"
#include "messaging/drive_class/MorvuSSD.h"

namespace Morvu {
namespace {

using XmlMessaging::Element;
using XmlMessaging::Message;
using XmlMessaging::Object;
using XmlMessaging::Property;
using WordList = std::span<const std::string_view>;
namespace Properties = DeviceManagement::Properties;

bool Holds(WordList words, std::string_view word) {
  return std::ranges::find(words, word) != words.end();
}

// ---- What may stand in a request ----

constexpr std::string_view kBooleanAttributes[] = {"scan", "includeMethods", "key", "required"};
constexpr std::string_view kDirections[] = {"i", "o", "io"};

// With what a description or a list shows, which a host may send back.
constexpr std::string_view kPropertyAttributes[] = {
    "name",     "displayName", "type",       "value",  "size",  "direction",
    "required", "key",         "powercycle", "status", "detail"};

// By subject. The drive class's properties stand in its table; its unknown names have a code
// of their own.
struct SubjectForm {
  std::string_view subject;
  WordList attributes;
  WordList properties;
};
constexpr std::string_view kAttributes[] = {"subject",        "cimClass", "cimMethod",      "scan",
                                            "includeMethods", "record",   "recordPasswords"};
constexpr std::string_view kJobAttributes[] = {"subject", "cimClass",   "cimMethod",
                                               "scan",    "identifier", "type"};
constexpr std::string_view kSwitches[] = {"Enabled", "scan"};
constexpr std::string_view kClassName[] = {"MorvuSSD"};
constexpr SubjectForm kSubjects[] = {
    {"MorvuJob", kJobAttributes, {}},
    {"Notification", kAttributes, kSwitches},
    {"SMARTAttribute", kAttributes, kClassName},
};

// The Objects that requests have, the first that fits.
struct ObjectForm {
  bool (*fits)(const Object& object);
  WordList attributes;
  bool (*knows)(const Object& object, std::string_view property);  // null: any name
  WordList lists;                                                  // by name or type
};

bool IsMethod(const Object& object) { return object.GetAttribute("type") == "method"; }
bool IsOfClass(const Object& object) { return IsDriveClass(object.GetAttribute("cimClass")); }
template <const std::string_view& Name>
bool IsNamed(const Object& object) {
  return object.GetAttribute("name") == Name;
}

bool IsDriveProperty(const Object&, std::string_view name) {
  return FindDriveProperty(name) != nullptr || name == Properties::DriverCommunicationError.name;
}
bool IsPartitionProperty(const Object&, std::string_view name) {
  constexpr std::string_view kNames[] = {"Path",           "LogicalSize", "FreeSpace", "UsedSpace",
                                         "FreePercentage", "Type",        "Id"};
  return Holds(kNames, name);
}
const MethodParameter* FindParameter(const Object& object, std::string_view name) {
  const auto* row = FindDriveMethod(object.GetAttribute("name"));
  if (row == nullptr) return nullptr;
  const auto& parameters = row->method->parameters;
  const auto found = std::ranges::find(parameters, name, &MethodParameter::name);
  return found == parameters.end() ? nullptr : &*found;
}
bool IsParameter(const Object& object, std::string_view name) {
  return FindParameter(object, name) != nullptr;
}

constexpr std::string_view kShownProperties = "cimProperties", kAdapterPaths = "LSIAdapterPaths",
                           kModuleDirectories = "FirmwareModulesDirectories";
constexpr std::string_view kMethodAttributes[] = {"type",     "name",        "displayName",
                                                  "prompt",   "description", "category",
                                                  "required", "targetType",  "cancelSupported"};
constexpr std::string_view kClassAttributes[] = {"cimClass", "uniqueId", "name", "required",
                                                 "direction"};
constexpr std::string_view kPartitionAttributes[] = {"name", "direction"};
constexpr std::string_view kNameAttribute[] = {"name"};
constexpr std::string_view kMethodLists[] = {"status", "table"};
constexpr std::string_view kClassLists[] = {"Partition", "RAIDMember"};

constexpr ObjectForm kObjects[] = {
    // clang-format off
    {IsMethod,                     kMethodAttributes,    IsParameter,         kMethodLists},
    {IsOfClass,                    kClassAttributes,     IsDriveProperty,     kClassLists},
    {IsNamed<kPartitionName>,      kPartitionAttributes, IsPartitionProperty, {}},
    {IsNamed<kShownProperties>,    kNameAttribute,       IsDriveProperty,     {}},
    {IsNamed<kAdapterPaths>,       kNameAttribute,       nullptr,             {}},
    {IsNamed<kModuleDirectories>,  kNameAttribute,       nullptr,             {}},
    // clang-format on
};

// The largest number of a parameter's type; 0 for a type that is no number.
std::uint64_t LargestOf(std::string_view type) {
  if (type == "uint8") return std::numeric_limits<std::uint8_t>::max();
  if (type == "uint16") return std::numeric_limits<std::uint16_t>::max();
  if (type == "uint32") return std::numeric_limits<std::uint32_t>::max();
  return type == "uint64" ? std::numeric_limits<std::uint64_t>::max() : 0;
}

bool IsOfType(std::string_view type, std::string_view text) {
  if (type == "boolean") return ParseBool(text).has_value();
  const auto largest = LargestOf(type);
  if (largest == 0) return true;
  const auto number = ParseDecimal(text);
  return number && *number <= largest;
}

// ---- The check ----

std::string Quoted(std::string_view text) { return "'" + std::string(text) + "'"; }

std::string DescribeUnknown(const Object& object) {
  std::string text = "Object";
  for (const auto& [key, value] : object.GetAttributes()) text += ' ' + key + "=" + Quoted(value);
  return text;
}

class Checker {
 public:
  explicit Checker(const Message& request) : request_(request) {}

  std::vector<std::string> ListUnread() {
    for (const auto& part : request_.skipped) Note(part.what);
    CheckRoot();
    for (const auto& object : request_.objects) CheckObject(*object);
    for (std::size_t i = 0; i < request_.lists.size(); ++i) Note("List of Message");
    for (std::size_t i = 0; i < request_.subjects.size(); ++i) Note("Subject of Message");
    return std::move(unread_);
  }

 private:
  void Note(std::string what) { unread_.push_back(std::move(what)); }

  void CheckRoot() {
    const auto& name = XmlMessaging::RoutingName(request_);
    const auto* form = std::ranges::find(kSubjects, name, &SubjectForm::subject);
    const bool isKnown = form != std::end(kSubjects);
    CheckAttributes(request_, isKnown ? form->attributes : WordList(kAttributes));
    // A root that names a method by "cimMethod" beside a class runs none.
    const auto& method = request_.GetAttribute("cimMethod");
    if (!method.empty() && method != name) Note("attribute 'cimMethod' of Message");
    for (const auto& property : request_.properties) {
      CheckProperty(*property);
      const auto& key = property->GetAttribute("name");
      if (!IsDriveClass(name) && !(isKnown && Holds(form->properties, key))) {
        Note("Property " + Quoted(key) + " of Message");
      }
    }
  }

  void CheckAttributes(const Element& element, WordList known) {
    for (const auto& [key, value] : element.GetAttributes()) {
      const bool isSound = !value.empty() && Holds(kBooleanAttributes, key)
                               ? ParseBool(value).has_value()
                               : key != "direction" || value.empty() || Holds(kDirections, value);
      if (!Holds(known, key)) {
        Note("attribute " + Quoted(key) + " of " + element.GetName());
      } else if (!isSound) {
        Note("value " + Quoted(value) + " of attribute " + Quoted(key));
      }
    }
  }

  // The value is the text: one that stands in the attribute is lost. A drive's properties as a
  // list shows them have the attribute of their empty catalogue entry.
  void CheckProperty(const Property& property, bool isShown = false) {
    CheckAttributes(property, kPropertyAttributes);
    const auto& value = property.GetAttribute("value");
    const bool isLost = isShown ? property.value.empty() : value != property.value;
    if (!value.empty() && isLost) {
      Note("attribute 'value' of Property " + Quoted(property.GetAttribute("name")));
    }
  }

  void CheckObject(const Object& object) {
    const auto* form =
        std::ranges::find_if(kObjects, [&](const ObjectForm& each) { return each.fits(object); });
    if (form == std::end(kObjects)) {
      Note(DescribeUnknown(object));
      return;
    }
    CheckAttributes(object, form->attributes);
    for (const auto& property : object.properties) {
      CheckProperty(*property, IsOfClass(object));
      const auto& name = property->GetAttribute("name");
      if (form->knows != nullptr && !form->knows(object, name)) {
        Note("Property " + Quoted(name) + " of Object " + Quoted(object.GetAttribute("name")));
      }
    }
    if (IsMethod(object)) CheckParameters(object);
    if (IsOfClass(object)) CheckKeys(object);
    CheckNested(object, *form);
  }

  void CheckParameters(const Object& method) {
    std::vector<std::string_view> names;
    for (const auto& property : method.properties) {
      const auto& name = property->GetAttribute("name");
      const auto* parameter = FindParameter(method, name);
      if (parameter == nullptr) continue;
      if (Holds(names, name)) Note("Property " + Quoted(name) + ", twice");
      names.push_back(name);
      if (!IsOfType(parameter->type, property->value)) {
        Note("value " + Quoted(property->value) + " of " + Quoted(name));
      }
    }
  }

  // A key that is not what it seems selects another drive.
  void CheckKeys(const Object& object) {
    bool hasKey = false;
    for (const auto& property : object.properties) {
      if (ParseBool(property->GetAttribute("key")) != true) continue;
      const auto& name = property->GetAttribute("name");
      const bool isIndex = name == Properties::Index.name;
      if (!isIndex && name != Properties::SerialNumber.name) Note("key " + Quoted(name));
      if (isIndex && !ParseDecimal(property->value)) {
        Note("value " + Quoted(property->value) + " of key 'Index'");
      }
      if (std::exchange(hasKey, true)) Note("key " + Quoted(name) + " behind another");
    }
  }

  // A drive's Object as a list shows it has its methods inside, which run nothing there.
  void CheckNested(const Object& object, const ObjectForm& form) {
    for (const auto& list : object.lists) {
      if (Holds(form.lists, list->GetAttribute("name"))) continue;
      if (!Holds(form.lists, list->GetAttribute("type"))) Note("List of Object");
    }
    for (const auto& nested : object.objects) {
      if (IsOfClass(object) && IsMethod(*nested)) continue;
      Note("Object " + Quoted(nested->GetAttribute("name")) + " of Object");
    }
  }

  const Message& request_;
  std::vector<std::string> unread_;
};

// ---- Requests that change a drive ----

// The method of this name, in whatever letters, that a host must ask its user about.
const DriveMethod* FindGuarded(std::string_view name) {
  const auto methods = GetDriveMethods();
  const auto row = std::ranges::find_if(methods, [&](const DriveMethod& each) {
    return each.method->prompt && IEquals(each.method->name, name);
  });
  return row == methods.end() ? nullptr : &*row;
}

// What a request says of such methods.
struct Mentions {
  bool isAny = false, erases = false;
  std::vector<std::string> misplaced;  // where they name no method to run
};

Mentions FindMentions(const Message& request) {
  Mentions mentions;
  const auto add = [&](std::string_view name, bool isMethod) {
    const auto* row = FindGuarded(name);
    if (row == nullptr) return;
    mentions.isAny = true;
    mentions.erases |= row->feature->destroys;
    if (!isMethod) mentions.misplaced.push_back(Quoted(name) + " where it names no method");
  };
  // Under any attribute: one that is misspelled names a method as well.
  const auto addFrom = [&](const Element& element, bool isMethod) {
    for (const auto& [key, value] : element.GetAttributes()) add(value, isMethod);
  };
  addFrom(request, false);
  for (const auto& object : request.objects) addFrom(*object, IsMethod(*object));
  for (const auto& part : request.skipped) add(part.name, false);
  return mentions;
}

}  // namespace

std::string RequestCheck::GetReason() const {
  if (code == Status::NoDeviceSelected) return "no Object names a drive by its key";
  std::string reason;
  for (const auto& part : unread) reason += (reason.empty() ? "not understood: " : ", ") + part;
  return reason;
}

RequestCheck CheckRequest(const Message& request) {
  RequestCheck check;
  check.unread = Checker(request).ListUnread();
  if (!IsDriveClass(XmlMessaging::RoutingName(request))) return check;
  const auto mentions = FindMentions(request);
  check.unread.insert(check.unread.end(), mentions.misplaced.begin(), mentions.misplaced.end());
  if (!mentions.isAny && request.properties.empty()) return check;
  if (!check.unread.empty()) {
    check.code = Status::InvalidArguments;
  } else if (mentions.erases && !NamesDrive(request)) {
    check.code = Status::NoDeviceSelected;
  }
  return check;
}

}  // namespace Morvu
