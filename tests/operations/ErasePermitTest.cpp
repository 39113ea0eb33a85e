// What stands before an erase of any family: the drive that was chosen and no other, nobody who
// uses its disk, a "yes" to what is there and to nothing that came since.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "devices/system/SystemFacts.h"
#include "frame/status/Drives.h"
#include "frame/status/Erase.h"
#include "frame/status/Partitions.h"
#include "operations/erase/SecureErase.h"
#include "support/EraseScene.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using Simulator::Fault;
using ::testing::HasSubstr;
using ::testing::Not;

// A family at one of its faces.
struct Family {
  std::string_view name;
  Simulator::DriveSpec (*spec)();
  std::string_view method;
  MethodParameters parameters;
  std::vector<std::string> words;
};
void PrintTo(const Family& family, std::ostream* out) { *out << family.name; }

const Family kFamilies[] = {
    {"SecureErase", &SataSpec, "SecureErase", {}, {"-secure_erase"}},
    {"Sanitize", &SataSpec, "Sanitize", {{"SanitizeType", "block"}}, {"-sanitize", "block"}},
    {"FormatSata", &SataSpec, "Delete", {}, {"-format"}},
    {"FormatNvme", &NvmeSpec, "Format", {{"SecureEraseSetting", "1"}}, {"-format", "1"}},
};

// The drive of a scan, on which a method is called as often as one likes.
class ErasePermits : public ::testing::TestWithParam<Family> {
 protected:
  ErasePermits() : scene_(GetParam().spec()) { scene_.Prepare(); }

  StatusCode Call(bool force = false) {
    auto parameters = GetParam().parameters;
    if (force) parameters.emplace_back("force", "True");
    return CallMethod(*scene_.device(), GetParam().method, parameters);
  }
  LineOutcome Line(std::vector<std::string> more = {}, const std::string& answers = "y\n") {
    auto words = GetParam().words;
    words.insert(words.begin(), {"-drive_serial", scene_.drive.State().serial});
    words.insert(words.end(), more.begin(), more.end());
    return RunLine(words, answers);
  }
  // "/dev/sda", "/dev/nvme0n1".
  static std::string Disk() {
    return GetParam().name == "FormatNvme" ? "/dev/nvme0n1" : "/dev/sda";
  }
  static std::string Partition() { return Disk() + (Disk().ends_with('1') ? "p1" : "1"); }
  Simulator::SimulatedDrive& drive() { return scene_.drive; }
  // Another drive stands where the scan found this one.
  void Exchange() {
    constexpr std::string_view kOther = "OTHER1  ";
    std::ranges::copy(kOther, drive().State().serial);
    std::ranges::copy(kOther, drive().State().nvme.controller + 4);
  }

  EraseScene scene_;
};

// ---- The drive that was chosen ----

TEST_P(ErasePermits, AnotherDriveAtTheNodeIsNotErased) {
  Exchange();
  for (const bool force : {false, true}) EXPECT_EQ(Call(force), Status::NoCommunication);
  EXPECT_TRUE(scene_.IsUntouched());
}

TEST_P(ErasePermits, ADriveThatDoesNotSayWhoItIsIsNotErased) {
  const auto identify = static_cast<std::uint8_t>(GetParam().spec == &NvmeSpec ? 0x06 : 0xEC);
  drive().Inject(Fault::Fail().OnOpcode(identify));
  for (const bool force : {false, true}) EXPECT_EQ(Call(force), Status::NoCommunication);
  EXPECT_TRUE(scene_.IsUntouched());
}

// ---- Who uses the disk ----

TEST_P(ErasePermits, ADiskThatIsClaimedOrLoopedOrOpenIsNotErasedUnlessForced) {
  const auto isRefused = [&](std::string_view how) {
    EXPECT_EQ(Call(), Status::HasPartition) << how;
    EXPECT_TRUE(scene_.IsUntouched()) << how;
  };
  {
    // As another process has it that swaps to the disk, or has a volume on it.
    const int claim = open(Disk().c_str(), O_RDONLY | O_EXCL | O_CLOEXEC);
    ASSERT_GE(claim, 0);
    isRefused("claimed");
    close(claim);
  }
  drive().AddLoop(Disk());
  isRefused("looped");
  EXPECT_EQ(Call(true), Status::Completed);
  EXPECT_TRUE(scene_.IsErased());
}

