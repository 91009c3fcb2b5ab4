// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVComposition.h"
#include "platform/avfoundation/AssetReaderFixture.h"
#include "platform/media/SampleBuffers.h"
#include "platform/media/codec/VideoDecoder.h"

#include "media/FrameNumber.h"

namespace zaffo {
namespace {

/// Three copies of frames 7 to 52 of a clip of 60 frames, with key frames at 0 and 30.
class AVAssetReaderCompositionTest : public AssetReaderFixture {
 protected:
  static constexpr int kFirst = 7, kFrames = 46, kCopies = 3;

  AVAssetReaderCompositionTest() {
    const auto track = composition_->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
    const auto source = clip_->tracksWithMediaType(AVMediaTypeVideo).front();
    for (int copy = 0; copy < kCopies; ++copy) {
      NSErrorPtr error;
      EXPECT_TRUE(track->insertTimeRange({frames(kFirst), frames(kFrames)}, source,
                                         frames(copy * kFrames), &error))
          << (error ? error->localizedDescription() : "");
    }
  }

  static CMTime frames(int count) { return CMTimeMake(count, 30); }

  /// The numbers of the frames that decoding the buffers shows, by presentation, with their times.
  static std::vector<std::pair<CMTime, int>> decoded(const Buffers& buffers) {
    std::vector<std::pair<CMTime, int>> shown;
    std::unique_ptr<media::VideoDecoder> decoder;
    media::VideoFrame frame;
    const auto take = [&] {
      while (decoder->receive(frame) == media::Outcome::Ready) {
        shown.emplace_back(frame.presentation, test::frameNumber(frame.buffer).value_or(-1));
      }
    };
    for (const auto& buffer : buffers) {
      if (!decoder || buffer->resetsDecoderBeforeDecoding()) {
        if (decoder) {
          decoder->drain();
          take();
        }
        decoder = media::VideoDecoder::open(*media::codecParametersOf(*buffer->formatDescription()))
                      .valueOr(nullptr);
      }
      media::Sample sample;
      EXPECT_TRUE(media::sampleFromBuffer(*buffer, sample));
      EXPECT_EQ(decoder->send(sample), media::Outcome::Ready);
      take();
    }
    decoder->drain();
    take();
    std::ranges::sort(shown, [](const auto& a, const auto& b) { return a.first < b.first; });
    return shown;
  }

  const std::shared_ptr<AVAsset> clip_ = loadedClip("video_only.mp4");
  const std::shared_ptr<AVMutableComposition> composition_ = AVMutableComposition::create();
};

TEST_F(AVAssetReaderCompositionTest, TimesRunOnThroughEverySeam) {
  const Run run = startRun(composition_->copy());
  const std::vector<CMTime> times = shownTimes(readAll(run));
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Completed);
  ASSERT_EQ(times.size(), static_cast<std::size_t>(kFrames * kCopies));
  for (int i = 0; i < kFrames * kCopies; ++i) {
    EXPECT_EQ(times[static_cast<std::size_t>(i)], frames(i));
  }
}

TEST_F(AVAssetReaderCompositionTest, EachCopyStartsAtASyncSampleThatResetsTheDecoder) {
  int copies = 0;
  for (const auto& buffer : readAll(startRun(composition_->copy()))) {
    if (!buffer->resetsDecoderBeforeDecoding()) continue;
    ++copies;
    EXPECT_FALSE(buffer->attachments().notSync);
    EXPECT_TRUE(buffer->attachments().doNotDisplay) << "frame 0 is needed, not shown";
  }
  EXPECT_EQ(copies, kCopies);
}

TEST_F(AVAssetReaderCompositionTest, DecodingShowsTheCopiesFramesAndNoOthers) {
  const auto shown = decoded(readAll(startRun(composition_->copy())));
  ASSERT_EQ(shown.size(), static_cast<std::size_t>(kFrames * kCopies));
  for (int i = 0; i < kFrames * kCopies; ++i) {
    const auto& [time, number] = shown[static_cast<std::size_t>(i)];
    EXPECT_EQ(time, frames(i));
    EXPECT_EQ(number, kFirst + i % kFrames) << i;
  }
}

TEST_F(AVAssetReaderCompositionTest, ReadsFromAnyFrameOfAnyCopy) {
  const auto asset = composition_->copy();
  for (const int start : {1, kFrames - 1, kFrames, kFrames + 1, 2 * kFrames - 1, 2 * kFrames,
                          2 * kFrames + 30, kCopies * kFrames - 1}) {
    const auto shown = decoded(readAll(startRun(asset, frames(start))));
    ASSERT_EQ(shown.size(), static_cast<std::size_t>(kCopies * kFrames - start)) << start;
    EXPECT_EQ(shown.front().first, frames(start));
    EXPECT_EQ(shown.front().second, kFirst + start % kFrames) << start;
  }
}

TEST_F(AVAssetReaderCompositionTest, ARangeAcrossASeamShowsBothSides) {
  const Run run = startRun(composition_->copy(), frames(kFrames - 2), frames(5));
  const auto shown = decoded(readAll(run));
  ASSERT_EQ(shown.size(), 5u);
  for (int i = 0; i < 5; ++i) {
    const auto& [time, number] = shown[static_cast<std::size_t>(i)];
    EXPECT_EQ(time, frames(kFrames - 2 + i));
    EXPECT_EQ(number, kFirst + (kFrames - 2 + i) % kFrames);
  }
}

TEST_F(AVAssetReaderCompositionTest, ABeginningAtItsEndCompletesWithoutSamples) {
  const Run run = startRun(composition_->copy(), frames(kCopies * kFrames));
  EXPECT_TRUE(readAll(run).empty());
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Completed);
}

}  // namespace
}  // namespace zaffo
