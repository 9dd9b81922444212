// SPDX-License-Identifier: MIT
// A fuzz target as a plain program, for builds without libFuzzer: runs the
// target once on every file given, and on every file of every folder given
// (in name order, names starting with a dot left out). A finding aborts the
// program, as it would abort the fuzzer.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize);

namespace {

const char* const USAGE =
    "usage: %s [--help] [--version] PATH...\n"
    "Runs this fuzz target once on every file given and on every file of every\n"
    "folder given. Exit status: 0 when every input ran, 1 when a path cannot be\n"
    "read, 2 on a usage error; a finding aborts.\n";

bool Collect(const std::filesystem::path& p_cPath, std::vector<std::filesystem::path>& p_acFiles) {
  std::error_code l_cError;
  if (std::filesystem::is_directory(p_cPath, l_cError)) {
    std::vector<std::filesystem::path> l_acHere;
    for (const auto& l_cEntry : std::filesystem::directory_iterator(p_cPath, l_cError))
      if (l_cEntry.is_regular_file() && l_cEntry.path().filename().string()[0] != '.')
        l_acHere.push_back(l_cEntry.path());
    if (l_cError) return false;
    std::sort(l_acHere.begin(), l_acHere.end());
    p_acFiles.insert(p_acFiles.end(), l_acHere.begin(), l_acHere.end());
    return true;
  }
  if (!std::filesystem::is_regular_file(p_cPath, l_cError)) return false;
  p_acFiles.push_back(p_cPath);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> l_acFiles;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--help") == 0) {
      std::printf(USAGE, argv[0]);
      return 0;
    }
    if (std::strcmp(argv[i], "--version") == 0) {
      std::printf("%s (QUOR Steering) %s\n", argv[0], QUOR_VERSION);
      return 0;
    }
    if (argv[i][0] == '-') {
      std::fprintf(stderr, USAGE, argv[0]);
      return 2;
    }
    if (!Collect(argv[i], l_acFiles)) {
      std::fprintf(stderr, "%s: cannot read %s\n", argv[0], argv[i]);
      return 1;
    }
  }
  if (argc < 2) {
    std::fprintf(stderr, USAGE, argv[0]);
    return 2;
  }
  for (const std::filesystem::path& l_cFile : l_acFiles) {
    std::ifstream l_cStream(l_cFile, std::ios::binary);
    const std::vector<uint8_t> l_aInput((std::istreambuf_iterator<char>(l_cStream)),
                                        std::istreambuf_iterator<char>());
    if (!l_cStream.good() && !l_cStream.eof()) {
      std::fprintf(stderr, "%s: cannot read %s\n", argv[0], l_cFile.c_str());
      return 1;
    }
    // A copy of exactly the input's size, as the fuzzer hands it over.
    std::unique_ptr<uint8_t[]> l_cCopy(new uint8_t[l_aInput.size()]);
    if (!l_aInput.empty()) std::memcpy(l_cCopy.get(), l_aInput.data(), l_aInput.size());
    LLVMFuzzerTestOneInput(l_cCopy.get(), l_aInput.size());
  }
  std::fprintf(stderr, "%s: %zu inputs ran\n", argv[0], l_acFiles.size());
  return 0;
}
