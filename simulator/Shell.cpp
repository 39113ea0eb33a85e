#include "Shell.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>

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

// A shell's environment: the fleet's tools come first, and the preload library
// is not for it, whose width may be another.
class Environment {
 public:
  explicit Environment(const Fleet& fleet) {
    std::string path = "PATH=" + fleet.Root() + "/bin";
    for (char** entry = environ; *entry != nullptr; ++entry) {
      const std::string_view text(*entry);
      if (text.starts_with("LD_PRELOAD=")) continue;
      if (text.starts_with("PATH=")) {
        path += ":" + std::string(text.substr(5));
      } else {
        texts_.emplace_back(text);
      }
    }
    texts_.push_back(path);
    for (auto& text : texts_) pointers_.push_back(text.data());
    pointers_.push_back(nullptr);
  }
  char** Get() { return pointers_.data(); }

 private:
  std::vector<std::string> texts_;
  std::vector<char*> pointers_;
};

void ReadAll(int pipe, std::string& output) {
  char block[4096];
  for (;;) {
    const auto count = Libc().read(pipe, block, sizeof block);
    if (count > 0) output.append(block, static_cast<std::size_t>(count));
    if (count == 0 || (count < 0 && errno != EINTR)) return;
  }
}

// The shell on a command, with one end of a pipe in the place of `stream`.
pid_t Spawn(const Fleet& fleet, const char* command, int pipe, int stream) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe, stream);
  Environment environment(fleet);
  std::string line = fleet.MapCommand(command);
  char shell[] = "sh", option[] = "-c";
  char* arguments[] = {shell, option, line.data(), nullptr};
  pid_t child = -1;
  const int failure =
      posix_spawn(&child, "/bin/sh", &actions, nullptr, arguments, environment.Get());
  posix_spawn_file_actions_destroy(&actions);
  if (failure == 0) return child;
  errno = failure;
  return -1;
}

int Wait(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return status;
}

// Feeds a pipe piece by piece, so that its reader waits as for a shell, and a signal may
// meet the wait. The feeder's own signals are blocked; it ends when the reader has gone.
void Feed(int pipe, const std::string& text) {
  constexpr std::size_t kPiece = 64;
  for (std::size_t at = 0; at < text.size();) {
    const timespec rest{0, 500'000};
    Libc().nanosleep(&rest, nullptr);
    const auto written = Libc().write(pipe, text.data() + at, std::min(kPiece, text.size() - at));
    if (written <= 0) break;
    at += static_cast<std::size_t>(written);
  }
  Libc().close(pipe);
}

// A stream that yields a text.
FILE* StreamOf(std::string text) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return nullptr;
  FILE* stream = fdopen(ends[0], "r");
  if (stream == nullptr) {
    Libc().close(ends[0]);
    Libc().close(ends[1]);
    return nullptr;
  }
  sigset_t all, old;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &old);
  std::thread(Feed, ends[1], std::move(text)).detach();
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  return stream;
}

// The whole output of a command, as it would read on a machine with these drives.
bool Collect(const Fleet& fleet, const char* command, std::string& output, int& status) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  const auto child = Spawn(fleet, command, ends[1], STDOUT_FILENO);
  Libc().close(ends[1]);
  if (child > 0) {
    ReadAll(ends[0], output);
    status = Wait(child);
    fleet.Unmap(output);
  }
  Libc().close(ends[0]);
  return child > 0;
}

}  // namespace

FILE* OpenShell(const Fleet& fleet, const char* command, const char* mode) {
  if (*mode != 'r') return Libc().popen(fleet.MapCommand(command).c_str(), mode);
  std::string output;
  int status = 0;
  if (!Collect(fleet, command, output, status)) return nullptr;
  FILE* stream = StreamOf(std::move(output));
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
