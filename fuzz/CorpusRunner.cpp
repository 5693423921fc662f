// The main of a fuzz target built without libFuzzer (the default preset): every file of the
// folders and files named on the command line, in name order, goes once through the target's
// LLVMFuzzerTestOneInput. A seed or a crash input that breaks a check aborts the program, which
// fails its ctest test. Exit status 1 when no input was found, so that an empty corpus is noticed.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::filesystem::path> inputsOf(const std::filesystem::path& path) {
  std::vector<std::filesystem::path> files;
  if (std::filesystem::is_directory(path)) {
    for (const auto& entry : std::filesystem::directory_iterator(path))
      if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
  } else if (std::filesystem::is_regular_file(path)) {
    files.push_back(path);
  }
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& file : inputsOf(argv[i])) {
      std::ifstream in(file, std::ios::binary);
      const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      std::fprintf(stderr, "%s (%zu bytes)\n", file.c_str(), bytes.size());
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
      ++count;
    }
  }
  std::printf("%zu inputs run\n", count);
  return count > 0 ? 0 : 1;
}
