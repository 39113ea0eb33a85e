#include "Shell.h"

#include <errno.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <mutex>

#include "Real.h"

namespace Simulator {

namespace {

// Status of the commands whose output waits in a stream. Never destroyed, as
// streams may be closed until the process is gone.
std::mutex statusMutex;
std::map<FILE*, int>& Statuses() {
  static auto& statuses = *new std::map<FILE*, int>;
  return statuses;
}

// The line is a child's own: the preload library is not for its tools, whose
// width may be another.
std::string Prepare(const Fleet& fleet, const char* command) {
  return "unset LD_PRELOAD; PATH=\"" + fleet.Root() + "/bin:$PATH\"; export PATH\n" +
         fleet.MapCommand(command);
}

bool ReadAll(FILE* pipe, std::string& output) {
  char block[4096];
  for (std::size_t count; (count = std::fread(block, 1, sizeof block, pipe)) > 0;) {
    output.append(block, count);
  }
  return std::ferror(pipe) == 0;
}

// A stream that yields a text.
FILE* StreamOf(const std::string& text) {
  const int file = memfd_create("morvu-simulator", MFD_CLOEXEC);
  if (file < 0) return nullptr;
  for (std::size_t at = 0; at < text.size();) {
    const auto written = Libc().write(file, text.data() + at, text.size() - at);
    if (written <= 0) {
      Libc().close(file);
      return nullptr;
    }
    at += static_cast<std::size_t>(written);
  }
  lseek(file, 0, SEEK_SET);
  FILE* stream = fdopen(file, "r");
  if (stream == nullptr) Libc().close(file);
  return stream;
}

// The whole output of a command, as it would read on a machine with these drives.
bool Collect(const Fleet& fleet, const char* command, std::string& output, int& status) {
  FILE* pipe = Libc().popen(Prepare(fleet, command).c_str(), "re");
  if (pipe == nullptr) return false;
  ReadAll(pipe, output);
  status = Libc().pclose(pipe);
  fleet.Unmap(output);
  return true;
}

}  // namespace

FILE* OpenShell(const Fleet& fleet, const char* command, const char* mode) {
  if (*mode != 'r') return Libc().popen(Prepare(fleet, command).c_str(), mode);
  std::string output;
  int status = 0;
  if (!Collect(fleet, command, output, status)) return nullptr;
  FILE* stream = StreamOf(output);
  if (stream == nullptr) return nullptr;
  const std::lock_guard lock(statusMutex);
  Statuses()[stream] = status;
  return stream;
}

bool CloseShell(FILE* stream, int& status) {
  {
    const std::lock_guard lock(statusMutex);
    const auto found = Statuses().find(stream);
    if (found == Statuses().end()) return false;
    status = found->second;
    Statuses().erase(found);
  }
  std::fclose(stream);
  return true;
}

int RunShell(const Fleet& fleet, const char* command) {
  std::string output;
  int status = 0;
  std::fflush(stdout);
  if (!Collect(fleet, command, output, status)) return -1;
  for (std::size_t at = 0; at < output.size();) {
    const auto written = Libc().write(1, output.data() + at, output.size() - at);
    if (written <= 0) break;
    at += static_cast<std::size_t>(written);
  }
  return status;
}

}  // namespace Simulator
