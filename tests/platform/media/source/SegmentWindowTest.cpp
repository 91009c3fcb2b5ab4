// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/SegmentWindow.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "doubles/TestSeed.h"

namespace zaffo::media {
namespace {

constexpr int kRate = 30;
/// So many samples tell, where decode times do not, that nothing follows before the earliest.
constexpr int kReordered = 17;

CMTime frames(double count) {
  return CMTimeMake(std::llround(count * 2), 2 * kRate);
}

/// A picture as it comes out of a file, times in frames.
struct Picture {
  int presentation = 0;
  bool isSync = false;
  bool isShown = true;
};

/// Pictures in the order in which they are decoded. "I0 P3 B1 B2": I can be decoded alone; a
/// bracket around one means that the file itself does not show it.
std::vector<Picture> pictures(const std::string& text) {
  std::vector<Picture> result;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    Picture picture;
    picture.isShown = word.front() != '(';
    const std::string name = picture.isShown ? word : word.substr(1, word.size() - 2);
    picture.isSync = name.front() == 'I';
    picture.presentation = std::stoi(name.substr(1));
    result.push_back(picture);
  }
  return result;
}

Sample sampleOf(const Picture& picture, CMTime decode) {
  Sample sample;
  sample.packet.reset(av_packet_alloc());
  sample.presentation = frames(picture.presentation);
  sample.duration = frames(1);
  sample.decode = decode;
  sample.sync = picture.isSync;
  sample.decodeOnly = !picture.isShown;
  return sample;
}

/// With the decode times that a container tells, or without.
enum class Decode { Told, Unknown };

std::vector<Sample> samplesOf(const std::vector<Picture>& all, Decode decode) {
  std::vector<Sample> samples;
  for (std::size_t i = 0; i < all.size(); ++i) {
    int earliest = std::numeric_limits<int>::max();
    for (std::size_t j = i; j < all.size(); ++j) {
      earliest = std::min(earliest, all[j].presentation);
    }
    samples.push_back(sampleOf(all[i], decode == Decode::Told ? frames(earliest) : kCMTimeInvalid));
  }
  return samples;
}

/// What was given, in order: "(0) 3 1 2" when 0 is decoded and not shown.
std::string giveAll(SegmentWindow& window) {
  std::string text;
  Sample sample;
  while (window.give(sample)) {
    const auto frame = std::llround(CMTimeGetSeconds(sample.presentation) * kRate);
    const std::string number = std::to_string(frame);
    text += (text.empty() ? "" : " ") + (sample.decodeOnly ? "(" + number + ")" : number);
  }
  return text;
}

/// What a range takes of a source, read no further than the window asks for.
std::string cut(const std::string& source, double start, double end, Decode decode = Decode::Told) {
  SegmentWindow window(AVMediaTypeVideo, CMTimeRangeFromTimeToTime(frames(start), frames(end)));
  std::string text;
  const auto note = [&text, &window] {
    const std::string more = giveAll(window);
    text += (text.empty() || more.empty() ? "" : " ") + more;
  };
  for (Sample& sample : samplesOf(pictures(source), decode)) {
    if (window.isComplete()) break;
    window.take(std::move(sample));
    note();
  }
  window.finish();
  note();
  return text;
}

TEST(SegmentWindow, TimesANanosecondApartAreOneTime) {
  const CMTime second = CMTimeMake(1, 1);
  EXPECT_FALSE(isClearlyBefore(second, second));
  EXPECT_FALSE(isClearlyBefore(CMTimeMake(1'999'999'999, 2'000'000'000), second));
  EXPECT_TRUE(isClearlyBefore(CMTimeMake(999'999'999, 1'000'000'000), second));
  EXPECT_FALSE(isClearlyBefore(second, CMTimeMake(1, 2)));
}

TEST(SegmentWindow, OneWithoutARangeHasNothingToGive) {
  SegmentWindow window;
  Sample sample;
  EXPECT_TRUE(window.isComplete());
  EXPECT_FALSE(window.give(sample));
}

TEST(SegmentWindow, ShowsWhatBeginsInTheRange) {
  EXPECT_EQ(cut("I0 P1 P2 P3 P4 P5", 0, 3), "0 1 2");
}

TEST(SegmentWindow, AFrameThatTheStartFallsIntoIsShown) {
  EXPECT_EQ(cut("I0 P1 P2 P3 P4 P5", 2.5, 4), "(0) (1) 2 3");
}

TEST(SegmentWindow, AFrameThatBeginsAtTheStartReplacesTheOneBefore) {
  EXPECT_EQ(cut("I0 P1 P2 P3 P4 P5", 2, 4), "(0) (1) 2 3");
}

TEST(SegmentWindow, FramesBeforeTheStartAreDecodedAndNotShown) {
  EXPECT_EQ(cut("I0 P3 B1 B2 P6 B4 B5", 3, 6), "(0) 3 (1) (2) (6) 4 5");
}

TEST(SegmentWindow, TheLastFrameBeforeTheStartIsFoundAmongReorderedOnes) {
  EXPECT_EQ(cut("I0 P3 B1 B2 P6 B4 B5", 2.5, 6), "(0) 3 (1) 2 (6) 4 5");
  EXPECT_EQ(cut("I0 P3 B1 B2 P6 B4 B5", 1.5, 6), "(0) 3 1 2 (6) 4 5");
}

TEST(SegmentWindow, AFrameBehindTheEndThatOthersLeanOnIsDecoded) {
  EXPECT_EQ(cut("I0 P3 B1 B2 P6 B4 B5", 0, 5), "0 3 1 2 (6) 4");
  EXPECT_EQ(cut("I0 P3 B1 B2 P6 B4 B5", 0, 4), "0 3 1 2");
}

TEST(SegmentWindow, FramesThatTheFileHidesStayHidden) {
  EXPECT_EQ(cut("I0 (P1) P2 (B3) P4", 0, 5), "0 (1) 2 (3) 4");
  EXPECT_EQ(cut("I0 (P1) P2", 1, 3), "0 (1) 2");
}

TEST(SegmentWindow, FramesShownBeforeTheSyncSampleThatFollowItAreLeftOut) {
  EXPECT_EQ(cut("I6 B4 B5 P9 B7 B8", 6, 9), "6 (9) 7 8");
}

TEST(SegmentWindow, FramesShownBeforeTheSyncSampleAreTakenWhenTheRangeBeginsThere) {
  EXPECT_EQ(cut("I6 B4 B5 P9 B7 B8", 5, 8), "6 (4) 5 (9) 7");
}

TEST(SegmentWindow, IsCompleteAtTheFirstSampleThatIsDecodedAtTheEnd) {
  SegmentWindow window(AVMediaTypeVideo, CMTimeRangeFromTimeToTime(frames(0), frames(3)));
  for (Sample& sample : samplesOf(pictures("I0 P1 P2"), Decode::Told)) {
    window.take(std::move(sample));
    EXPECT_FALSE(window.isComplete());
  }
  window.take(sampleOf({.presentation = 3}, frames(3)));
  EXPECT_TRUE(window.isComplete());
}

TEST(SegmentWindow, WithoutDecodeTimesItReadsAsFarAsAnyCodecReorders) {
  SegmentWindow window(AVMediaTypeVideo, CMTimeRangeFromTimeToTime(frames(0), frames(2)));
  int taken = 0;
  for (int i = 0; !window.isComplete() && i < 100; ++i, ++taken) {
    window.take(sampleOf({.presentation = i, .isSync = i == 0}, kCMTimeInvalid));
  }
  EXPECT_EQ(taken, 2 + kReordered);
  EXPECT_EQ(giveAll(window), "0 1");
}

TEST(SegmentWindow, WithoutDecodeTimesTheStartWaitsForAsMany) {
  SegmentWindow window(AVMediaTypeVideo, CMTimeRangeFromTimeToTime(frames(0.5), frames(100)));
  for (int i = 0; i < kReordered; ++i) {
    window.take(sampleOf({.presentation = i, .isSync = i == 0}, kCMTimeInvalid));
    EXPECT_EQ(giveAll(window), "") << i;
  }
  window.take(sampleOf({.presentation = kReordered}, kCMTimeInvalid));
  EXPECT_EQ(giveAll(window), "0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17");
}

TEST(SegmentWindow, TheStartIsKnownOnceASampleIsDecodedBehindIt) {
  SegmentWindow window(AVMediaTypeVideo, CMTimeRangeFromTimeToTime(frames(0), frames(9)));
  window.take(sampleOf({.presentation = 0, .isSync = true}, frames(-1)));
  EXPECT_EQ(giveAll(window), "");
  window.take(sampleOf({.presentation = 3}, frames(1)));
  EXPECT_EQ(giveAll(window), "0 3");
}

TEST(SegmentWindow, WhatWaitsIsGivenWhenTheSourceEnds) {
  SegmentWindow window(AVMediaTypeVideo, CMTimeRangeFromTimeToTime(frames(5), frames(9)));
  window.take(sampleOf({.presentation = 0, .isSync = true}, kCMTimeInvalid));
  window.take(sampleOf({.presentation = 1}, kCMTimeInvalid));
  EXPECT_EQ(giveAll(window), "(0)");
  window.finish();
  EXPECT_TRUE(window.isComplete());
  EXPECT_EQ(giveAll(window), "1");
}

TEST(SegmentWindow, AFrameWithoutATimeIsDecodedAndNotShown) {
  SegmentWindow window(AVMediaTypeVideo, CMTimeRangeFromTimeToTime(frames(0), frames(9)));
  Sample untimed = sampleOf({.isSync = true}, kCMTimeInvalid);
  untimed.presentation = kCMTimeInvalid;
  window.take(std::move(untimed));
  Sample given;
  ASSERT_TRUE(window.give(given));
  EXPECT_TRUE(given.decodeOnly);
}

TEST(SegmentWindow, AFrameThatBeginsWhereTheRangeEndsButForRoundingIsBehindIt) {
  const CMTime end = CMTimeMake(100'000'000, 1'000'000'000);
  SegmentWindow window(AVMediaTypeVideo, {kCMTimeZero, end});
  window.take(sampleOf({.presentation = 0, .isSync = true}, frames(0)));
  Sample third = sampleOf({}, CMTimeMake(3, 30));
  third.presentation = CMTimeSubtract(end, CMTimeMake(1, 2'000'000'000));
  window.take(std::move(third));
  EXPECT_TRUE(window.isComplete());
  EXPECT_EQ(giveAll(window), "0");
}

/// Groups of pictures as an encoder might make them, in decode order.
std::vector<Picture> randomPictures(std::mt19937& random) {
  const auto upTo = [&random](int most) { return std::uniform_int_distribution(0, most)(random); };
  std::vector<Picture> result;
  int next = 0;
  while (next < 40) {
    const bool isSync = next == 0 || upTo(5) == 0;
    const int between = isSync ? 0 : upTo(3);
    result.push_back({.presentation = next + between, .isSync = isSync});
    for (int i = 0; i < between; ++i) {
      result.push_back({.presentation = next + i});
    }
    next += between + 1;
  }
  return result;
}

/// Without what is not shown at the end: whether something shown leans on it is not known before
/// all has been read.
std::string upToLastShown(const std::string& given) {
  std::string text, sinceShown;
  std::istringstream words(given);
  for (std::string word; words >> word;) {
    sinceShown += (text.empty() && sinceShown.empty() ? "" : " ") + word;
    if (word.front() != '(') text += std::exchange(sinceShown, "");
  }
  return text;
}

TEST(SegmentWindow, TakesFromAnyStreamWhatAnyRangeShowsAndWhatThatLeansOn) {
  const unsigned seed = test::testSeed();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int round = 0; round < 150; ++round) {
    std::vector<Picture> all = randomPictures(random);
    const double start = std::uniform_int_distribution(0, 70)(random) / 2.0;
    const double end = start + std::uniform_int_distribution(1, 30)(random) / 2.0;
    const auto isBefore = [start](const Picture& p) { return p.presentation <= start; };
    // The source begins with the last sync sample up to the start.
    const auto isStart = [&](const Picture& p) { return p.isSync && isBefore(p); };
    const auto sync = std::find_if(all.rbegin(), all.rend(), isStart);
    all.erase(all.begin(), sync.base() - 1);
    int first = 0;
    for (const Picture& picture : all) {
      if (isBefore(picture)) first = std::max(first, picture.presentation);
    }
    const auto isWanted = [&](const Picture& p) {
      return p.presentation >= first && p.presentation < end;
    };
    std::size_t lastWanted = 0;
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (isWanted(all[i])) lastWanted = i;
    }
    std::string expected;
    for (std::size_t i = 0; i <= lastWanted; ++i) {
      const std::string number = std::to_string(all[i].presentation);
      expected += (i == 0 ? "" : " ") + (isWanted(all[i]) ? number : "(" + number + ")");
    }
    std::string text;
    for (const Picture& picture : all) {
      text += (picture.isSync ? "I" : "P") + std::to_string(picture.presentation) + " ";
    }
    for (const Decode decode : {Decode::Told, Decode::Unknown}) {
      ASSERT_EQ(upToLastShown(cut(text, start, end, decode)), expected)
          << text << "from " << start << " to " << end << ", round " << round;
    }
  }
}

Sample soundAt(CMTime time, CMTime duration) {
  Sample sample;
  sample.packet.reset(av_packet_alloc());
  sample.presentation = sample.decode = time;
  sample.duration = duration;
  sample.sync = true;
  return sample;
}

std::string cutSound(double start, double end, CMTime duration = frames(1)) {
  SegmentWindow window(AVMediaTypeAudio, CMTimeRangeFromTimeToTime(frames(start), frames(end)));
  for (int i = 0; i < 20 && !window.isComplete(); ++i) window.take(soundAt(frames(i), duration));
  return giveAll(window);
}

TEST(SegmentWindow, SoundIsHeardFromTheSampleOnThatTheStartFallsInto) {
  EXPECT_EQ(cutSound(2.5, 5), "(0) (1) 2 3 4");
  EXPECT_EQ(cutSound(2, 4.5), "(0) (1) 2 3 4");
}

TEST(SegmentWindow, SoundOfUnknownLengthIsNotTakenForOver) {
  EXPECT_EQ(cutSound(2, 4, kCMTimeInvalid), "0 1 2 3");
}

TEST(SegmentWindow, SoundWithoutATimeFollowsThatBeforeIt) {
  SegmentWindow window(AVMediaTypeAudio, CMTimeRangeFromTimeToTime(frames(0), frames(2)));
  window.take(soundAt(frames(0), frames(1)));
  window.take(soundAt(kCMTimeInvalid, frames(1)));
  EXPECT_FALSE(window.isComplete());
  Sample given;
  ASSERT_TRUE(window.give(given));
  ASSERT_TRUE(window.give(given));
  EXPECT_FALSE(given.decodeOnly);
}

TEST(SegmentWindow, SoundIsGivenAtOnce) {
  SegmentWindow window(AVMediaTypeAudio, CMTimeRangeFromTimeToTime(frames(2), frames(9)));
  window.take(soundAt(frames(2), frames(1)));
  EXPECT_EQ(giveAll(window), "2");
}

}  // namespace
}  // namespace zaffo::media
