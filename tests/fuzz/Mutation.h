// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace zaffo::fuzz {

using Bytes = std::vector<uint8_t>;

/// Damages bytes the way files and lines get damaged; the same seed gives the same damage.
class Mutation {
 public:
  explicit Mutation(uint64_t seed) : random_(seed) {}

  /// A number below `end`, which is above 0.
  [[nodiscard]] std::size_t below(std::size_t end) { return random_() % end; }
  /// Makes one to eight changes. Never makes more than twice the bytes of it, and 64.
  void apply(Bytes& bytes);

 private:
  void change(Bytes& bytes);
  void writeNumber(Bytes& bytes, std::size_t position);
  [[nodiscard]] std::size_t place(const Bytes& bytes);

  std::mt19937_64 random_;
};

}  // namespace zaffo::fuzz
