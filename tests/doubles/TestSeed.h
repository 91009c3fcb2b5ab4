// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

namespace zaffo::test {

/// The seed of a test's random choices: the number in the environment's ZAFFO_TEST_SEED, to repeat
/// what failed; a new one otherwise. Put it into a SCOPED_TRACE, so that a failure tells it.
inline unsigned testSeed() {
  const char* const given = std::getenv("ZAFFO_TEST_SEED");
  const unsigned seed =
      given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device{}();
  testing::Test::RecordProperty("seed", std::to_string(seed));
  return seed;
}

}  // namespace zaffo::test
