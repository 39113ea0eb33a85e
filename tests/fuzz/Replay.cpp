// Runs a fuzz target without libFuzzer: on every file of the given folders, and on a fixed set
// of mutations of each, in the same order on every machine.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Input = std::vector<std::uint8_t>;

constexpr int kMutationsOfAnInput = 100;

// In a block of exactly its size, so that a sanitizer sees a read behind its end.
void RunOn(const Input& input) {
  const std::vector<std::uint8_t> exact(input.begin(), input.end());
  LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

void Mutate(Input& input, std::mt19937& random) {
  const auto below = [&random](std::size_t end) { return end == 0 ? 0 : random() % end; };
  switch (below(4)) {
    case 0:
      input.resize(below(input.size() + 1));
      break;
    case 1:
      input.insert(input.begin() + below(input.size() + 1), static_cast<std::uint8_t>(random()));
      break;
    case 2:
      if (!input.empty()) input[below(input.size())] ^= 1U << below(8);
      break;
    default:
      if (!input.empty()) input[below(input.size())] = random() % 2 ? 0xFF : 0x00;
      break;
  }
}

Input ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return Input(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

int main(int argc, char** argv) {
  std::set<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) {
      std::fprintf(stderr, "no corpus: %s\n", argv[i]);
      return 1;
    }
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      if (entry.is_regular_file()) files.insert(entry.path());
    }
  }

  std::vector<Input> inputs(1);
  for (const auto& file : files) inputs.push_back(ReadFile(file));
  for (const auto& input : inputs) {
    RunOn(input);
    std::mt19937 random(1);
    Input mutated = input;
    for (int i = 0; i < kMutationsOfAnInput; ++i) {
      // A few steps away from the input, then back to it.
      if (i % 5 == 0) mutated = input;
      Mutate(mutated, random);
      RunOn(mutated);
    }
  }
  std::printf("%zu inputs of the corpus and %zu mutations\n", files.size(),
              inputs.size() * kMutationsOfAnInput);
  return 0;
}
