// The exports of a firmware module, for the drives in its table. The images are of the
// kind that simulated drives take; a module for real drives holds theirs in their place.
#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include "FirmwareTable.h"
#include "morvu/firmware_module.h"
#include "morvu/status_codes.h"

namespace {

using Tree = boost::property_tree::ptree;

// The value of one of the drive's properties; empty when it has none of this name.
std::string FindProperty(const Tree& collection, const std::string& name) {
  for (const auto& [tag, property] : collection) {
    if (tag == "Property" && property.get("<xmlattr>.name", "") == name) {
      return property.get("<xmlattr>.value", "");
    }
  }
  return {};
}

const FirmwareRow* FindRow(std::string_view model) {
  const auto found = std::ranges::find_if(
      kFirmwareTable.rows, [&](const auto& row) { return model.starts_with(row.modelPrefix); });
  return found == kFirmwareTable.rows.end() ? nullptr : &*found;
}

void AddAttribute(Tree& collection, const char* name, const char* type, const std::string& value) {
  Tree& attributes = collection.add("Property", "").add("<xmlattr>", "");
  attributes.put("name", name);
  attributes.put("type", type);
  attributes.put("value", value);
}

std::string DescribeMapping(std::string_view request) {
  Tree document;
  std::istringstream in{std::string(request)};
  read_xml(in, document);
  const auto& drive = document.get_child("Object");

  Tree reply;
  Tree& collection = reply.add("Object", "");
  collection.put("<xmlattr>.name", "attributeCollection");
  if (const auto* row = FindRow(FindProperty(drive, "ModelNumber"))) {
    const bool current = FindProperty(drive, "Firmware") >= row->destination;
    std::string package;
    for (const auto image : row->images) {
      if (!package.empty()) package += '~';
      package += image;
    }
    AddAttribute(collection, "Status", "uint64", current ? "0" : "1");
    AddAttribute(collection, "Destination", "string", std::string(row->destination));
    AddAttribute(collection, "Package", "vector_string", package);
  }
  std::ostringstream out;
  write_xml(out, reply);
  return out.str();
}

bool HasImage(std::string_view name) {
  return std::ranges::any_of(kFirmwareTable.rows, [&](const auto& row) {
    return std::ranges::find(row.images, name) != row.images.end();
  });
}

// A mark, the revision, the size in bytes as a little-endian number, and content.
std::vector<std::uint8_t> MakeImage(std::string_view revision) {
  constexpr std::string_view kMark = "MorvuSimFirmware";
  constexpr std::size_t kRevisionSize = 8;
  std::string head(kMark);
  head.append(revision).resize(kMark.size() + kRevisionSize, ' ');
  for (int shift = 0; shift < 32; shift += 8) {
    head += static_cast<char>(kFirmwareTable.imageSize >> shift & 0xFF);
  }
  std::vector<std::uint8_t> image(kFirmwareTable.imageSize);
  for (std::size_t i = 0; i < image.size(); ++i) image[i] = static_cast<std::uint8_t>(i * i >> 8);
  std::ranges::copy(head, image.begin());
  return image;
}

// The rule of every answer: it goes out when it fits; otherwise its size does.
template <typename Content>
int32_t Answer(const Content& content, void* buffer, uint32_t* size) {
  const auto given = *size;
  *size = static_cast<uint32_t>(content.size());
  if (*size > given) return MORVU_STATUS_BUFFER_TOO_SMALL;
  std::ranges::copy(content, static_cast<typename Content::value_type*>(buffer));
  return MORVU_STATUS_COMPLETED;
}

// The NUL is part of a text.
int32_t AnswerText(std::string_view text, char* buffer, uint32_t* size) {
  std::string terminated(text);
  terminated.push_back('\0');
  return Answer(terminated, buffer, size);
}

}  // namespace

int32_t Load(void) { return MORVU_STATUS_COMPLETED; }

void Unload(void) {}

int32_t GetType(void) { return 0; }

uint64_t GetDate(void) { return kFirmwareTable.date; }

int32_t GetTargetAudience(char* buffer, uint32_t* size) {
  return AnswerText(kFirmwareTable.audience, buffer, size);
}

int32_t GetTargetFirmwareMappingAttributes(const char* request, uint32_t length, char* buffer,
                                           uint32_t* size) {
  try {
    return AnswerText(DescribeMapping({request, length}), buffer, size);
  } catch (const std::exception&) {
    return MORVU_STATUS_INVALID_ARGUMENTS;  // no request of ours, or no memory
  }
}

int32_t GetTargetFirmwareBinary(const char* name, uint32_t length, uint8_t* buffer,
                                uint32_t* size) {
  try {
    const std::string_view image(name, length);
    if (!HasImage(image)) return MORVU_STATUS_FILE_NOT_READ;
    return Answer(MakeImage(image), buffer, size);
  } catch (const std::exception&) {
    return MORVU_STATUS_FILE_NOT_READ;
  }
}
