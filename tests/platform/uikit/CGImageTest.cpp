// SPDX-License-Identifier: Apache-2.0
#include "platform/uikit/CGImage.h"

#include <gtest/gtest.h>
#include <png.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "platform/foundation/NSError.h"
#include "platform/uikit/UIImage.h"

namespace zaffo {
namespace {

using Pixels = std::vector<uint8_t>;

struct DecodedPNG {
  int width = 0, height = 0;
  bool hasAlpha = false;
  Pixels rgba;
};

DecodedPNG decode(const std::string& path) {
  DecodedPNG result;
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  EXPECT_TRUE(png_image_begin_read_from_file(&image, path.c_str())) << image.message;
  result.width = static_cast<int>(image.width);
  result.height = static_cast<int>(image.height);
  result.hasAlpha = (image.format & PNG_FORMAT_FLAG_ALPHA) != 0;
  image.format = PNG_FORMAT_RGBA;
  result.rgba.resize(PNG_IMAGE_SIZE(image));
  EXPECT_TRUE(png_image_finish_read(&image, nullptr, result.rgba.data(), 0, nullptr));
  return result;
}

class CGImageTest : public testing::Test {
 protected:
  void TearDown() override { std::filesystem::remove(path); }
  const std::string path = testing::TempDir() + "CGImageTest-" +
                           testing::UnitTest::GetInstance()->current_test_info()->name() + ".png";
};

TEST_F(CGImageTest, WritesAnOpaquePNGWithItsRowsAndColours) {
  // 2 x 2 pixels with 3 bytes of padding behind each row; bytes are B, G, R, A.
  const Pixels pixels{1, 2, 3, 255, 4,  5,  6,  255, 0, 0, 0,  //
                      7, 8, 9, 255, 10, 11, 12, 255, 0, 0, 0};
  const CGImage image(2, 2, 11, pixels);
  ASSERT_EQ(image.writePNG(path), nullptr);
  const DecodedPNG png = decode(path);
  EXPECT_EQ(png.width, 2);
  EXPECT_EQ(png.height, 2);
  EXPECT_FALSE(png.hasAlpha);
  EXPECT_EQ(png.rgba, (Pixels{3, 2, 1, 255, 6, 5, 4, 255, 9, 8, 7, 255, 12, 11, 10, 255}));
}

TEST_F(CGImageTest, WritesColoursAsTheyWereBeforeAlphaWasMultipliedIn) {
  const CGImage image(4, 1, 16, {0, 0, 0, 0, 64, 128, 32, 128, 1, 0, 1, 1, 200, 100, 50, 255});
  ASSERT_EQ(image.writePNG(path), nullptr);
  const DecodedPNG png = decode(path);
  EXPECT_TRUE(png.hasAlpha);
  EXPECT_EQ(png.rgba, (Pixels{0, 0, 0, 0, 64, 255, 128, 128, 255, 0, 255, 1, 50, 100, 200, 255}));
}

TEST_F(CGImageTest, LimitsColoursThatAreBrighterThanTheirAlpha) {
  const CGImage image(1, 1, 4, {200, 0, 0, 100});
  ASSERT_EQ(image.writePNG(path), nullptr);
  EXPECT_EQ(decode(path).rgba, (Pixels{0, 0, 255, 100}));
}

TEST_F(CGImageTest, IsEmptyWhenThePixelsDoNotFillIt) {
  for (const CGImage& image : {CGImage(2, 2, 8, Pixels(15)), CGImage(2, 2, 7, Pixels(16)),
                               CGImage(0, 2, 8, Pixels(16)), CGImage(2, -1, 8, Pixels(16)),
                               CGImage(1 << 30, 1 << 30, 16, Pixels(16)), CGImage(2, 2, 0, {})}) {
    EXPECT_EQ(image.width(), 0);
    EXPECT_EQ(image.height(), 0);
    const auto error = image.writePNG(path);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->code(), EINVAL);
    EXPECT_FALSE(std::filesystem::exists(path));
  }
}

TEST_F(CGImageTest, TellsWhyAFileCannotBeWritten) {
  const CGImage image(1, 1, 4, {0, 0, 0, 255});
  const auto error = image.writePNG(testing::TempDir() + "no/such/folder.png");
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->domain(), "NSPOSIXErrorDomain");
  EXPECT_EQ(error->code(), ENOENT);
  EXPECT_NE(error->localizedDescription().find("no/such/folder.png"), std::string::npos);
}

TEST_F(CGImageTest, TellsOfADiskThatIsFull) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "there is no /dev/full";
  // Through a link, so that what is cleaned up is the link.
  std::filesystem::create_symlink("/dev/full", path);
  const CGImage image(64, 64, 256, Pixels(64 * 256, 255));
  const auto error = image.writePNG(path);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->code(), ENOSPC);
  EXPECT_FALSE(std::filesystem::is_symlink(path));
}

TEST(CGImage, HasNoSizeWhenNull) {
  EXPECT_EQ(CGImageGetWidth(nullptr), 0);
  EXPECT_EQ(CGImageGetHeight(nullptr), 0);
}

TEST(UIImage, HasTheSizeOfItsPixels) {
  const auto pixels = std::make_shared<const CGImage>(3, 2, 12, Pixels(24));
  const auto image = UIImage::imageWithCGImage(pixels);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->cgImage(), pixels);
  EXPECT_EQ(image->size(), (CGSize{3, 2}));
  EXPECT_EQ(UIImage::imageWithCGImage(nullptr), nullptr);
  EXPECT_EQ(UIImage(nullptr).size(), CGSizeZero);
}

}  // namespace
}  // namespace zaffo
