// SPDX-License-Identifier: Apache-2.0
#include "companion/ShortVideoURL.h"

#include <gtest/gtest.h>

namespace zaffo {
namespace {

std::string shortened(const char* text) {
  const auto url = NSURL::URLWithString(text);
  return url ? shortVideoUrl(*url) : "malformed";
}

TEST(ShortVideoURL, IsTheNameOfALocalFile) {
  EXPECT_EQ(shortened("file:///home/me/videos/clip.mp4"), "clip.mp4");
  EXPECT_EQ(shortened("file:///a%20b.mp4"), "a b.mp4");
  EXPECT_EQ(shortened("file:///"), "/");
}

TEST(ShortVideoURL, IsHostAndNameOfARemoteVideo) {
  EXPECT_EQ(shortened("https://cdn.example.com/v/2/clip.mp4"), "cdn.example.com/clip.mp4");
  EXPECT_EQ(shortened("http://h/clip.mp4"), "h/clip.mp4");
}

TEST(ShortVideoURL, LeavesOutWhatNobodyShouldReadInALog) {
  EXPECT_EQ(shortened("https://me:secret@h:8443/v/clip.mp4?token=1#t=2"), "h/clip.mp4");
}

TEST(ShortVideoURL, IsTheHostAloneWithoutAName) {
  EXPECT_EQ(shortened("https://h"), "h");
  EXPECT_EQ(shortened("https://h/"), "h");
}

}  // namespace
}  // namespace zaffo
