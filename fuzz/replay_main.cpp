#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz_target.hpp"

// Tries every file of the given folders, or the given files, with any compiler: what the fuzzers once found stays
// found.
int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  int count = 0;
  const auto replay = [&count](const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    // Exactly as large as the input, so that a sanitiser sees each step beyond it.
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++count;
  };
  for (int i = 1; i < argc; ++i) {
    if (fs::is_directory(argv[i])) {
      for (const fs::directory_entry& entry : fs::directory_iterator(argv[i])) replay(entry.path());
    } else {
      replay(argv[i]);
    }
  }
  std::printf("%d inputs\n", count);
  return count > 0 ? 0 : 1;
}