TEST_P(ErasePermits, ALoopOverAPartitionIsFound) {
  drive().AddPartition();
  drive().AddLoop(Partition());
  const auto outcome = Line({}, "n\n");
  EXPECT_EQ(outcome.code, Status::CanceledByUser);
  EXPECT_THAT(outcome.output, HasSubstr("/dev/loop0 (over " + Partition() + ")"));
}

// The kernel has not read what another program wrote to the disk.
TEST_P(ErasePermits, APartitionOfWhichTheKernelDoesNotKnowYetRefuses) {
  drive().AddUnreadPartition();
  EXPECT_EQ(Call(), Status::HasPartition);
  EXPECT_TRUE(scene_.IsUntouched());
}

TEST_P(ErasePermits, ANodeThatCannotBeAskedRefusesAForcedEraseToo) {
  const auto node = scene_.fleet.Folder() + Disk();
  std::filesystem::rename(node, node + ".gone");
  // The commands of a SATA drive go by another node.
  const auto code =
      GetParam().spec == &NvmeSpec ? Status::NoCommunication : Status::PartitionCheckFailed;
  for (const bool force : {false, true}) EXPECT_EQ(Call(force), code);
  std::filesystem::rename(node + ".gone", node);
  EXPECT_TRUE(scene_.IsUntouched());
}

// ---- The question ----

// A person who answers yes, and what happens before the answer.
class Person : public MessageFace {
 public:
  Person(std::function<void()> meanwhile, bool forced)
      : MessageFace(NoReporter(), forced), meanwhile_(std::move(meanwhile)) {}
  void Say(std::string_view line) override { said.append(line).append("\n"); }
  Answer Ask(std::string_view warning, std::string_view) override {
    asked = warning;
    if (meanwhile_) meanwhile_();
    return Answer::Yes;
  }
  std::string said, asked;

 private:
  std::function<void()> meanwhile_;
};

class EraseQuestions : public ErasePermits {
 protected:
  StatusCode Run(Person& person) {
    const auto clone = scene_.device()->Clone();
    DeviceManagement::Device* const devices[] = {clone.get()};
    CallArguments arguments;
    for (const auto& [name, text] : GetParam().parameters) arguments.Set(name, text);
    const auto* row = FindDriveMethod(GetParam().method);
    JobContext context;
    const FeatureCall call{person, devices, true, arguments};
    return RunHeld(*row->feature, call, [&] { return row->method->run(call, context); });
  }
  StatusCode RunWhile(std::function<void()> meanwhile) {
    Person person(std::move(meanwhile), false);
    const auto code = Run(person);
    said_ = person.said;
    return code;
  }
  std::string said_;
};

TEST_P(EraseQuestions, WhatCameWhileTheQuestionStoodRefuses) {
  EXPECT_EQ(RunWhile([&] { drive().AddUnreadPartition(); }), Status::HasPartition);
  EXPECT_THAT(said_, HasSubstr("changed since the question"));
  EXPECT_THAT(said_, HasSubstr(Partition() + ": not mounted"));
  EXPECT_TRUE(scene_.IsUntouched());
  // The partition is known by now; a second one and a mount are not.
  EXPECT_EQ(RunWhile([&] { drive().AddPartition(1 << 20, "/data"); }), Status::HasPartition);
  EXPECT_THAT(said_, HasSubstr("mounted on /data"));
  EXPECT_TRUE(scene_.IsUntouched());
}

TEST_P(EraseQuestions, AnotherDriveWhileTheQuestionStoodRefuses) {
  EXPECT_EQ(RunWhile([&] { Exchange(); }), Status::NoCommunication);
  EXPECT_THAT(said_, HasSubstr("OTHER1"));
  EXPECT_TRUE(scene_.IsUntouched());
}

TEST_P(EraseQuestions, ALoopWhileTheQuestionStoodRefuses) {
  EXPECT_EQ(RunWhile([&] { drive().AddLoop(Disk()); }), Status::HasPartition);
  EXPECT_TRUE(scene_.IsUntouched());
}

