// A feature at the prompt: the way from a command line into a family.
#pragma once

#include <functional>
#include <span>

#include "cli/ProgressLine.h"
#include "cli/Report.h"
#include "frame/HeldSignals.h"
#include "messaging/features/FeatureRecord.h"

namespace Morvu {

class QRKCLI;

// The drives that a command line selected, at least one. The front end owns them;
// they live as long as the call.
using SelectedDrives = std::span<DeviceManagement::Device* const>;

// The person at the prompt. While it lives, a line shows how far the run of that name is.
class Prompt : public Face {
 public:
  // With a report, what has a name fills a run of it, of the drive, null for none; it prints
  // nothing and asks nobody.
  explicit Prompt(QRKCLI& cli, std::string_view what = {},
                  const DeviceManagement::Device* drive = nullptr);

  void Say(std::string_view line = {}) override;
  void Warn(std::string_view text) override;
  void Show(const ResultTable& table) override;
  void Report(std::string_view name, std::uint64_t value) override;
  void Turn(const DeviceManagement::Device& drive) override;
  bool IsForPrograms() const override { return reported_ != nullptr; }
  void NoteFindings(std::uint32_t findings) override;
  void Tell(StatusCode outcome) override;
  bool Save(const ResultTable& table, const std::string& path) override;
  bool SaveBinary(ByteView bytes, const std::string& path) override;
  bool Publish(std::string_view text, const std::string& path) override;
  Answer Ask(std::string_view warning, std::string_view question) override;
  bool IsForced() const override;
  void Begin(std::string_view line) override;
  ProgressReporter& GetReporter() override { return reporter_; }

  // Prints the end of the run, unless outcomes told it; the code, which is no good one where
  // something could not be saved. A signal that was held comes when the prompt ends.
  StatusCode Finish(StatusCode code);

 private:
  // A signal that is held is a request to stop.
  class PromptReporter : public SilentReporter {
   public:
    explicit PromptReporter(Prompt& prompt) : prompt_(prompt) {}
    void SetPercent(std::int32_t percent) override;
    void SetDetail(std::string_view detail) override;
    bool IsCancelRequested() override { return prompt_.signals_.IsStopRequested(); }

   private:
    Prompt& prompt_;
  };

  bool NoteSaved(bool isSaved, const std::string& path);

  QRKCLI& cli_;
  Report::Run* reported_ = nullptr;  // without a report
  bool isTurned_ = false;            // it is about one drive of several
  HeldSignals signals_;
  PromptReporter reporter_{*this};
  ProgressLine::Run run_;
  bool hasToldOutcomes_ = false;
  bool isUnsaved_ = false;
};

// Runs the family's option with its words from the line, and prints how it ended: 73
// without a drive that the family needs, and for more words than the option has.
StatusCode RunCLI(QRKCLI& cli, const FeatureRecord& feature, const OptionDeclaration& option,
                  SelectedDrives devices);

// Fills the option's arguments with its words and the line's modifiers. Not 1 when they are wrong:
// a line was printed, and the run ends with the code.
StatusCode TakeArguments(QRKCLI& cli, const OptionDeclaration& option, CallArguments& arguments);
// Runs, and records the devices' commands where the line asks for that.
StatusCode RunAndRecord(QRKCLI& cli, Face& face, SelectedDrives devices,
                        const std::function<StatusCode()>& run);

}  // namespace Morvu
