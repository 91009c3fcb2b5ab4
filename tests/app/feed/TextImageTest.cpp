#include "feed/TextImage.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace zaffo::feed {
namespace {

int brightPixels(const CGImage& image) {
  int count = 0;
  for (int y = 0; y < image.height(); ++y) {
    const uint8_t* row = image.pixels() + static_cast<std::size_t>(y) * image.stride();
    for (int x = 0; x < image.width(); ++x) count += row[x * 4] > 200 ? 1 : 0;
  }
  return count;
}

TEST(TextImage, DrawsWhiteLettersOnNothing) {
  const auto image = renderText("It cannot be played.", 300, 18);
  ASSERT_NE(image, nullptr);
  EXPECT_LE(image->width(), 300);
  EXPECT_GT(brightPixels(*image), 200);
  for (std::size_t i = 0; i < static_cast<std::size_t>(image->height()) * image->stride(); i += 4) {
    const uint8_t* pixel = image->pixels() + i;
    ASSERT_LE(std::max({pixel[0], pixel[1], pixel[2]}), pixel[3]) << "not premultiplied";
  }
}

TEST(TextImage, BreaksLongTextIntoLines) {
  const auto one = renderText("short", 300, 18);
  const auto many = renderText(
      "a text that is quite a bit longer than what fits into one line of three hundred pixels", 300,
      18);
  ASSERT_TRUE(one && many);
  EXPECT_GE(many->height(), 2 * one->height());
  EXPECT_LE(many->width(), 300);
}

TEST(TextImage, DrawsLettersOfOtherLanguages) {
  const auto image = renderText("Größe, étude, видео", 300, 18);
  ASSERT_NE(image, nullptr);
  EXPECT_GT(brightPixels(*image), 200);
}

TEST(TextImage, TextThatIsEmptyOrBrokenGivesNoImageAndNoCrash) {
  EXPECT_EQ(renderText("", 300, 18), nullptr);
  const auto broken = renderText("\xff\xfe.mp4", 300, 18);
  EXPECT_TRUE(!broken || broken->width() > 0);
}

TEST(TextImage, AnAbsurdWidthIsSurvived) {
  EXPECT_NE(renderText("narrow", 1, 18), nullptr);
  EXPECT_NE(renderText("narrow", -5, 18), nullptr);
}

}  // namespace
}  // namespace zaffo::feed
