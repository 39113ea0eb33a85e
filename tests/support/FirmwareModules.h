// Firmware modules for a test: a folder of tagged copies of the test module, each with
// the settings that tests/modules/TestModule.cpp tells.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "devices/system/TaggedLibrary.h"
#include "frame/Files.h"
#include "modules/ModuleSettings.h"
#include "support/SimulatedImage.h"

namespace Morvu::Testing {

// The XML of a mapping.
inline std::string MakeMapping(const std::string& status, const std::string& package = "",
                               const std::string& destination = "") {
  const auto attribute = [](const char* name, const char* type, const std::string& value) {
    if (value.empty()) return std::string();
    return "<Property name=\"" + std::string(name) + "\" type=\"" + type + "\" value=\"" + value +
           "\"/>";
  };
  return "<Object name=\"attributeCollection\">" + attribute("Status", "uint64", status) +
         attribute("Package", "vector_string", package) +
         attribute("Destination", "string", destination) + "</Object>";
}

class ModuleFolder {
 public:
  ModuleFolder()
      : path_(std::filesystem::path(::testing::TempDir()) /
              ("modules-" + std::to_string(::getpid()))) {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~ModuleFolder() { std::filesystem::remove_all(path_); }
  ModuleFolder(const ModuleFolder&) = delete;
  ModuleFolder& operator=(const ModuleFolder&) = delete;

  std::string Path(const std::string& name = "") const { return (path_ / name).string(); }
  std::vector<std::string> AsDirectories() const { return {Path()}; }

  // A tagged module `name`.so with these settings, one a line.
  std::string Add(const std::string& name, const std::string& settings,
                  const std::string& missing = "Nothing") const {
    const auto plain = std::string(MORVU_TEST_MODULES) + "/Without" + missing + ".so";
    auto bytes = ReadFileBytes(plain).value();
    for (const std::string text : {kSettingsBegin, settings.c_str(), kSettingsEnd}) {
      bytes.insert(bytes.end(), text.begin(), text.end());
    }
    const auto work = AddFile("plain", bytes);
    EXPECT_TRUE(DeviceManagement::SignLibrary(work, Path(name + ".so")));
    std::filesystem::remove(work);
    return Path(name + ".so");
  }

  std::string AddFile(const std::string& name, const ByteVector& bytes) const {
    EXPECT_TRUE(SaveBinary(Path(name), bytes, false));
    return Path(name);
  }

  // Whether a tagged library that was loaded since is still loaded.
  bool IsAnyLoaded() const { return CountLoaded() > loadedBefore_; }

 private:
  // The parts of tagged libraries in this process's memory.
  static std::size_t CountLoaded() {
    std::istringstream maps(ReadFileText("/proc/self/maps"));
    std::size_t count = 0;
    for (std::string line; std::getline(maps, line);) {
      if (line.find(DeviceManagement::kTaggedCopyName) != line.npos) ++count;
    }
    return count;
  }

  std::size_t loadedBefore_ = CountLoaded();
  std::filesystem::path path_;
};

}  // namespace Morvu::Testing