TEST_P(EraseQuestions, NameTheDriveAndWhatIsOnIt) {
  drive().AddPartition(1 << 20, "/data");
  Person person({}, false);
  EXPECT_EQ(Run(person), Status::Completed);
  EXPECT_TRUE(scene_.IsErased());
  for (const auto& text : {std::string("MORVU SSD"), std::string(drive().State().serial), Disk(),
                           Partition() + ": mounted on /data", std::string(" take")}) {
    EXPECT_THAT(person.asked, HasSubstr(text));
  }
}

TEST_P(EraseQuestions, TellOfAProgramThatHasAPartitionOpen) {
  drive().AddPartition();
  Person before({}, false);
  scene_.Prepare();
  drive().OpenPartition(Partition());
  EXPECT_EQ(Run(before), Status::Completed);
  EXPECT_THAT(before.asked, HasSubstr("In use:"));
  EXPECT_THAT(before.said, HasSubstr("keeps the old partitions"));
}

TEST_P(EraseQuestions, OfTheSystemsDiskAreNotAsked) {
  drive().AddPartition();
  scene_.fleet.SetRoot(Partition());
  Person person({}, false);
  EXPECT_EQ(Run(person), Status::HasPartition);
  EXPECT_EQ(person.asked, "");
  EXPECT_THAT(person.said, HasSubstr(Partition() + ": mounted on /, this system runs from it"));
  EXPECT_TRUE(scene_.IsUntouched());

  Person forced({}, true);
  EXPECT_EQ(Run(forced), Status::Completed);
  EXPECT_THAT(forced.said, HasSubstr("this system runs from it"));
  EXPECT_TRUE(scene_.IsErased());
}

// ---- Buffers and partitions ----

// The places of the events, in the order of the run; a number that is none for one that is missing.
std::vector<std::size_t> PlacesOf(const std::vector<std::string>& events,
                                  const std::vector<std::string>& wanted) {
  std::vector<std::size_t> places;
  for (const auto& event : wanted) {
    const auto from = places.empty() ? 0 : std::min(places.back() + 1, events.size());
    const auto found =
        std::find(events.begin() + static_cast<std::ptrdiff_t>(from), events.end(), event);
    places.push_back(static_cast<std::size_t>(found - events.begin()));
  }
  return places;
}

TEST_P(EraseQuestions, WhatIsBufferedGoesBeforeAndIsForgottenBehindIt) {
  drive().AddPartition();
  Person forced({}, true);
  EXPECT_EQ(Run(forced), Status::Completed);
  const auto events = scene_.fleet.Events();
  const auto places = PlacesOf(
      events, {"flush " + Partition(), "flush " + Disk(), "flush " + Disk(), "reread " + Disk()});
  EXPECT_LT(places.back(), events.size()) << ::testing::PrintToString(events);
  EXPECT_EQ(DeviceManagement::FindPartitionsNow(Disk())->size(), 0u);
}

TEST_P(EraseQuestions, PartitionsThatTheSystemKeepsAreTold) {
  drive().AddPartition(1 << 20, "/data");
  Person forced({}, true);
  EXPECT_EQ(Run(forced), Status::Completed);
  EXPECT_THAT(forced.said, HasSubstr("keeps the old partitions of " + Disk()));
}

// Nothing mounts the disk during the erase: its node stays open for this one alone.
TEST_P(EraseQuestions, TheDiskIsClaimedToTheEnd) {
  struct Watcher : Person {
    Watcher(const std::string& disk) : Person({}, false), disk_(disk) {}
    void Begin(std::string_view) override {
      const int second = open(disk_.c_str(), O_RDONLY | O_EXCL | O_CLOEXEC);
      isClaimed = second < 0 && errno == EBUSY;
      if (second >= 0) close(second);
    }
    std::string disk_;
    bool isClaimed = false;
  } watcher(Disk());
  EXPECT_EQ(Run(watcher), Status::Completed);
  EXPECT_TRUE(watcher.isClaimed);
}

INSTANTIATE_TEST_SUITE_P(Families, ErasePermits, ::testing::ValuesIn(kFamilies),
                         [](const auto& test) { return std::string(test.param.name); });
INSTANTIATE_TEST_SUITE_P(Families, EraseQuestions, ::testing::ValuesIn(kFamilies),
                         [](const auto& test) { return std::string(test.param.name); });

// ---- One transport's own ----

