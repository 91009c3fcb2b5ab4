// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/PresentedPictures.h"

#include <gtest/gtest.h>

namespace zaffo {
namespace {

CVPixelBufferPtr picture() {
  return std::make_shared<CVPixelBuffer>();
}

TEST(PresentedPictures, CountsEachPictureOnceHoweverOftenItIsPutOnScreen) {
  PresentedPictures pictures;
  const auto first = picture(), second = picture();
  for (const auto& shown : {first, first, second, second}) {
    pictures.noteGiven(shown);
    pictures.notePresented(shown, 100);
  }
  EXPECT_EQ(pictures.count(), 2u);
}

TEST(PresentedPictures, TellsWhenTheFirstOneWasPutOnScreen) {
  PresentedPictures pictures;
  EXPECT_EQ(pictures.firstHostTime(), 0);
  for (const int64_t host : {100, 200}) {
    const auto shown = picture();
    pictures.noteGiven(shown);
    pictures.notePresented(shown, host);
  }
  EXPECT_EQ(pictures.firstHostTime(), 100);
}

TEST(PresentedPictures, ALateWordOfAnotherPictureDoesNotCount) {
  PresentedPictures pictures;
  const auto first = picture(), second = picture();
  pictures.noteGiven(first);
  pictures.noteGiven(second);
  pictures.notePresented(first, 100);
  pictures.notePresented(nullptr, 100);
  EXPECT_EQ(pictures.count(), 0u);
  EXPECT_EQ(pictures.firstHostTime(), 0);
}

TEST(PresentedPictures, SomethingElseHasAFirstTimeOfItsOwn) {
  PresentedPictures pictures;
  const auto first = picture(), second = picture();
  pictures.noteGiven(first);
  pictures.notePresented(first, 100);
  pictures.beginAnew();
  EXPECT_EQ(pictures.firstHostTime(), 0);
  pictures.notePresented(first, 150);
  EXPECT_EQ(pictures.firstHostTime(), 0) << "that was on screen before";
  pictures.noteGiven(second);
  pictures.notePresented(second, 200);
  EXPECT_EQ(pictures.firstHostTime(), 200);
  EXPECT_EQ(pictures.count(), 2u) << "the count goes on";
}

TEST(PresentedPictures, WhatWasGivenMayBeForgotten) {
  PresentedPictures pictures;
  const auto shown = picture();
  pictures.noteGiven(shown);
  pictures.forgetGiven();
  pictures.notePresented(shown, 100);
  EXPECT_EQ(pictures.count(), 0u);
}

TEST(PresentedPictures, KeepsNoPicture) {
  PresentedPictures pictures;
  auto shown = picture();
  pictures.noteGiven(shown);
  pictures.notePresented(shown, 100);
  const std::weak_ptr<const CVPixelBuffer> weak = shown;
  shown.reset();
  EXPECT_TRUE(weak.expired());
}

}  // namespace
}  // namespace zaffo
