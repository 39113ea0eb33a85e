// morvu-sign: makes tagged shared objects, the only ones that the library loads.
#include <cstdio>
#include <exception>
#include <span>
#include <string>
#include <string_view>

#include "devices/system/TaggedLibrary.h"

namespace {

using Morvu::DeviceManagement::GetTaggedPath;
using Morvu::DeviceManagement::SignLibrary;
using Morvu::DeviceManagement::VerifyLibrary;

constexpr char kUsage[] =
    "Usage: morvu-sign LIBRARY [TAGGED]   tag a copy of LIBRARY; without a name for it\n"
    "                                     the copy is modified_LIBRARY, beside it\n"
    "       morvu-sign --verify FILE...   tell whether each FILE is a tagged one\n";
constexpr int kExitFailed = 1, kExitUsage = 2;

int Verify(std::span<const char* const> paths) {
  int result = 0;
  for (const std::string path : paths) {
    const bool good = VerifyLibrary(path);
    std::printf("%s: %s\n", path.c_str(), good ? "tagged" : "not tagged, or changed since");
    if (!good) result = kExitFailed;
  }
  return result;
}

int Sign(const std::string& path, const std::string& tagged) {
  if (SignLibrary(path, tagged)) return 0;
  std::fprintf(stderr, "morvu-sign: cannot read %s, or cannot write %s\n", path.c_str(),
               tagged.c_str());
  return kExitFailed;
}

int Run(std::span<const char* const> words) {
  if (words.size() > 1 && std::string_view(words[0]) == "--verify") return Verify(words.subspan(1));
  if (words.empty() || words.size() > 2 || words[0][0] == '-') {
    std::fputs(kUsage, stderr);
    return kExitUsage;
  }
  return Sign(words[0], words.size() == 2 ? words[1] : GetTaggedPath(words[0]));
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run({argv + 1, static_cast<std::size_t>(argc > 0 ? argc - 1 : 0)});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "morvu-sign: %s\n", error.what());
    return kExitFailed;
  }
}
