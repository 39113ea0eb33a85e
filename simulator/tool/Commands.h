// The commands of morvu-simdrives. Each takes what stands behind its name, and
// returns the exit code; it throws UsageError or Failure.
#pragma once

#include <string>
#include <vector>

namespace Simdrives {

using Arguments = std::vector<std::string>;

int Make(const Arguments& arguments);
int Add(const Arguments& arguments);
int List(const Arguments& arguments);
int Journal(const Arguments& arguments);
int SetFault(const Arguments& arguments);
int AddPartition(const Arguments& arguments);
int SetRoot(const Arguments& arguments);
int Set(const Arguments& arguments);
int AddBadSectors(const Arguments& arguments);
int SetLog(const Arguments& arguments);
int PowerCycle(const Arguments& arguments);
int Clock(const Arguments& arguments);
int AddController(const Arguments& arguments);
int AddVolume(const Arguments& arguments);
int SetLibraryFault(const Arguments& arguments);
int Run(const Arguments& arguments);

}  // namespace Simdrives
