#include "frame/Platform.h"

#include <dlfcn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace Morvu {

std::string GetOsName() { return "Linux"; }

namespace {

// A line prints the same in every user's language, and finds the administrator's tools.
std::string WithSettings(const std::string& command) {
  return "LC_ALL=C; PATH=\"${PATH:+$PATH:}/usr/sbin:/usr/bin:/sbin:/bin\"; export LC_ALL PATH; " +
         command;
}

// Reads to the end, however often a signal interrupts.
bool ReadAll(int file, std::string& output) {
  char block[4096];
  for (;;) {
    const auto count = read(file, block, sizeof block);
    if (count == 0) return true;
    if (count > 0) {
      output.append(block, static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return false;
    }
  }
}

// The shell's own words for a command that it could not start, or its end by a signal.
bool CouldNotRun(int status) {
  if (status == -1) return false;  // a host that ignores SIGCHLD learns no status
  if (!WIFEXITED(status)) return true;
  return WEXITSTATUS(status) == 126 || WEXITSTATUS(status) == 127;
}

}  // namespace

bool RunCommand(const std::string& command, std::vector<std::string>& lines) {
  // "e": the pipe is not handed on to commands that other threads start.
  // The command inherits this thread's blocked signals: what its own Ctrl-C ends is the tool, not
  // a mount or its end half way.
  FILE* pipe = popen(WithSettings(command).c_str(), "re");
  if (pipe == nullptr) return false;
  std::string output;
  const bool whole = ReadAll(fileno(pipe), output);
  if (CouldNotRun(pclose(pipe)) || !whole) return false;

  for (std::size_t at = 0; at < output.size();) {
    const auto end = std::min(output.find('\n', at), output.size());
    lines.push_back(output.substr(at, end - at));
    at = end + 1;
  }
  return true;
}

void RunSystem(const std::string& command) {
  [[maybe_unused]] const int unexamined = system(WithSettings(command).c_str());
}

std::string FormatLocalTime(const char* form) {
  const auto now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[64];
  return std::string(text, std::strftime(text, sizeof text, form, &local));
}

void SleepFor(std::chrono::milliseconds time) {
  timespec rest{};
  rest.tv_sec = static_cast<time_t>(time.count() / 1000);
  rest.tv_nsec = static_cast<long>(time.count() % 1000) * 1'000'000;
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

std::chrono::milliseconds GetUptime() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::milliseconds(now.tv_nsec / 1'000'000);
}

std::string GetExecutableDirectory() {
  std::string path(1024, '\0');
  for (;;) {
    const auto length = readlink("/proc/self/exe", path.data(), path.size());
    if (length < 0) return {};
    if (static_cast<std::size_t>(length) < path.size()) {
      path.resize(static_cast<std::size_t>(length));
      break;
    }
    path.resize(path.size() * 2);
  }
  const auto slash = path.rfind('/');
  return slash == path.npos ? std::string() : path.substr(0, slash + 1);
}

void RemoveTestFiles(std::string_view prefix) {
  const bool plain = std::ranges::all_of(prefix, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == '.' || c == '=' || c == '{';
  });
  if (!plain || prefix.empty()) return;
  RunSystem("find " + std::string(kTestFolder) + " -maxdepth 1 -name '" + std::string(prefix) +
            "*' -delete");
}

Library LoadLibrary(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_LAZY);
  if (handle == nullptr) return nullptr;
  return Library(handle, [](void* loaded) { dlclose(loaded); });
}

void* GetSymbol(const Library& library, const char* name) {
  return library ? dlsym(library.get(), name) : nullptr;
}

}  // namespace Morvu
