// Drives behind an LSI RAID controller, as a host has them.
#include <gtest/gtest.h>

#include <map>

#include "AdapterCalls.h"
#include "Host.h"
#include "TestFleet.h"

namespace MorvuHost {
namespace {

class LsiHost : public ::testing::Test {
 protected:
  LsiHost() {
    const int controller = fleet_.AddController();
    for (const char* serial : {"BTWL0001", "BTWL0002", "BTWL0003"}) {
      fleet_.Add({.model = "MORVU SSDSC2BB480G4",
                  .serial = serial,
                  .sectors = 2048,
                  .controller = controller});
    }
    disk_ = fleet_.AddVolume({"LSI_0_0", "LSI_0_1"});
  }
  // Whatever a host left on.
  ~LsiHost() override { Library().DisableLSIAdapter(); }

  // Path -> the members that its object names.
  static std::map<std::string, std::vector<std::string>> ReadDrives(const Reply& reply) {
    std::map<std::string, std::vector<std::string>> drives;
    for (const auto* object : reply.Listed()) {
      auto& members = drives[PropertyText(*object, "DevicePath")];
      for (const auto& [name, list] : *object) {
        if (name != "List" || AttributeText(list, "name") != "RAIDMember") continue;
        for (const auto& [kind, member] : list) {
          if (kind == "Object") members.push_back(AttributeText(member, "name"));
        }
      }
    }
    return drives;
  }

  static int Erase(Host& host, std::string_view key, std::string_view value) {
    return host.Ask(KeyObject(key, value) + Method("SecureErase")).ErrorCode();
  }

  Simulator::TestFleet fleet_;
  std::string disk_;
};

TEST_F(LsiHost, AreListedWhenAHostAsksForThem) {
  const auto before = Simulator::GetAdapterRecord();
  {
    Host host;
    EXPECT_TRUE(ReadDrives(host.Call(kScan)).empty());
    Library().EnableLSIAdapter();
    const std::map<std::string, std::vector<std::string>> kAll = {
        {disk_, {"LSI_0_0", "LSI_0_1"}}, {"LSI_0_0", {}}, {"LSI_0_1", {}}, {"LSI_0_2", {}}};
    EXPECT_EQ(ReadDrives(host.Call(kScan)), kAll);
    Library().DisableLSIAdapter();
    EXPECT_TRUE(ReadDrives(host.Call(kScan)).empty());
    EXPECT_EQ(Simulator::GetAdapterRecord().ended, before.ended + 1);

    // The adapter's library in a place that the host names.
    Library().EnableLSIAdapter();
    EXPECT_EQ(ReadDrives(host.Call("<Message cimClass='MorvuSSD' scan='True'><Object "
                                   "name='LSIAdapterPaths'><Property name='path'>/opt/vendor/"
                                   "libLSI.AdapterAPI.so.4.02</Property></Object></Message>")),
              kAll);
    EXPECT_EQ(ReadDrives(host.Call(kScan)), kAll);
  }
  const auto after = Simulator::GetAdapterRecord();
  EXPECT_EQ(after.begun - before.begun, after.ended - before.ended);
  EXPECT_EQ(after.malformed, before.malformed);
}

TEST_F(LsiHost, NeitherAVolumeNorAMemberIsErased) {
  Host host;
  Library().EnableLSIAdapter();
  // The volume's disk is gone from the system, its members are members all the same; and then
  // the library does not say.
  for (const auto& faults : {std::vector<std::string>{}, {"volumes-fail"}, {"members-fail"}}) {
    fleet_.SetLibraryFaults(faults);
    host.Call(kScan);
    EXPECT_EQ(Erase(host, "SerialNumber", "BTWL0001"), 255);
    EXPECT_EQ(Erase(host, "SerialNumber", "BTWL0002"), 255);
    EXPECT_EQ(Erase(host, "SerialNumber", "BTWL0003"), faults.empty() ? 0 : 255);
  }
  fleet_.SetLibraryFaults({});
  const auto list = host.Call(kScan);
  EXPECT_EQ(Erase(host, "Index", "0"), 97);
  // The controller takes a drive for a volume, or cannot be asked, once the host has its list.
  fleet_.Drive("LSI_0_2").ClearJournal();
  fleet_.SetLibraryFaults({"volumes-fail"});
  EXPECT_EQ(Erase(host, "SerialNumber", "BTWL0003"), 255);
  fleet_.SetLibraryFaults({});
  fleet_.AddVolume({"LSI_0_2"}, false);
  EXPECT_EQ(Erase(host, "SerialNumber", "BTWL0003"), 255);
  for (const char* member : {"LSI_0_0", "LSI_0_1", "LSI_0_2"}) {
    for (const auto& command : fleet_.Drive(member).Journal()) {
      EXPECT_TRUE(command.AtaOpcode() != 0xF1 && command.AtaOpcode() != 0xF4) << command.Text();
    }
  }
}

}  // namespace
}  // namespace MorvuHost
