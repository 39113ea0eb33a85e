// Firmware modules: which one is used, and what those that break the rules can do.
#include <fcntl.h>
#include <gtest/gtest.h>

#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "operations/firmware/AttributeCollection.h"
#include "operations/firmware/FirmwareModule.h"
#include "operations/firmware/FirmwareUpdate.h"
#include "support/FirmwareModules.h"
#include "support/LogLines.h"

namespace Morvu {
namespace {

using namespace Testing;
namespace Properties = DeviceManagement::Properties;

constexpr std::uint64_t kNothingKnown = 900;  // no module at all
constexpr std::uint64_t kKnownNothing = 0;    // a module, and no answer that counts

class FirmwareModuleTest : public testing::Test {
 protected:
  FirmwareModuleTest() {
    drive_.AddProperty(Properties::ModelNumber, "MORVU \"X\" <1> & Co");
    drive_.AddProperty(Properties::SectorSize, 512);
  }
  ~FirmwareModuleTest() override { EXPECT_FALSE(folder_.IsAnyLoaded()); }

  // The mapping that the modules of the folder give. The drive does not answer.
  FirmwareUpdate::AttributeCollection Map(const std::string& audience = "", int type = 0) {
    FirmwareUpdate update(&drive_, false, type, audience, folder_.AsDirectories(), NoReporter());
    return update.GetMapping();
  }
  std::uint64_t Verdict(const std::string& audience = "", int type = 0) {
    return Map(audience, type).GetUnsigned(FirmwareMapping::Status);
  }
  std::string Destination(const std::string& audience = "", int type = 0) {
    return Map(audience, type).GetString(FirmwareMapping::Destination);
  }
  static std::string Answering(const std::string& destination) {
    return "mapping=" + MakeMapping("1", "image", destination) + "\n";
  }

