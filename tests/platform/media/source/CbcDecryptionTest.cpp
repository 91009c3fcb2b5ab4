// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/CbcDecryption.h"

#include <gtest/gtest.h>

#include <vector>

namespace zaffo::media {
namespace {

constexpr CipherBlock kKey{0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                           0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};
constexpr CipherBlock kVector{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
// The first two blocks of a published example.
constexpr std::array<uint8_t, 32> kPlain{
    0x6b, 0xc1, 0xbe, 0xe2, 0x2e, 0x40, 0x9f, 0x96, 0xe9, 0x3d, 0x7e, 0x11, 0x73, 0x93, 0x17, 0x2a,
    0xae, 0x2d, 0x8a, 0x57, 0x1e, 0x03, 0xac, 0x9c, 0x9e, 0xb7, 0x6f, 0xac, 0x45, 0xaf, 0x8e, 0x51};
constexpr std::array<uint8_t, 32> kEncrypted{
    0x76, 0x49, 0xab, 0xac, 0x81, 0x19, 0xb2, 0x46, 0xce, 0xe9, 0x8e, 0x9b, 0x12, 0xe9, 0x19, 0x7d,
    0x50, 0x86, 0xcb, 0x9b, 0x50, 0x72, 0x19, 0xee, 0x95, 0xdb, 0x11, 0x3a, 0x91, 0x76, 0x78, 0xb2};

TEST(CbcDecryption, DecryptsFromTheFirstBlockAndFromALaterOne) {
  auto all = kEncrypted;
  ASSERT_TRUE(decryptCbc(kKey, kVector, all));
  EXPECT_EQ(all, kPlain);

  std::vector<uint8_t> second(kEncrypted.begin() + kCipherBlock, kEncrypted.end());
  CipherBlock before{};
  std::copy_n(kEncrypted.begin(), before.size(), before.begin());
  ASSERT_TRUE(decryptCbc(kKey, before, second));
  EXPECT_EQ(second, std::vector<uint8_t>(kPlain.begin() + kCipherBlock, kPlain.end()));
}

TEST(CbcDecryption, KnowsPadding) {
  std::vector<uint8_t> block(kCipherBlock, 0x55);
  EXPECT_EQ(paddingOf(block), 0U);
  block.back() = 1;
  EXPECT_EQ(paddingOf(block), 1U);
  block.back() = 2;
  EXPECT_EQ(paddingOf(block), 0U);
  EXPECT_EQ(paddingOf(std::vector<uint8_t>(kCipherBlock, kCipherBlock)), kCipherBlock);
  EXPECT_EQ(paddingOf(std::vector<uint8_t>(kCipherBlock, 0)), 0U);
  EXPECT_EQ(paddingOf({}), 0U);
}

}  // namespace
}  // namespace zaffo::media
