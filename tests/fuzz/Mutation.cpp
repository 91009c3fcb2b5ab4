// SPDX-License-Identifier: Apache-2.0
#include "fuzz/Mutation.h"

#include <algorithm>
#include <array>

namespace zaffo::fuzz {
namespace {

// What sizes, counts and offsets go wrong at.
constexpr std::array<uint64_t, 10> kNumbers{
    0, 1, 0x7f, 0xff, 0x7fff, 0xffff, 0x7fffffff, 0xffffffff, 0x7fffffffffffffff, ~uint64_t{0}};
// Headers lie at the ends of a file, and are where damage leads furthest.
constexpr std::size_t kHeader = 2048;

}  // namespace

void Mutation::apply(Bytes& bytes) {
  const std::size_t most = bytes.size() * 2 + 64;
  for (std::size_t changes = 1 + below(8); changes > 0; --changes) change(bytes);
  if (bytes.size() > most) bytes.resize(most);
}

std::size_t Mutation::place(const Bytes& bytes) {
  const std::size_t header = std::min(kHeader, bytes.size());
  switch (below(3)) {
    case 0:
      return below(header);
    case 1:
      return bytes.size() - 1 - below(header);
    default:
      return below(bytes.size());
  }
}

void Mutation::change(Bytes& bytes) {
  if (bytes.empty()) bytes.push_back(static_cast<uint8_t>(below(256)));
  const std::size_t position = place(bytes);
  const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(position);
  const std::size_t length = 1 + below(std::min<std::size_t>(bytes.size() - position, 64));
  const auto end = at + static_cast<std::ptrdiff_t>(length);
  switch (below(12)) {
    case 0:
      bytes.erase(at, end);
      break;
    case 1: {
      const Bytes copy(at, end);
      bytes.insert(at, copy.begin(), copy.end());
      break;
    }
    case 2:
      bytes.resize(position);
      break;
    case 3:
    case 4:
    case 5:
      writeNumber(bytes, position);
      break;
    case 6:
      *at = static_cast<uint8_t>(below(256));
      break;
    default:
      *at ^= static_cast<uint8_t>(1U << below(8));
  }
}

/// Over one, two, four or eight bytes, in the order of containers.
void Mutation::writeNumber(Bytes& bytes, std::size_t position) {
  const std::size_t width = std::min(std::size_t{1} << below(4), bytes.size() - position);
  uint64_t number = kNumbers[below(kNumbers.size())];
  for (std::size_t i = width; i > 0; --i, number >>= 8) {
    bytes[position + i - 1] = static_cast<uint8_t>(number);
  }
}

}  // namespace zaffo::fuzz