  ModuleFolder folder_;
  DeviceManagement::Drive drive_;
};

TEST_F(FirmwareModuleTest, WithoutModulesNothingIsKnown) {
  EXPECT_EQ(Verdict(), kNothingKnown);
  FirmwareUpdate update(&drive_, false, 0, "", std::vector<std::string>{"/absent", ""},
                        NoReporter());
  EXPECT_EQ(update.GetMappingStatus(), kNothingKnown);
}

TEST_F(FirmwareModuleTest, TheModuleReadsTheDrivesProperties) {
  const auto seen = folder_.Path("request.xml");
  folder_.Add("a", "date=1\nrequest=" + seen + "\n" + Answering("NEW"));
  EXPECT_EQ(Destination(), "NEW");
  const auto request = ReadAttributeCollection(ReadFileText(seen));
  ASSERT_TRUE(request);
  EXPECT_EQ(request->GetString(Properties::ModelNumber), "MORVU \"X\" <1> & Co");
  EXPECT_EQ(request->GetUnsigned(Properties::SectorSize), 512u);
  EXPECT_NE(ReadFileText(seen).find("name=\"attributeCollection\""), std::string::npos);
}

TEST_F(FirmwareModuleTest, TheNewestWins) {
  folder_.Add("a", "date=20\n" + Answering("TWENTY"));
  folder_.Add("b", "date=0xFFFFFFFFFFFFFFFF\n" + Answering("NEWEST"));
  folder_.Add("c", "date=30\n" + Answering("THIRTY"));
  EXPECT_EQ(Destination(), "NEWEST");
}

TEST_F(FirmwareModuleTest, EqualDatesKeepTheFirstFound) {
  folder_.Add("a", "date=7\n" + Answering("a"));
  folder_.Add("b", "date=7\n" + Answering("b"));
  folder_.Add("c", "date=7\n" + Answering("c"));
  for (const auto& entry : std::filesystem::directory_iterator(folder_.Path())) {
    if (entry.path().extension() != ".so") continue;
    EXPECT_EQ(Destination(), entry.path().stem().string());
    break;
  }
}

TEST_F(FirmwareModuleTest, ADateOfZeroNeverWins) {
  folder_.Add("a", "date=0\n" + Answering("NEW"));
  EXPECT_EQ(Verdict(), kKnownNothing);
}

TEST_F(FirmwareModuleTest, AudienceAndTypeMustMatch) {
  folder_.Add("a", "date=1\naudience=retail\n" + Answering("RETAIL"));
  folder_.Add("b", "date=2\naudience=service\n" + Answering("SERVICE"));
  folder_.Add("c", "date=3\ntype=-4\n" + Answering("OTHER"));
  EXPECT_EQ(Destination(), "SERVICE");
  EXPECT_EQ(Destination("retail"), "RETAIL");
  EXPECT_EQ(Verdict("Retail"), kKnownNothing);
  EXPECT_EQ(Destination("", -4), "OTHER");
  EXPECT_EQ(Verdict("", 9), kKnownNothing);
}

TEST_F(FirmwareModuleTest, DirectoriesAreSearchedInOrder) {
  folder_.Add("a", "date=5\n" + Answering("FIRST"));
  const auto second = folder_.Path("second");
  std::filesystem::create_directories(second);
  // Folders, links and pipes are no modules.
  std::filesystem::create_directories(folder_.Path("folder.so"));
  std::filesystem::create_symlink("nowhere", folder_.Path("broken.so"));
  folder_.Add("second/b", "date=5\n" + Answering("SECOND"));
  const auto find = [&](std::vector<std::string> directories) {
    FirmwareUpdate update(&drive_, false, 0, "", directories, NoReporter());
    return update.GetMapping().GetString(FirmwareMapping::Destination);
  };
  EXPECT_EQ(find({folder_.Path(), second}), "FIRST");
  EXPECT_EQ(find({second, folder_.Path(), second}), "SECOND");
}

TEST_F(FirmwareModuleTest, LongAnswersAreFetchedInTwoCalls) {
  const std::string padding(5000, ' ');
  folder_.Add("a", "date=1\naudience=" + std::string(3000, 'a') +
                       "\nmapping=" + MakeMapping("1", "image", "NEW") + padding + "\n");
  EXPECT_EQ(Destination(std::string(3000, 'a')), "NEW");
}

// What a module does wrong, and the verdict that is left.
struct Fault {
  const char* name;
  std::string settings;
  std::uint64_t verdict = kKnownNothing;
};

class FirmwareModuleFaultTest : public FirmwareModuleTest,
                                public testing::WithParamInterface<Fault> {};

TEST_P(FirmwareModuleFaultTest, IsNotTaken) {
  folder_.Add("bad", "date=9\n" + GetParam().settings);
  EXPECT_EQ(Verdict(), GetParam().verdict);
  EXPECT_EQ(Destination(), "");
  // And it does not stand in the way of a good one, even of an older one.
  folder_.Add("good", "date=1\n" + Answering("GOOD"));
  EXPECT_EQ(Destination(), "GOOD");
}

std::string StatusOf(const std::string& type, const std::string& value) {
  return "<Object><Property name=\"Status\" type=\"" + type + "\" value=\"" + value +
         "\"/></Object>";
}

const std::string kAnswer = "mapping=" + MakeMapping("1", "image", "BAD") + "\n";

INSTANTIATE_TEST_SUITE_P(
    Modules, FirmwareModuleFaultTest,
    testing::Values(
        Fault{"MappingFails", "mapping.result=5\n" + kAnswer},
        Fault{"MappingFailsNegative", "mapping.result=-1\n" + kAnswer},
        Fault{"TwiceTooSmall", "mapping.needs=4096\nmapping.always=1\n" + kAnswer},
        Fault{"TwiceTooSmallForItsOwnSize", "mapping.needs=1024\nmapping.always=1\n" + kAnswer},
        Fault{"NeedsNothing", "mapping.needs=0\n" + kAnswer},
        Fault{"NeedsLess", "mapping.needs=3\n" + kAnswer},
        Fault{"NeedsFourGigabytes", "mapping.needs=0xFFFFFFFF\n" + kAnswer},
        Fault{"TellsTooLargeASize", "mapping.size=1025\n" + kAnswer},
        Fault{"TellsFourGigabytes", "mapping.size=0xFFFFFFFF\n" + kAnswer},
        Fault{"NoEndOfText", "mapping.unterminated=1\n" + kAnswer},
        Fault{"NoEndOfLongText", "mapping.needs=9000\nmapping.unterminated=1\n" + kAnswer},
        Fault{"MappingThrows", "mapping.throws=1\n" + kAnswer},
        Fault{"AudienceFails", "audience.result=5\n" + kAnswer},
        Fault{"AudienceTwiceTooSmall", "audience.needs=2000\naudience.always=1\n" + kAnswer},
        Fault{"AudienceWithoutEnd", "audience.unterminated=1\n" + kAnswer},
        Fault{"AudienceThrows", "audience.throws=1\n" + kAnswer},
        Fault{"TypeThrows", "type.throws=1\n" + kAnswer},
        Fault{"DateThrows", "date.throws=1\n" + kAnswer}, Fault{"EmptyAnswer", "mapping=\n"},
        Fault{"NoXml", "mapping=Status 1\n"}, Fault{"CutXml", "mapping=<Object><Property\n"},
        Fault{"AnotherElement", "mapping=<Message><Object/></Message>\n"},
        Fault{"AnotherElementFirst", "mapping=<Other/>" + MakeMapping("1", "image", "BAD") + "\n"},
        Fault{"NegativeStatus", "mapping=" + MakeMapping("-1", "image", "BAD") + "\n"},
        Fault{"HexadecimalStatus", "mapping=" + MakeMapping("0x1", "image", "BAD") + "\n"},
        Fault{"EmptyStatus", "mapping=" + StatusOf("uint64", "") + "\n"},
        Fault{"StatusAsText", "mapping=" + StatusOf("string", "1") + "\n"},
        Fault{"StatusOfAnotherWidth", "mapping=" + StatusOf("uint32", "1") + "\n"},
        Fault{"SignedStatus", "mapping=" + StatusOf("sint64", "1") + "\n"},
        Fault{"StatusAsBoolean", "mapping=" + StatusOf("boolean", "True") + "\n"},
        Fault{"StatusWithoutType", "mapping=" + StatusOf("", "1") + "\n"},
        Fault{"NoStatus", "mapping=" + MakeMapping("", "image", "") + "\n"},
        Fault{"NoAttributes", "mapping=<Object/>\n"}),
    [](const auto& fault) { return fault.param.name; });

TEST_F(FirmwareModuleTest, EachExportMustBeThere) {
  for (const auto* missing : {"Load", "Unload", "GetType", "GetDate", "GetTargetAudience",
                              "GetTargetFirmwareMappingAttributes"}) {
    SCOPED_TRACE(missing);
    const auto path = folder_.Add("a", "date=1\n" + Answering("NEW"), missing);
    EXPECT_EQ(Verdict(), kNothingKnown);
    std::filesystem::remove(path);
  }
  // The images are asked for only when the mapping is taken.
  const auto path = folder_.Add("a", "date=1\n" + Answering("NEW"), "GetTargetFirmwareBinary");
  EXPECT_EQ(Destination(), "NEW");
  EXPECT_FALSE(FirmwareModule::Open(path)->CanSupply());
}

TEST_F(FirmwareModuleTest, FilesThatAreNotAsTheyWereTaggedAreNotLoaded) {
  const auto path = folder_.Add("a", "date=1\n" + Answering("NEW"));
  const auto tagged = ReadFileBytes(path).value();
  ASSERT_EQ(Destination(), "NEW");
  const auto verdictOf = [&](const ByteVector& bytes) {
    std::filesystem::remove(path);  // a file that is loaded anew, not changed in place
    folder_.AddFile("a.so", bytes);
    return Verdict();
  };
  for (const std::size_t at : {std::size_t{0}, tagged.size() / 2, tagged.size() - 81,
                               tagged.size() - 80, tagged.size() - 1}) {
    auto changed = tagged;
    changed[at] ^= 0x10;
    EXPECT_EQ(verdictOf(changed), kNothingKnown) << at;
  }
  EXPECT_EQ(verdictOf({tagged.begin(), tagged.end() - 1}), kNothingKnown);
  EXPECT_EQ(verdictOf({tagged.begin(), tagged.end() - 80}), kNothingKnown);
  EXPECT_EQ(verdictOf(ByteVector(80)), kNothingKnown);
  EXPECT_EQ(verdictOf(ByteVector(81)), kNothingKnown);
  EXPECT_EQ(verdictOf({}), kNothingKnown);
  EXPECT_EQ(verdictOf(tagged), 1u);
}

// What was verified is what runs, whatever becomes of the file meanwhile.
TEST_F(FirmwareModuleTest, AFileThatIsChangedInPlaceRunsAsItWasTagged) {
  const auto path = folder_.Add("a", "date=7\n" + Answering("NEW"));
  const auto module = FirmwareModule::Open(path);
  ASSERT_TRUE(module);
  std::ofstream(path, std::ios::in | std::ios::binary)
      << std::string(std::filesystem::file_size(path), 'x');
  ASSERT_FALSE(DeviceManagement::VerifyLibrary(path));
  EXPECT_EQ(module->GetDate(), 7u);
  EXPECT_TRUE(module->GetTargetFirmwareMappingAttributes("<Object/>"));
  EXPECT_FALSE(FirmwareModule::Open(path));
}

// Not even by somebody who finds the copy in memory.
TEST_F(FirmwareModuleTest, TheCopyInMemoryCannotBeChanged) {
  const auto module = FirmwareModule::Open(folder_.Add("a", "date=7\n"));
  ASSERT_TRUE(module);
  std::string copy;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const auto target = std::filesystem::read_symlink(entry.path(), gone).string();
    if (target.find(DeviceManagement::kTaggedCopyName) != target.npos) copy = entry.path();
  }
  ASSERT_FALSE(copy.empty());
  EXPECT_FALSE(std::ofstream(copy, std::ios::in | std::ios::binary) << "x" << std::flush);
  const int seals = fcntl(std::stoi(copy.substr(copy.rfind('/') + 1)), F_GET_SEALS);
  EXPECT_EQ(seals & F_SEAL_WRITE, F_SEAL_WRITE);
  EXPECT_EQ(seals & F_SEAL_SEAL, F_SEAL_SEAL);
}

TEST_F(FirmwareModuleTest, SeveralAreLoadedAtATimeEachAsItself) {
  std::vector<FirmwareModule> modules;
  for (int i = 1; i <= 3; ++i) {
    const auto number = std::to_string(i);
    auto module = FirmwareModule::Open(folder_.Add(number, "date=" + number + "\n"));
    ASSERT_TRUE(module);
    modules.push_back(*std::move(module));
  }
  for (std::uint64_t i = 1; i <= 3; ++i) EXPECT_EQ(modules[i - 1].GetDate(), i);
}

std::size_t CountText(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++count;
  return count;
}

// The loader knows what it has loaded by its path, and one that stays does so for ever.
TEST(FirmwareModule, OneThatStaysLoadedIsNotTakenForTheNext) {
  const ModuleFolder folder;
  std::size_t parts = 0;
  for (std::uint64_t i = 1; i <= 3; ++i) {
    const auto number = std::to_string(i);
    const auto module =
        FirmwareModule::Open(folder.Add(number, "date=" + number + "\n", "Unloading"));
    ASSERT_TRUE(module);
    EXPECT_EQ(module->GetDate(), i);
    // Each has brought memory of its own.
    const auto maps = ReadFileText("/proc/self/maps");
    EXPECT_GT(CountText(maps, DeviceManagement::kTaggedCopyName), parts);
    parts = CountText(maps, DeviceManagement::kTaggedCopyName);
  }
}

std::size_t CountVerified(const LogLines& log) {
  return CountText(log.GetText(), "Verify successful.");
}

TEST_F(FirmwareModuleTest, EachIsVerifiedOnceInARequest) {
  folder_.Add("a", "date=1\n" + Answering("NEW"));
  folder_.Add("b", "date=2\n" + Answering("NEWER"));
  {
    const LogLines log;
    const FirmwareModulesScope request;
    {
      const FirmwareModulesScope inner;
      for (int drive = 0; drive < 3; ++drive) EXPECT_EQ(Destination(), "NEWER");
    }
    EXPECT_EQ(Destination(), "NEWER");
    EXPECT_EQ(CountVerified(log), 2u);
  }
  EXPECT_FALSE(folder_.IsAnyLoaded());
  const LogLines log;
  EXPECT_EQ(Destination(), "NEWER");
  EXPECT_EQ(CountVerified(log), 2u);
}

TEST_F(FirmwareModuleTest, ATaggedFileThatIsNoLibraryIsPassedOver) {
  const auto text = folder_.AddFile("text", ByteVector(500, 'x'));
  ASSERT_TRUE(DeviceManagement::SignLibrary(text));
  EXPECT_TRUE(DeviceManagement::VerifyLibrary(folder_.Path("modified_text")));
  EXPECT_EQ(Verdict(), kNothingKnown);
}

TEST_F(FirmwareModuleTest, ImagesComeWholeOrNotAtAll) {
  const auto image = folder_.AddFile("image", MakeSimulatedImage("NEWREV", 100'000));
  const auto small = folder_.AddFile("small", MakeSimulatedImage("NEWREV", 10));
  const auto fetch = [&](const std::string& settings, const std::string& name = "x") {
    const auto path =
        folder_.Add("a", "binary.x=" + image + "\nbinary.s=" + small + "\n" + settings);
    const auto bytes = FirmwareModule::Open(path)->GetTargetFirmwareBinary(name);
    std::filesystem::remove(path);
    return bytes;
  };
  EXPECT_EQ(fetch(""), MakeSimulatedImage("NEWREV", 100'000));
  EXPECT_EQ(fetch("", "s"), MakeSimulatedImage("NEWREV", 10));
  EXPECT_EQ(fetch("", "absent"), std::nullopt);
  EXPECT_EQ(fetch("binary.result=7\n"), std::nullopt);
  EXPECT_EQ(fetch("binary.needs=2000\n"), std::nullopt);  // it needs more after all
  EXPECT_EQ(fetch("binary.needs=2000\nbinary.always=1\n"), std::nullopt);
  EXPECT_EQ(fetch("binary.needs=0x80000000\n"), std::nullopt);
  EXPECT_EQ(fetch("binary.size=100001\n"), std::nullopt);
  EXPECT_EQ(fetch("binary.size=0xFFFFFFFF\n"), std::nullopt);
  EXPECT_EQ(fetch("binary.throws=1\n"), std::nullopt);
  EXPECT_EQ(fetch("binary.size=0\n"), ByteVector());
}

}  // namespace
}  // namespace Morvu
