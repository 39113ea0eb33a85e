// Report: what one command line came to, as plain values, for whoever writes it as data.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "frame/StatusCode.h"
#include "messaging/DeviceProperty.h"
#include "messaging/ResultTable.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
}
class CLIParameter;

// Told in the place of an answer.
inline constexpr std::string_view kNoQuestion =
    "Nothing was done: beside -json no question is asked. Use -force.";

class Report {
 public:
  // A text of one line or more as its lines, without colours; empty ones and rules are left out.
  class Lines {
   public:
    void Add(std::string_view text);
    const std::vector<std::string>& Get() const { return lines_; }

   private:
    std::vector<std::string> lines_;
  };

  // A fault of the argument line.
  struct Fault {
    StatusCode code;
    std::string text;
    std::string nearest{};  // the option that was perhaps meant; empty for none
  };

  struct Partition {
    std::string path;
    std::string type;                   // empty where nobody knows
    std::optional<std::uint64_t> size;  // in bytes
    std::optional<std::uint64_t> free;  // of a mounted file system
    std::optional<std::uint64_t> used;
  };

  struct Drive {
    // Typed, under the names of the messages; what is not known is not there.
    std::vector<DeviceProperty> properties;
    std::vector<Partition> partitions;
    bool isHeld = false;            // another program or job works on it
    std::optional<bool> answers;    // where it was asked for its state
    std::string verdict;            // its own; empty where it was not asked
    std::optional<bool> isFailing;  // by that verdict, where it told one
  };

  // One feature on one drive. It belongs to one thread.
  struct Run {
    std::string feature;                              // the option without its dash
    const DeviceManagement::Device* drive = nullptr;  // null for none
    std::optional<StatusCode> code;                   // its end, once it is there
    Lines lines;
    Lines warnings;
    std::vector<ResultTable> tables;
    std::vector<std::pair<std::string, std::uint64_t>> figures;  // Face::Report
    std::vector<std::string> files;                              // that were saved
  };

  Report() = default;
  Report(const Report&) = delete;
  Report& operator=(const Report&) = delete;

  // A run to be filled by whoever asked for it; it stays where it is as long as the report
  // lives. Any thread may ask. The order of the calls is the order of the runs.
  Run& AddRun(const DeviceManagement::Device* drive, std::string_view feature = {});
  // A line of the tool itself; any thread may tell one.
  void AddLine(std::string_view text);
  // While no thread adds any.
  const std::deque<Run>& GetRuns() const { return runs_; }

  // ---- The line's own; the thread that carries it out ----
  StatusCode code = Status::NotRun;
  std::vector<Fault> faults;
  Lines lines;
  Lines warnings;
  std::vector<std::string> files;
  // The drives concerned.
  std::vector<Drive> drives;
  std::vector<const CLIParameter*> options;  // that a help tells of
  std::string license;

 private:
  std::mutex mutex_;  // guards `lines` and the list of runs, not what stands in a run
  std::deque<Run> runs_;
};

}  // namespace Morvu
