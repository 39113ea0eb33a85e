// Where a firmware update takes its mapping and its images from.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <cerrno>

#include "frame/Files.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "operations/firmware/AttributeCollection.h"
#include "operations/firmware/FirmwareModule.h"
#include "operations/firmware/FirmwareUpdate.h"

namespace Morvu {

namespace fs = boost::filesystem;

namespace {

// More than a drive takes, and less than a machine's memory.
constexpr std::uint64_t kLargestImage = 256 * 1024 * 1024;

bool IsRegular(const fs::path& path) {
  boost::system::error_code error;
  return fs::status(path, error).type() == fs::regular_file;
}

// The regular files of a directory in the order in which it yields them.
std::vector<std::string> ListFiles(const std::string& directory) {
  std::vector<std::string> files;
  boost::system::error_code error;
  if (!fs::is_directory(directory, error)) return files;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    if (IsRegular(entry->path())) files.push_back(entry->path().string());
  }
  return files;
}

// A file without data is told by its size, a folder by what it is: reading either gives no error.
std::string DescribeImageFault(const std::string& path) {
  struct stat told {};
  if (stat(path.c_str(), &told) != 0) return DescribeFileError(errno);
  if (S_ISDIR(told.st_mode)) return DescribeFileError(EISDIR);
  if (!S_ISREG(told.st_mode)) return "It is no regular file.";
  if (told.st_size == 0) return "It is empty.";
  if (static_cast<std::uint64_t>(told.st_size) > kLargestImage) {
    return "It is larger than " + std::to_string(kLargestImage >> 20) + " MiB.";
  }
  const bool mayRead = faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) == 0;
  return mayRead ? std::string() : DescribeFileError(errno);
}

FirmwareUpdate::FirmwareBinary ReadImage(const std::string& path) {
  if (!IsRegular(path) || GetFileSize(path).value_or(0) > kLargestImage) return {};
  return ReadFileBytes(path).value_or(FirmwareUpdate::FirmwareBinary());
}

FirmwareUpdate::AttributeCollection WithStatus(std::uint64_t status) {
  FirmwareUpdate::AttributeCollection mapping;
  mapping.Add(DeviceProperty(FirmwareMapping::Status, status));
  return mapping;
}

}  // namespace

// What the modules that were looked at so far have led to.
struct FirmwareUpdate::Search {
  std::string request;
  std::optional<AttributeCollection> best;
  std::uint64_t bestDate = 0;
};

FirmwareUpdate::AttributeCollection FirmwareUpdate::GetTargetMappingAttributes(
    const AttributeCollection& attributes) {
  std::optional<AttributeCollection> mapping;
  if (source_ == Source::Embedded && embeddedMapping_) mapping = embeddedMapping_(attributes);
  if (source_ == Source::Module) mapping = GetTargetMappingAttributesFromModules(attributes);
  if (mapping) return *std::move(mapping);
  MORVU_LOG(kLogDebug, "GetTargetMappingAttributes", "No mapping found (module or embedded).");
  return WithStatus(FirmwareMapping::kUnknownDrive);
}

std::optional<FirmwareUpdate::AttributeCollection>
FirmwareUpdate::GetTargetMappingAttributesFromModules(const AttributeCollection& attributes) {
  Search search{WriteAttributeCollection(attributes), {}, 0};
  module_.reset();
  for (const auto& directory : moduleDirectories_) {
    MORVU_LOG(kLogDebug, "GetTargetMappingAttributesFromModules", "Module Dir = " + directory);
    for (const auto& path : ListFiles(directory)) ConsiderModule(path, search);
  }
  return std::move(search.best);
}

void FirmwareUpdate::ConsiderModule(const std::string& path, Search& search) {
  const auto log = [](LogLevel level, std::string_view text, const std::string& detail = {}) {
    MORVU_LOG(level, "GetTargetMappingAttributesFromModules", std::string(text) + detail);
  };
  log(kLogDebug, "Firmware Module path: ", path);
  const auto module = modules_->Open(path);
  if (!module || !module->CanMap()) return;
  // A module that says nothing of this drive still tells that it is known.
  if (!search.best) search.best = WithStatus(0);
  log(kLogDebug, "Found module: ", path);

  if (module->GetType() != moduleType_) return;
  log(kLogDebug, "Module type matches requested type");
  const auto audience = module->GetTargetAudience();
  if (!audience) return;
  log(kLogDebug, "Module audience: ", *audience);
  if (!audience_.empty() && audience_ != *audience) return;
  log(kLogDebug, "Audiences are a match. Proceeding.");

  const auto date = module->GetDate().value_or(0);
  const auto reply = module->GetTargetFirmwareMappingAttributes(search.request);
  if (!reply) return;
  auto mapping = ReadAttributeCollection(*reply);
  if (!mapping || !ReadVerdict(*mapping) || date <= search.bestDate) return;
  search.best = std::move(mapping);
  search.bestDate = date;
  module_ = module;
  log(kLogInfo, "Found module with build date: ", std::to_string(date));
  log(kLogInfo,
      "Loded firmware update mapping attributes = ", WriteAttributeCollection(*search.best));
}

std::string FirmwareUpdate::FindFileFault() const {
  return source_ == Source::File ? DescribeImageFault(file_) : std::string();
}

std::vector<std::string> FirmwareUpdate::ListFirmwareBinaries() const {
  if (source_ == Source::File) return {file_};
  if (!mapping_.Has(FirmwareMapping::Package)) return {};
  return Split(mapping_.GetString(FirmwareMapping::Package), '~');
}

FirmwareUpdate::FirmwareBinary FirmwareUpdate::GetFirmwareBinary(const std::string& name) const {
  if (source_ == Source::File) {
    auto image = name.empty() ? FirmwareBinary() : ReadImage(name);
    if (image.empty()) return image;
    MORVU_LOG(kLogInfo, "GetFirmwareBinaries", "Loading firmware binary from file: " + name);
    return image;
  }
  MORVU_LOG(kLogInfo, "GetFirmwareBinaries", "Reading firmware binary: " + name);
  if (source_ == Source::Module) return GetTargetFirmwareFromModule(name);
  return embeddedBinary_ ? embeddedBinary_(name) : FirmwareBinary();
}

FirmwareUpdate::FirmwareBinary FirmwareUpdate::GetTargetFirmwareFromModule(
    const std::string& name) const {
  if (module_ == nullptr || !module_->CanSupply()) return {};
  auto image = module_->GetTargetFirmwareBinary(name);
  if (!image) return {};
  MORVU_LOG(kLogInfo, "GetTargetFirmwareFromModule",
            "Retrieved firmware binary. " + std::to_string(image->size()) + " bytes.");
  return *std::move(image);
}

}  // namespace Morvu
