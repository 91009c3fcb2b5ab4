// SPDX-License-Identifier: Apache-2.0

// Files whose bytes come late and in pieces give the same samples as those that are all there.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>

#include "doubles/ScriptedByteSource.h"
#include "doubles/TestSeed.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/Decoding.h"
#include "platform/media/source/SamplePrint.h"
#include "platform/media/source/SourceOpening.h"

namespace zaffo::media {
namespace {

using test::clip;

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::shared_ptr<ScriptedByteSource> bytesOf(const char* name) {
  return std::make_shared<ScriptedByteSource>(contentOf(clip(name)));
}

std::shared_ptr<FileSampleSource> openLate(const std::shared_ptr<ScriptedByteSource>& bytes,
                                           int64_t piece) {
  SourceOpening opening(bytes);
  while (opening.step() == Outcome::Again) {
    if (!bytes->bringWanted(piece)) return nullptr;
  }
  auto source = opening.take();
  EXPECT_TRUE(source) << textOf(source.error());
  return std::move(source).valueOr(nullptr);
}

/// Brings bytes until there is a sample, or there are no more.
Outcome nextLate(SampleCursor& cursor, Sample& sample, ScriptedByteSource& bytes, int64_t piece) {
  for (;;) {
    const Outcome outcome = cursor.next(sample);
    if (outcome != Outcome::Again) return outcome;
    if (!bytes.bringWanted(piece)) return Outcome::Error;
  }
}

std::vector<std::string> restOf(SampleCursor& cursor, ScriptedByteSource& bytes, int64_t piece) {
  std::vector<std::string> prints;
  Sample sample;
  Outcome outcome;
  while ((outcome = nextLate(cursor, sample, bytes, piece)) == Outcome::Ready) {
    prints.push_back(fingerprint(sample));
    bytes.forget();
  }
  EXPECT_EQ(outcome, Outcome::End);
  return prints;
}

std::unique_ptr<SampleCursor> openCursor(SampleSource& source, const AVAssetTrack& track) {
  return source.openCursor(track.trackID).valueOr(nullptr);
}

class LateBytesOf : public testing::TestWithParam<const char*> {
 protected:
  const std::shared_ptr<FileSampleSource> plain_ = openClip(clip(GetParam()));
  const std::shared_ptr<ScriptedByteSource> bytes_ = bytesOf(GetParam());
};

TEST_P(LateBytesOf, AreTheSameTracks) {
  bytes_->hideSize();
  const auto late = openLate(bytes_, 97);
  ASSERT_TRUE(late);
  EXPECT_GT(bytes_->wantsInAll(), 0);
  EXPECT_EQ(bytes_->wants(), 0u);
  EXPECT_EQ(late->duration(), plain_->duration());
  ASSERT_EQ(late->tracks().size(), plain_->tracks().size());
  for (std::size_t i = 0; i < plain_->tracks().size(); ++i) {
    EXPECT_EQ(late->tracks()[i]->codec, plain_->tracks()[i]->codec);
    EXPECT_EQ(late->tracks()[i]->timeRange, plain_->tracks()[i]->timeRange);
  }
}

TEST_P(LateBytesOf, AreTheSameSamples) {
  const auto late = openLate(bytes_, 5000);
  ASSERT_TRUE(late);
  for (const auto& track : plain_->tracks()) {
    const auto samples = fingerprintsOf(readAll(*openCursor(*plain_, *track)));
    bytes_->forget();
    const auto cursor = openCursor(*late, *track);
    EXPECT_EQ(restOf(*cursor, *bytes_, 1000), samples) << track->trackID;
    ASSERT_TRUE(cursor->seek(kCMTimeZero));
    EXPECT_EQ(restOf(*cursor, *bytes_, 100'000), samples) << track->trackID << " once more";
  }
}

TEST_P(LateBytesOf, AreTheSameSamplesAfterASeek) {
  const auto late = openLate(bytes_, 5000);
  ASSERT_TRUE(late);
  for (const auto& track : plain_->tracks()) {
    const auto plain = openCursor(*plain_, *track);
    const auto cursor = openCursor(*late, *track);
    for (const int tenths : {12, 3, 100, 0, 7, 19}) {
      ASSERT_TRUE(plain->seek(CMTimeMake(tenths, 10)));
      bytes_->forget();
      ASSERT_TRUE(cursor->seek(CMTimeMake(tenths, 10)));
      EXPECT_EQ(restOf(*cursor, *bytes_, 3000), fingerprintsOf(readAll(*plain))) << tenths;
    }
  }
}

TEST_P(LateBytesOf, AreTheSameSamplesWhereverAWaitWasGivenUp) {
  const auto late = openLate(bytes_, 5000);
  ASSERT_TRUE(late);
  const unsigned seed = test::testSeed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (const auto& track : plain_->tracks()) {
    const auto plain = openCursor(*plain_, *track);
    const auto cursor = openCursor(*late, *track);
    for (int i = 0; i < 40; ++i) {
      const CMTime time = CMTimeMake(static_cast<int64_t>(random() % 25), 10);
      bytes_->forget();
      ASSERT_TRUE(cursor->seek(time));
      Sample sample, expected;
      // Few of them are enough for what is sought.
      for (auto pieces = random() % 12; pieces > 0; --pieces) {
        if (cursor->next(sample) == Outcome::Again) (void)bytes_->bringWanted(800);
      }
      ASSERT_TRUE(cursor->seek(time));
      EXPECT_FALSE(cursor->error());
      ASSERT_TRUE(plain->seek(time));
      for (int k = 0; k < 5; ++k) {
        const Outcome outcome = plain->next(expected);
        ASSERT_EQ(nextLate(*cursor, sample, *bytes_, 4000), outcome);
        if (outcome != Outcome::Ready) break;
        EXPECT_EQ(fingerprint(sample), fingerprint(expected)) << CMTimeDescription(time);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Clips, LateBytesOf,
                         testing::Values("h264_30.mp4", "h264_30_moov_last.mp4", "edit_list.mp4",
                                         "fragmented.mp4", "fragmented_late.mp4", "vp9_opus.webm",
                                         "h264.mkv", "audio.mp3", "audio.aac", "audio.ogg",
                                         "audio.flac", "audio.wav"),
                         [](const testing::TestParamInfo<const char*>& clipInfo) {
                           std::string name = clipInfo.param;
                           std::ranges::replace(name, '.', '_');
                           return name;
                         });

class LateBytes : public testing::Test {
 protected:
  const std::shared_ptr<ScriptedByteSource> bytes_ = bytesOf("h264_30.mp4");
};

TEST_F(LateBytes, AnOpeningThatIsLetGoOfWantsNothingMore) {
  auto opening = std::make_unique<SourceOpening>(bytes_);
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(opening->step(), Outcome::Again);
    (void)bytes_->bringWanted(500);
  }
  ASSERT_EQ(opening->step(), Outcome::Again);
  EXPECT_EQ(bytes_->wants(), 1u);
  opening.reset();
  EXPECT_EQ(bytes_->wants(), 0u);
}

TEST_F(LateBytes, TheReadyHandlerIsToldWhenTheyHaveCome) {
  SourceOpening opening(bytes_);
  int told = 0;
  opening.setReadyHandler([&told] { ++told; });
  ASSERT_EQ(opening.step(), Outcome::Again);
  ASSERT_EQ(opening.step(), Outcome::Again);
  EXPECT_EQ(bytes_->wantsInAll(), 1) << "one that is not fulfilled is not repeated";
  EXPECT_EQ(told, 0);
  while (told == 0) ASSERT_TRUE(bytes_->bringWanted(1));
  ASSERT_EQ(opening.step(), Outcome::Again);
  EXPECT_EQ(told, 1);
  EXPECT_EQ(bytes_->wantsInAll(), 2);
}

TEST_F(LateBytes, WhatTheHeadHoldsIsNeverMissing) {
  const auto source = openLate(bytes_, 100'000);
  bytes_->forget();
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  Sample sample;
  ASSERT_EQ(cursor->next(sample), Outcome::Ready);
  EXPECT_EQ(sample.presentation, kCMTimeZero);
  while (cursor->next(sample) == Outcome::Ready) {
  }
  EXPECT_EQ(bytes_->wants(), 1u);
  ASSERT_TRUE(cursor->seek(CMTimeMake(3, 1)));
  EXPECT_EQ(bytes_->wants(), 0u);
  ASSERT_EQ(cursor->next(sample), Outcome::Again);
  ASSERT_TRUE(cursor->seek(kCMTimeZero));
  ASSERT_EQ(cursor->next(sample), Outcome::Ready);
  EXPECT_EQ(sample.presentation, kCMTimeZero);
}

TEST_F(LateBytes, BytesThatWillNotComeAreAnErrorThatTellsWhy) {
  const auto source = openLate(bytes_, 100'000);
  bytes_->forget();
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  ASSERT_TRUE(cursor->seek(CMTimeMake(2, 1)));
  Sample sample;
  ASSERT_EQ(cursor->next(sample), Outcome::Again);
  EXPECT_FALSE(cursor->error());
  const NSErrorPtr gone = makeError(AVErrorUnknown, "the server is gone");
  bytes_->fail(EIO, gone);
  ASSERT_EQ(cursor->next(sample), Outcome::Error);
  EXPECT_EQ(cursor->error(), gone);

  const auto none = bytesOf("h264_30.mp4");
  SourceOpening opening(none);
  ASSERT_EQ(opening.step(), Outcome::Again);
  none->fail(EIO, gone);
  ASSERT_EQ(opening.step(), Outcome::Error);
  EXPECT_EQ(opening.take().error(), gone);
}

TEST_F(LateBytes, ASeekInALongWaitKeepsTheParsedIndex) {
  const auto source = openLate(bytes_, 100'000);
  const auto cursor = openTrack(*source, AVMediaTypeVideo);
  Sample sample;
  ASSERT_TRUE(cursor->seek(CMTimeMake(1, 1)));
  ASSERT_EQ(nextLate(*cursor, sample, *bytes_, 100'000), Outcome::Ready);
  bytes_->forget();
  ASSERT_TRUE(cursor->seek(CMTimeMake(3, 1)));
  ASSERT_EQ(cursor->next(sample), Outcome::Again);
  const int wants = bytes_->wantsInAll();
  ASSERT_TRUE(cursor->seek(CMTimeMake(2, 1)));
  ASSERT_EQ(nextLate(*cursor, sample, *bytes_, 1'000'000), Outcome::Ready);
  EXPECT_EQ(sample.presentation, CMTimeMake(2, 1));
  EXPECT_EQ(bytes_->wantsInAll(), wants + 1) << "nothing but the sample";
}

}  // namespace
}  // namespace zaffo::media
