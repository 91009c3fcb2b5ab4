// SPDX-License-Identifier: Apache-2.0

// Runs a target without a fuzzer: over each file named, and over damaged copies of them.
//   PROGRAM [--seed N] [--mutations N] FILE|FOLDER...
// Damaged copy i is made with seed N + i and said before it runs, so that
// `--seed THAT --mutations 1` with the same files makes a failure again.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/FuzzTarget.h"
#include "fuzz/Mutation.h"

namespace {

using zaffo::fuzz::Bytes;
using zaffo::fuzz::Mutation;
namespace fs = std::filesystem;

// Larger files cost time, and show nothing that smaller ones of their kind do not.
constexpr std::uintmax_t kLargest = 64 * 1024;

struct Options {
  uint64_t seed = 1;
  uint64_t mutations = 0;
  std::vector<fs::path> files{};
};

void addFiles(const fs::path& path, std::vector<fs::path>& files) {
  if (!fs::is_directory(path)) {
    files.push_back(path);
    return;
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
    if (entry.is_regular_file() && entry.file_size() <= kLargest) files.push_back(entry.path());
  }
}

Options parse(int count, char** arguments) {
  Options options;
  for (int i = 1; i < count; ++i) {
    const bool more = i + 1 < count;
    if (more && !std::strcmp(arguments[i], "--seed")) {
      options.seed = std::strtoull(arguments[++i], nullptr, 10);
    } else if (more && !std::strcmp(arguments[i], "--mutations")) {
      options.mutations = std::strtoull(arguments[++i], nullptr, 10);
    } else {
      addFiles(arguments[i], options.files);
    }
  }
  std::sort(options.files.begin(), options.files.end());
  return options;
}

Bytes read(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    std::exit(2);
  }
  return Bytes(std::istreambuf_iterator<char>(stream), {});
}

void run(const Bytes& bytes) {
  // A copy of just its size, so that a sanitizer sees what reads past its end.
  const Bytes exact(bytes.begin(), bytes.end());
  (void)LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

}  // namespace

int main(int count, char** arguments) {
  const Options options = parse(count, arguments);
  if (options.files.empty()) {
    std::fprintf(stderr, "usage: %s [--seed N] [--mutations N] FILE|FOLDER...\n", arguments[0]);
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  for (const fs::path& file : options.files) {
    std::printf("%s\n", file.filename().c_str());
    run(read(file));
  }
  for (uint64_t i = 0; i < options.mutations; ++i) {
    Mutation mutation(options.seed + i);
    const fs::path& file = options.files[mutation.below(options.files.size())];
    std::printf("seed %llu: %s\n", static_cast<unsigned long long>(options.seed + i),
                file.filename().c_str());
    Bytes bytes = read(file);
    mutation.apply(bytes);
    run(bytes);
  }
  return 0;
}
