// morvu-simdrives run: a program with the preload library of its own width. A 32-bit program
// that the kernel does not run is run by QEMU's user-mode emulator.
#include <elf.h>
#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Commands.h"
#include "Fleet.h"
#include "Options.h"

namespace Simdrives {

namespace {

namespace fs = std::filesystem;

constexpr int kCannotRun = 126, kNotFound = 127;
constexpr const char* kEmulatorWish = "MORVU_X86_EMULATOR";  // as scripts/setup takes it
constexpr const char* kEmulator = "qemu-i386";

std::string FindProgram(const std::string& name) {
  if (name.find('/') != name.npos) return name;
  const char* path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const auto candidate = (folder.empty() ? "." : folder) + "/" + name;
    if (access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return {};
}

// ELFCLASS32 or ELFCLASS64; 0 for what is no ELF file, such as a script.
int ElfClass(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  char head[EI_NIDENT] = {};
  file.read(head, sizeof head);
  return file && std::memcmp(head, ELFMAG, SELFMAG) == 0 ? head[EI_CLASS] : 0;
}

// Beside the tool, in an installation's folders of both widths, or in the other build beside this
// one.
std::string FindPreload(int elfClass) {
  std::error_code failure;
  const auto here = fs::read_symlink("/proc/self/exe", failure).parent_path();
  for (const auto* folder :
       {".", "../lib/morvu-simulator", "../lib/x86_64-linux-gnu/morvu-simulator",
        "../lib/i386-linux-gnu/morvu-simulator", "../lib64/morvu-simulator",
        "../lib32/morvu-simulator", "../../x86_64/simulator", "../../x86/simulator"}) {
    const auto path = (here / folder / "libmorvu_simulator.so").lexically_normal().string();
    if (ElfClass(path) == elfClass) return path;
  }
  return {};
}

void PutFirst(const char* name, const std::string& value) {
  const char* held = std::getenv(name);
  setenv(name, held != nullptr && *held != '\0' ? (value + ":" + held).c_str() : value.c_str(), 1);
}

// The emulator starts as the machine's own program: the preload library is for what it runs.
void ExecEmulated(const std::string& program, const std::vector<char*>& words) {
  const char* wish = std::getenv(kEmulatorWish);
  const auto emulator = FindProgram(wish != nullptr ? wish : kEmulator);
  if (emulator.empty()) return;
  const std::string preload = std::string("LD_PRELOAD=") + std::getenv("LD_PRELOAD");
  unsetenv("LD_PRELOAD");
  std::vector<const char*> emulated = {emulator.c_str(), "-E", preload.c_str(), program.c_str()};
  emulated.insert(emulated.end(), words.begin() + 1, words.end());
  execv(emulator.c_str(), const_cast<char**>(emulated.data()));
}

}  // namespace

int Run(const Arguments& arguments) {
  const bool skips = arguments.size() > 1 && arguments[1] == "--skip-waits";
  const std::size_t first = skips ? 3 : 2;  // the program
  if (arguments.size() <= first || arguments[first - 1] != "--")
    throw UsageError("usage: morvu-simdrives run FLEET [--skip-waits] -- PROGRAM [arguments]");
  const auto fleet = Simulator::Fleet::Open(arguments[0]);
  if (fleet == nullptr) throw Failure("there is no fleet in " + arguments[0]);
  const auto program = FindProgram(arguments[first]);
  if (program.empty() || access(program.c_str(), F_OK) != 0) {
    std::fprintf(stderr, "morvu-simdrives: %s: not found\n", arguments[first].c_str());
    return kNotFound;
  }
  const int own = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
  const int wanted = ElfClass(program) != 0 ? ElfClass(program) : own;
  const auto preload = FindPreload(wanted);
  if (preload.empty()) {
    throw Failure(std::string("there is no libmorvu_simulator.so of ") +
                  (wanted == ELFCLASS32 ? "32" : "64") +
                  " bits beside this tool or in ../lib/morvu-simulator");
  }
  setenv("MORVU_SIMULATOR_FLEET", fleet->Root().c_str(), 1);
  setenv("MORVU_SIMULATOR_SKIP_WAITS", skips ? "1" : "0", 1);
  PutFirst("LD_PRELOAD", preload);

  std::vector<char*> words;
  for (std::size_t i = first; i < arguments.size(); ++i)
    words.push_back(const_cast<char*>(arguments[i].c_str()));
  words.push_back(nullptr);
  const bool isWide = wanted == ELFCLASS64;
  if (!isWide && std::getenv(kEmulatorWish) != nullptr) ExecEmulated(program, words);
  execv(program.c_str(), words.data());
  const int failure = errno;
  if (!isWide && failure == ENOEXEC) ExecEmulated(program, words);
  std::fprintf(stderr, "morvu-simdrives: %s: %s\n", program.c_str(), std::strerror(failure));
  return kCannotRun;
}

}  // namespace Simdrives
