// Runs a fuzzer's inputs without libFuzzer: each file in the arguments, and each file in a folder
// in the arguments, once. Fails when there is none.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "files.h"

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int inputs = 0;

void replay(const fs::path& path) {
  // The output before a crash names the input.
  fprintf(stderr, "%s\n", path.c_str());
  // A copy of the exact size, to detect reads past the end.
  const std::vector<uint8_t> bytes = readBytes(path);
  const std::vector<uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
  ++inputs;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (!fs::is_directory(argv[i])) {
      replay(argv[i]);
      continue;
    }
    for (const auto& entry : fs::recursive_directory_iterator(argv[i])) {
      if (entry.is_regular_file()) replay(entry.path());
    }
  }
  fprintf(stderr, "%d inputs\n", inputs);
  return inputs > 0 ? 0 : 1;
}
