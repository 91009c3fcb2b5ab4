// SPDX-License-Identifier: Apache-2.0
#include "text/TextImage.h"

#include <fontconfig/fontconfig.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace zaffo::feed {
namespace {

TextStyle wide(double width = 300) {
  return {.size = 18, .width = width, .isCentred = true};
}

int brightPixels(const CGImage& image) {
  int count = 0;
  for (int y = 0; y < image.height(); ++y) {
    const uint8_t* row = image.pixels() + static_cast<std::size_t>(y) * image.stride();
    for (int x = 0; x < image.width(); ++x) count += row[x * 4] > 200 ? 1 : 0;
  }
  return count;
}

/// Whether an image has pixels that are neither grey nor nothing.
bool isColored(const CGImage& image) {
  for (std::size_t i = 0; i < static_cast<std::size_t>(image.height()) * image.stride(); i += 4) {
    const uint8_t* pixel = image.pixels() + i;
    if (std::max({pixel[0], pixel[1], pixel[2]}) - std::min({pixel[0], pixel[1], pixel[2]}) > 40)
      return true;
  }
  return false;
}

bool samePixels(const CGImage& a, const CGImage& b) {
  return a.width() == b.width() && a.height() == b.height() &&
         std::equal(a.pixels(), a.pixels() + static_cast<std::size_t>(a.height()) * a.stride(),
                    b.pixels());
}

/// Whether a font of the system has a letter.
bool systemHas(char32_t letter, bool inColor = false) {
  FcPattern* pattern = FcPatternCreate();
  if (inColor) FcPatternAddBool(pattern, FC_COLOR, FcTrue);
  FcCharSet* wanted = FcCharSetCreate();
  FcCharSetAddChar(wanted, letter);
  FcPatternAddCharSet(pattern, FC_CHARSET, wanted);
  FcObjectSet* objects = FcObjectSetBuild(FC_FILE, nullptr);
  FcFontSet* fonts = FcFontList(nullptr, pattern, objects);
  const bool has = fonts && fonts->nfont > 0;
  if (fonts) FcFontSetDestroy(fonts);
  FcObjectSetDestroy(objects);
  FcCharSetDestroy(wanted);
  FcPatternDestroy(pattern);
  return has;
}

TEST(TextImage, DrawsWhiteLettersOnNothing) {
  const auto image = renderText("It cannot be played.", wide(), 1);
  ASSERT_NE(image, nullptr);
  EXPECT_LE(image->width(), 300);
  EXPECT_GT(brightPixels(*image), 200);
  for (std::size_t i = 0; i < static_cast<std::size_t>(image->height()) * image->stride(); i += 4) {
    const uint8_t* pixel = image->pixels() + i;
    ASSERT_LE(std::max({pixel[0], pixel[1], pixel[2]}), pixel[3]) << "not premultiplied";
  }
}

TEST(TextImage, AtTwiceTheDensityItHasTwiceAsManyPixelsEachWay) {
  const auto one = renderText("It cannot be played.", wide(), 1);
  const auto two = renderText("It cannot be played.", wide(), 2);
  ASSERT_TRUE(one && two);
  EXPECT_NEAR(two->width(), 2 * one->width(), 8);
  EXPECT_NEAR(two->height(), 2 * one->height(), 3);
}

TEST(TextImage, BreaksLongTextIntoLinesBetweenWords) {
  const auto one = renderText("short", wide(), 1);
  const auto many = renderText(
      "a text that is quite a bit longer than what fits into one line of three hundred pixels",
      wide(), 1);
  ASSERT_TRUE(one && many);
  EXPECT_GE(many->height(), 2 * one->height());
  EXPECT_LE(many->width(), 300);
  EXPECT_TRUE(samePixels(*renderText("first second", wide(70), 1),
                         *renderText("first\nsecond", wide(70), 1)));
}

TEST(TextImage, AWordThatIsLongerThanALineIsBrokenAnywhere) {
  const auto image = renderText(std::string(80, 'm'), wide(100), 1);
  ASSERT_NE(image, nullptr);
  EXPECT_LE(image->width(), 100);
  EXPECT_GT(image->height(), 200);
}

TEST(TextImage, WhatDoesNotFitIntoTheLinesThereAreEndsInAnEllipsis) {
  TextStyle style = wide(100);
  style.lines = 1;
  const auto cut = renderText("one two three four five", style, 1);
  ASSERT_NE(cut, nullptr);
  EXPECT_LE(cut->width(), 100);
  EXPECT_EQ(cut->height(), renderText("one", style, 1)->height());
  EXPECT_TRUE(samePixels(*renderText("one", style, 1), *renderText("one\n", style, 1)));
}

TEST(TextImage, DrawsLettersOfOtherLanguages) {
  const auto image = renderText("Größe, étude, видео", wide(), 1);
  ASSERT_NE(image, nullptr);
  EXPECT_GT(brightPixels(*image), 200);
}

TEST(TextImage, DrawsJapaneseInAFontOfTheSystemAndBreaksItBetweenLetters) {
  if (!systemHas(U'花')) GTEST_SKIP() << "no font has Japanese letters";
  const auto one = renderText("花", wide(), 1), other = renderText("火", wide(), 1);
  ASSERT_TRUE(one && other);
  EXPECT_FALSE(samePixels(*one, *other)) << "both are the box of a letter that is missing";
  const auto many = renderText("日本の夏の花火大会の動画", wide(100), 1);
  EXPECT_LE(many->width(), 100);
  EXPECT_GT(many->height(), 2 * one->height());
}

TEST(TextImage, ArabicLettersAreJoinedAndRunFromTheRight) {
  if (!systemHas(U'\u0628')) GTEST_SKIP() << "no font has Arabic letters";
  const auto joined = renderText("ببب", wide(), 1);
  const auto apart = renderText("ب\u200Cب\u200Cب", wide(), 1);
  ASSERT_TRUE(joined && apart);
  EXPECT_LT(joined->width(), apart->width()) << "letters within a word are narrower";
  const auto mixed = renderText("ا1", wide(), 1), turned = renderText("1\u200Eا", wide(), 1);
  EXPECT_TRUE(mixed && turned);
}

TEST(TextImage, EmojiAreInColoursAndAsHighAsTheLine) {
  if (!systemHas(U'\U0001F386', true)) GTEST_SKIP() << "no font has emoji in colours";
  const auto image = renderText("\U0001F386", wide(), 1);
  ASSERT_NE(image, nullptr);
  EXPECT_TRUE(isColored(*image));
  EXPECT_LE(image->height(), 40);
}

TEST(TextImage, TextThatIsEmptyOrBrokenGivesNoImageAndNoCrash) {
  EXPECT_EQ(renderText("", wide(), 1), nullptr);
  for (const char* text : {"\xff\xfe.mp4", "\xe3\x81", "\xed\xa0\x80", "\n", " ", "\u200D\u0301"}) {
    const auto broken = renderText(text, wide(), 1);
    EXPECT_TRUE(!broken || broken->width() > 0) << text;
  }
}

TEST(TextImage, AnAbsurdWidthIsSurvived) {
  EXPECT_NE(renderText("narrow", wide(1), 1), nullptr);
  EXPECT_NE(renderText("narrow", wide(-5), 1), nullptr);
  EXPECT_NE(renderText("two words", {.size = 18, .width = 1, .lines = 1}, 1), nullptr);
}

}  // namespace
}  // namespace zaffo::feed
