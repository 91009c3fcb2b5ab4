// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// What each target of this folder defines: takes any bytes, gives 0, and ends the process where
/// the reader under test breaks what its header promises. Built with libFuzzer in the `fuzz`
/// preset, and with Replay.cpp in every other one.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

namespace zaffo::fuzz {

/// Ends the process, saying what, unless `holds`; also in builds without assertions.
inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken promise: %s\n", what);
  std::abort();
}

}  // namespace zaffo::fuzz
