// QRKCLI: the entry of a command-line host. It finds the drives, selects what the
// line names, and runs the Feature that the line asks for.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/CLIParser.h"
#include "devices/model/ScanOptions.h"
#include "frame/Bytes.h"

namespace Morvu {

namespace DeviceManagement {
class AdapterManager;
class Device;
}  // namespace DeviceManagement

class Report;
class ResultTable;
struct CimProperty;
struct SavedFile;
struct ToolOption;

// The option that selects several drives, and what stands for all of them.
inline constexpr std::string_view kSeveralDrives = "-drives";
inline constexpr std::string_view kAllDrives = "all";

// A status that tells of a good end: 0, and 18.
bool IsGoodEnd(StatusCode code);

// The side result of a run that warned: it may have ended well, and left something undone.
inline constexpr StatusCode kWarned = 909;
// The side result of a run that has found something: this, and the findings' bits added to it.
inline constexpr std::int32_t kFindings = 912;
inline constexpr std::uint32_t kAllFindings = 0xF;

// What a host tells about itself.
struct ToolConfig {
  std::string_view toolName;     // the program, as it is typed
  std::string_view productName;  // its name for a person
  std::string_view version;
  std::span<const std::string_view> legalLines;
  std::string_view closingNote;
  std::string_view description;  // rows, with ";" between them
  std::string_view helpNote{};   // below the groups of options: where there is more to read
  std::string_view license;
  std::string_view defaultOption;  // run when the line asks for nothing
  std::string_view driveListTitle = "Drive List";
  std::string_view driveInformationTitle = "Drive Information";
  DeviceManagement::ScanOptions scanOptions;
  std::span<const CimProperty> driveProperties{};  // that a report shows of a drive
};

class QRKCLI : public CLIParser {
 public:
  // The records and the configuration are not owned and outlive the object.
  QRKCLI(std::span<const FeatureRecord* const> features, const ToolConfig& toolConfig,
         const CLIStreams& streams);
  ~QRKCLI() override;

  // Carries out one command line; the final status. It is called once. A line with -json prints
  // one document at its end, and nothing before it but white space.
  StatusCode runCLI(int argc, const char* const* argv);

  // Prints the text of the status, and returns it.
  StatusCode Finish(StatusCode code);

  // With a report all texts go there, and nobody is asked.
  bool Confirm(std::string_view text, std::string_view prompt, bool reading = true) override;
  void Print(std::string_view text) override;
  void PrintLine(std::string_view text = {}) override;

  // Null, unless the line wants its outcome as data. The thread that carries out the line fills
  // it, and each Prompt a run of its own.
  Report* GetReport() const { return report_.get(); }
  // Prints the report as it stands, once: for a signal that ends the tool before the line does.
  void PrintReport();

  // Saves the table as CSV, and prints whether it could be saved, and why not.
  bool SaveTable(const ResultTable& table, const std::string& path);
  // The same of bytes as they are.
  bool SaveBinary(ByteView bytes, const std::string& path);

  // A drive was selected on the command line.
  bool IsDrivePicked() const { return drivePicked_; }
  std::chrono::steady_clock::time_point GetBegin() const { return begin_; }
  // Prints the text as a warning.
  void Warn(std::string_view text);
  // The run's own report tells the warning.
  void NoteWarning() { hasWarned_ = true; }
  // The end of one drive of several, whatever the run makes of them all.
  void NoteOutcome(StatusCode outcome);
  void NoteFindings(std::uint32_t findings) { findings_ |= findings & kAllFindings; }
  // What the run's own status does not tell: findings, a warning, the first drive whose end was
  // bad, or a fault of the argument line; 0 for nothing.
  StatusCode GetSideResult() const;
  const ToolConfig& GetToolConfig() const { return toolConfig_; }

 protected:
  void TellFault(StatusCode code, std::string_view text, std::string_view subject) override;

 private:
  using Device = DeviceManagement::Device;
  friend std::span<const ToolOption> GetToolOptions();

  StatusCode CarryOut(int argc, const char* const* argv);
  void PrintBanner();
  bool PrintSaved(const SavedFile& file);  // whether it is
  void Scan();
  // What the given options want, the drives when none has a say.
  OptionScan GetWantedScan() const;

  // Carries out an option that is no feature: 1 when the run goes on, else the
  // status that it ends with.
  StatusCode Handle(const CLIParameter& parameter);
  StatusCode ShowHelp(const CLIParameter& parameter);
  // The names of all options by what they are for: they fit on a screen.
  std::string DescribeOptionGroups() const;
  StatusCode ShowDriveList(const CLIParameter& parameter);
  StatusCode ShowLicense(const CLIParameter& parameter);
  StatusCode StartLog(const CLIParameter& parameter);
  StatusCode PickByIndex(const CLIParameter& parameter);
  StatusCode PickByLetter(const CLIParameter& parameter);
  StatusCode PickBySerial(const CLIParameter& parameter);
  // All drives, or those of these serial numbers: each must be one drive's.
  StatusCode PickSeveral(const CLIParameter& parameter);
  StatusCode PickByPath(const CLIParameter& parameter);
  StatusCode PickByIdentifier(const CLIParameter& parameter);
  StatusCode PickByAddress(const CLIParameter& parameter);
  StatusCode Pick(Device* drive, StatusCode notFound);
  // The first drive found that the test holds for, or null.
  template <typename Test>
  Device* FindDrive(Test test);

  // Handles every given option but the features, in registration order; 1 when the
  // run goes on.
  StatusCode HandleOptions();
  std::vector<const CLIParameter*> FindGivenFeatures() const;
  // Whether the line may do what the option does to a drive's data. A reason against it is
  // printed.
  StatusCode CheckErase(std::size_t features);
  // Why a line for several drives is not carried out; empty when it may be.
  std::string_view FindSeveralRefusal() const;
  StatusCode RunFeature(const CLIParameter& parameter);
  StatusCode RunWithoutFeature(int argc);
  StatusCode RunDefaultOption();
  // What there is to warn of; a feature that runs has an end of its own.
  std::vector<std::string> PrintDriveInformation();

  const ToolConfig& toolConfig_;
  std::unique_ptr<Report> report_;
  bool isReportPrinted_ = false;
  std::unique_ptr<DeviceManagement::AdapterManager> adapterManager_;
  // The record that each of the features' options comes from.
  struct Handler {
    const FeatureRecord* feature;
    const OptionDeclaration* option;
  };
  std::map<const CLIParameter*, Handler> handlers_;
  std::vector<Device*> devices_;
  bool drivePicked_ = false;
  bool isSelectionShared_ = false;  // one selection, several drives
  bool onlyModifiers_ = true;
  bool isLogging_ = false;
  bool isQuiet_ = false;        // results only
  bool isForPrograms_ = false;  // the results of an option for programs
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  bool hasWarned_ = false;
  std::uint32_t findings_ = 0;
  StatusCode badOutcome_ = Status::Completed;
  StatusCode parseResult_ = Status::Completed;
};

}  // namespace Morvu
