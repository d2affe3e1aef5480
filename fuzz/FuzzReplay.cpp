// Runs a fuzzer's entry point once on every input of the corpus directories given, so that its
// reference model checks the library in every build and test run, not only in fuzzing runs.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  int replayed = 0;
  for (int index = 1; index < argc; ++index) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[index])) {
      std::ifstream in(entry.path(), std::ios::binary);
      const std::vector<uint8_t> input((std::istreambuf_iterator<char>(in)), {});
      LLVMFuzzerTestOneInput(input.data(), input.size());
      ++replayed;
    }
  }
  // A divergence aborts; an empty corpus replays nothing and must not pass for a success.
  std::printf("%d inputs replayed without a divergence\n", replayed);
  return replayed > 0 ? 0 : 1;
}