// The generic node is the chosen drive's, the disk's node leads to another one by now.
TEST(ErasePermit, ADiskNodeThatLeadsToAnotherDriveRefuses) {
  EraseScene scene(SataSpec());
  auto spec = SataSpec();
  spec.serial = "OTHER1";
  scene.fleet.Add(spec);
  scene.Prepare();
  const auto sys = scene.fleet.Folder() + "/sys/class/";
  const std::filesystem::path link = sys + "block/sda/device";
  std::filesystem::remove(link);
  std::filesystem::create_symlink(sys + "scsi_generic/sg1/device", link);
  for (const bool force : {false, true}) {
    EXPECT_EQ(CallMethod(*scene.device(), "SecureErase", {{"force", force ? "True" : "False"}}),
              Status::NoCommunication);
  }
  EXPECT_TRUE(scene.IsUntouched());
}

// A controller whose secure erase takes all namespaces says so (FNA, NVMe 1.0, figure 66).
TEST(ErasePermit, AFormatThatTakesAllNamespacesAsksWhoUsesEach) {
  for (const bool takesAll : {false, true}) {
    auto spec = NvmeSpec();
    spec.namespaces = 2;
    EraseScene scene(spec);
    scene.drive.State().nvme.controller[524] = takesAll ? 0x06 : 0x04;
    scene.Prepare();
    scene.fleet.Drive("/dev/nvme0n2").AddPartition(1 << 20, "/data");
    const auto format = [&](const char* secure) {
      return CallMethod(*scene.device(), "Format", {{"SecureEraseSetting", secure}});
    };
    EXPECT_EQ(format("1"), takesAll ? Status::HasPartition : Status::Completed);
    EXPECT_EQ(scene.IsUntouched(), takesAll);
    EXPECT_EQ(format("0"), Status::Completed);
  }
}

TEST(ErasePermit, ATableThatCannotBeReadRefusesUnlessForced) {
  EraseScene scene(SataSpec());
  scene.Prepare();
  scene.drive.AddBadSectors(0);
  EXPECT_EQ(CallMethod(*scene.device(), "SecureErase"), Status::PartitionCheckFailed);
  EXPECT_EQ(CallMethod(*scene.device(), "SecureErase", {{"force", "True"}}), Status::Completed);
}

TEST(ErasePermit, WithoutOneNothingIsErased) {
  EraseScene scene(SataSpec());
  scene.Prepare();
  SecureErase erase(scene.device(), nullptr, false, NoReporter());
  EXPECT_EQ(erase.GetErrorCode(), Status::ReadyToRun);
  EXPECT_FALSE(erase.Execute());
  EXPECT_EQ(erase.GetErrorCode(), Status::NoCommunication);
  EXPECT_TRUE(scene.IsUntouched());
}

// ---- The security state ----

struct EraseSecurity : ::testing::Test {
  struct Scene : MethodScene {
    Scene() : MethodScene(SataSpec(), "SecureErase") {}
  } scene;
};

TEST_F(EraseSecurity, APasswordThatWasSetSinceTheScanIsNotOverwritten) {
  scene.Prepare();
  auto& security = scene.drive.State().ata.security;
  security.enabled = 1;
  std::ranges::copy(std::string_view("owner's"), security.userPassword);
  EXPECT_EQ(scene.Run(NoReporter()), Status::EraseSecurityEnabled);
  EXPECT_TRUE(scene.IsUntouched());
  EXPECT_EQ(security.userPassword[0], 'o');
}

TEST(EraseFrozen, WithAPartitionAndForceTheEraseItselfTells) {
  for (const bool sleeps : {true, false}) {
    LineScene line(SataSpec(), {"-secure_erase", "-force"});
    line.drive.AddPartition();
    line.drive.State().ata.security.frozen = 1;
    if (!sleeps) line.drive.Inject(Fault::Fail().OnOpcode(0xE0));
    EXPECT_EQ(line.Run(), Status::SecurityFrozen);
    EXPECT_THAT(line.outcome.output, HasSubstr("Secure Erasing the drive..."));
    EXPECT_THAT(line.outcome.output, Not(HasSubstr("Unable to")));
    EXPECT_TRUE(line.IsUntouched());
  }
}

}  // namespace
}  // namespace Morvu
