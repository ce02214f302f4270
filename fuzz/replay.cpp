// SPDX-License-Identifier: MIT
// Runs a fuzz target without libFuzzer: once for each named file, and for each file in a named
// folder.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using std::filesystem::path;

std::vector<path> FilesOf(const path& named) {
  if (!is_directory(named)) return {named};
  std::vector<path> files;
  for (const auto& entry : std::filesystem::directory_iterator(named)) {
    files.push_back(entry.path());
  }
  return files;
}

bool Replay(const path& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::vector<char> content{std::istreambuf_iterator<char>(stream), {}};
  if (!stream.is_open()) {
    std::fprintf(stderr, "%s cannot be read\n", file.c_str());
    return false;
  }
  std::printf("%s\n", file.c_str());
  std::fflush(stdout);  // so that it is printed before the report of a finding
  // Memory of the exact size, so that a read past the end is detected.
  const std::vector<std::uint8_t> input(content.begin(), content.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  std::size_t replayed = 0;
  for (int i = 1; i < count; ++i) {
    for (const path& file : FilesOf(arguments[i])) {
      if (!Replay(file)) return 1;
      ++replayed;
    }
  }
  std::printf("%zu inputs replayed\n", replayed);
  return replayed > 0 ? 0 : 1;  // an empty corpus tests nothing
}
