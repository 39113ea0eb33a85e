// The completion for bash, in a bash, over a /sys of the test's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Documentation.h"
#include "Tool.h"
#include "frame/Text.h"
#include "messaging/drive_class/Features.h"

namespace MorvuTool {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

namespace fs = std::filesystem;

class Completion : public ::testing::Test {
 protected:
  Completion() : folder_(::testing::TempDir() + "completion-" + std::to_string(getpid())) {
    AddGeneric("sg0", "0", "SATA1   ");
    AddGeneric("sg1", "5", "CDROM");
    AddGeneric("sg2", "0", "$(touch pwned);");  // hostile
    Write("class/nvme/nvme0/serial", "NVME1               \n");
    for (const auto* name :
         {"sda", "sda1", "sda2", "sdb", "loop0", "nvme0n1", "nvme0n1p1", "dm-0", "md0p1"}) {
      Write("class/block/" + std::string(name) + "/size", "1\n");
    }
    for (const auto* name : {"sda1", "sda2", "nvme0n1p1", "md0p1"}) {
      Write("class/block/" + std::string(name) + "/partition", "1\n");
    }
    std::istringstream in;
    std::ostringstream out;
    const Morvu::QRKCLI cli(Morvu::GetFeatures(), GetToolConfig(), {in, out});
    const auto text = MakeBashCompletion(cli, GetToolConfig(), Morvu::GetFeatures());
    std::ofstream(folder_ + "/completion") << Morvu::ReplaceAll(text, "/sys/", folder_ + "/sys/");
  }
  ~Completion() override { fs::remove_all(folder_); }

  void Write(const std::string& name, const std::string& text) {
    const fs::path path = folder_ + "/sys/" + name;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
  }
  void AddGeneric(const std::string& name, const std::string& type, const std::string& serial) {
    const auto device = "class/scsi_generic/" + name + "/device/";
    Write(device + "type", type + "\n");
    Write(device + "vpd_pg80", std::string("\0\x80\0\x0C", 4) + serial + '\0');
  }

  // What is offered for the last of the words.
  std::vector<std::string> Complete(const std::string& words) {
    const auto script = "cd " + folder_ + "; . ./completion; COMP_WORDS=(morvussd " + words +
                        "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _morvussd; "
                        "((${#COMPREPLY[@]})) && printf '%s\\n' \"${COMPREPLY[@]}\"";
    FILE* pipe = popen(
        ("bash --norc -c '" + Morvu::ReplaceAll(script, "'", "'\\''") + "' 2>&1").c_str(), "r");
    std::string text;
    std::array<char, 4096> block{};
    while (const auto count = fread(block.data(), 1, block.size(), pipe)) {
      text.append(block.data(), count);
    }
    pclose(pipe);
    auto lines = Morvu::Split(text, '\n');
    lines.pop_back();
    return lines;
  }

  std::string folder_;
};

TEST_F(Completion, OffersTheMachinesDrives) {
  EXPECT_THAT(Complete("-drive_serial ''"), ElementsAre("SATA1", "NVME1"));
  EXPECT_THAT(Complete("-drive_serial NV"), ElementsAre("NVME1"));
  EXPECT_THAT(Complete("-drive_index ''"), ElementsAre("0", "1", "2"));
  EXPECT_THAT(Complete("-drive_letter ''"), ElementsAre("nvme0n1p1", "sda1", "sda2"));
  EXPECT_THAT(Complete("-drive_letter /dev/s"), ElementsAre("/dev/sda1", "/dev/sda2"));
  EXPECT_THAT(Complete("-drive_path ''"),
              ElementsAre("/dev/sg0", "/dev/sg2", "/dev/nvme0n1", "/dev/sda", "/dev/sdb"));
  EXPECT_FALSE(fs::exists(folder_ + "/pwned"));
}

TEST_F(Completion, OffersTheWordsOfAnOption) {
  EXPECT_THAT(Complete("-drive_index 0 -self_test ''"),
              ElementsAre("short", "extended", "conveyance", "status"));
  EXPECT_THAT(Complete("-self_test short c"), ElementsAre("captive", "captiveOffline"));
  EXPECT_THAT(Complete("-sanitize b"), ElementsAre("block"));
  EXPECT_THAT(Complete("-sanitize block x"), IsEmpty());
}

TEST_F(Completion, OffersOptionsAndFiles) {
  EXPECT_THAT(Complete("-drive_s"), ElementsAre("-drive_serial"));
  EXPECT_THAT(Complete("-self_test short ''"), Contains("-force"));
  EXPECT_THAT(Complete("-firmware_module_audience ''"), IsEmpty());
  EXPECT_THAT(Complete("-log comp"), ElementsAre("completion"));
  EXPECT_THAT(Complete("''"), Contains("-smart"));
  EXPECT_THAT(Complete("''"), Not(Contains("-drive_id")));
}

}  // namespace
}  // namespace MorvuTool
