// Replays corpus directories or single files through the linked target, without the fuzzer.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "FuzzSupport.h"

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> o_Files;
  for (int i = 1; i < argc; ++i) {
    // Absolute: the target changes its working directory at the first input.
    const fs::path o_Arg = fs::absolute(argv[i]);
    if (!fs::is_directory(o_Arg)) o_Files.push_back(o_Arg);
    if (fs::is_directory(o_Arg))
      for (const auto& o_Entry : fs::recursive_directory_iterator(o_Arg))
        if (o_Entry.is_regular_file()) o_Files.push_back(o_Entry.path());
  }
  // A fixed order makes a failure depend on the files alone.
  std::sort(o_Files.begin(), o_Files.end());
  if (o_Files.empty()) {
    std::fprintf(stderr, "replay: no corpus files given\n");
    return 1;
  }
  for (const fs::path& o_File : o_Files) {
    // Named before it runs: when a check aborts, the last line names the input.
    std::fprintf(stderr, "replay: %s\n", o_File.c_str());
    std::ifstream o_In(o_File, std::ios::binary);
    const std::string str_Bytes{std::istreambuf_iterator<char>(o_In),
                                std::istreambuf_iterator<char>()};
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(str_Bytes.data()), str_Bytes.size());
  }
  std::printf("replay: %zu inputs, no failure\n", o_Files.size());
  return 0;
}
