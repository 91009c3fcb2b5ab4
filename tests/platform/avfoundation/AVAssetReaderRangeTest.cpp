// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>
#include <array>

#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <span>
#include <thread>

#include "doubles/ScriptedSampleSource.h"
#include "media/FrameNumber.h"
#include "platform/avfoundation/AssetReaderFixture.h"
#include "platform/media/SampleBuffers.h"
#include "platform/media/codec/VideoDecoder.h"

namespace zaffo {
namespace {

class AVAssetReaderRangeTest : public AssetReaderFixture {
 protected:
  /// The buffers from a time on.
  [[nodiscard]] static Buffers readFrom(const std::shared_ptr<AVAsset>& asset, CMTime start) {
    return readAll(startRun(asset, start));
  }
};

/// The frame that decoding the buffers shows first: of those that may be shown, the earliest.
std::optional<int> firstShownNumber(const Buffers& buffers) {
  const auto* parameters = media::codecParametersOf(*buffers.front()->formatDescription());
  const auto decoder = media::VideoDecoder::open(*parameters).valueOr(nullptr);
  std::optional<media::VideoFrame> first;
  media::VideoFrame frame;
  const auto collect = [&] {
    while (decoder->receive(frame) == media::Outcome::Ready) {
      if (!first || frame.presentation < first->presentation) first = std::move(frame);
      frame = {};
    }
  };
  // What comes after these cannot be shown before them.
  for (std::size_t i = 0; i < buffers.size() && i < 60; ++i) {
    media::Sample sample;
    EXPECT_TRUE(media::sampleFromBuffer(*buffers[i], sample));
    EXPECT_EQ(decoder->send(sample), media::Outcome::Ready);
    collect();
  }
  decoder->drain();
  collect();
  return first ? test::frameNumber(first->buffer) : std::nullopt;
}

class ReadingFromEveryFrame : public AssetReaderFixture,
                              public testing::WithParamInterface<const char*> {};

TEST_P(ReadingFromEveryFrame, ShowsThatFrameFirstAndEveryLaterOne) {
  const auto asset = loadedClip(GetParam());
  const Buffers all = readAll(startRun(asset));
  const std::vector<CMTime> times = shownTimes(all);
  ASSERT_GE(times.size(), 10u);
  const auto firstNumber = firstShownNumber(all);
  ASSERT_TRUE(firstNumber.has_value());
  // Backwards, so that no run profits from where the one before it left off.
  for (std::size_t i = times.size(); i-- > 0;) {
    const Buffers buffers = readAll(startRun(asset, times[i]));
    ASSERT_FALSE(buffers.empty()) << i;
    EXPECT_FALSE(buffers.front()->attachments().notSync) << i;
    EXPECT_LE(buffers.front()->presentationTimeStamp(), times[i]);
    const auto expected = std::vector(times.begin() + static_cast<std::ptrdiff_t>(i), times.end());
    EXPECT_TRUE(shownTimes(buffers) == expected) << i;
    EXPECT_EQ(firstShownNumber(buffers), *firstNumber + static_cast<int>(i));
  }
}

INSTANTIATE_TEST_SUITE_P(Clips, ReadingFromEveryFrame,
                         testing::Values("h264_25.mp4", "h264_ntsc.mp4", "open_gop.mp4", "hevc.mp4",
                                         "interlaced.mp4", "vfr.mp4", "h264.mkv", "vp9_opus.webm",
                                         "mpeg4_mp3.mp4", "edit_list.mp4", "rotated_90.mp4",
                                         "late_video.mp4", "fragmented_late.mp4"),
                         [](const testing::TestParamInfo<const char*>& clipInfo) {
                           std::string name = clipInfo.param;
                           std::ranges::replace(name, '.', '_');
                           return name;
                         });

TEST_F(AVAssetReaderRangeTest, StartsAtTheLastKeyFrameBeforeTheTime) {
  const Buffers buffers = readFrom(loadedClip("h264_30.mp4"), CMTimeMake(75, 30));
  EXPECT_EQ(buffers.front()->presentationTimeStamp(), CMTimeMake(2, 1));
  EXPECT_EQ(buffers.size(), 60u);
  EXPECT_TRUE(buffers.front()->attachments().doNotDisplay);
  EXPECT_EQ(shownTimes(buffers).front(), CMTimeMake(75, 30));
}

TEST_F(AVAssetReaderRangeTest, BetweenTwoFramesStartsToShowWithTheEarlierOne) {
  const Buffers buffers = readFrom(loadedClip("h264_30.mp4"), CMTimeMake(755, 300));
  EXPECT_EQ(shownTimes(buffers).front(), CMTimeMake(75, 30));
}

TEST_F(AVAssetReaderRangeTest, ShowsNothingFromTheEndOfTheRangeOn) {
  const Run run = startRun(loadedClip("h264_30.mp4"), CMTimeMake(1, 1), CMTimeMake(1, 2));
  const Buffers buffers = readAll(run);
  const std::vector<CMTime> times = shownTimes(buffers);
  ASSERT_EQ(times.size(), 15u);
  EXPECT_EQ(times.front(), CMTimeMake(30, 30));
  EXPECT_EQ(times.back(), CMTimeMake(44, 30));
  EXPECT_LE(buffers.size(), 20u) << "it stops soon after the end";
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Completed);
}

TEST_F(AVAssetReaderRangeTest, AStartAtOrBeyondTheEndCompletesWithoutSamples) {
  const auto asset = loadedClip("video_only.mp4");
  for (const CMTime start : {CMTimeMake(2, 1), CMTimeMake(100, 1), kCMTimePositiveInfinity}) {
    const Run run = startRun(asset, start);
    EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Reading);
    EXPECT_EQ(run.output->copyNextSampleBuffer(), nullptr);
    EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Completed);
  }
}

TEST_F(AVAssetReaderRangeTest, AStartBeforeZeroGivesEverything) {
  EXPECT_EQ(shownTimes(readFrom(loadedClip("h264_30.mp4"), CMTimeMake(-7, 1))).size(), 120u);
}

TEST_F(AVAssetReaderRangeTest, TheRangeIsFixedByTheStart) {
  const Run run = startRun(loadedClip("h264_30.mp4"), CMTimeMake(3, 1));
  run.reader->setTimeRange({kCMTimeZero, kCMTimePositiveInfinity});
  EXPECT_EQ(readAll(run).size(), 30u);
}

TEST_F(AVAssetReaderRangeTest, AnEditListHidesWhatComesBeforeItAndSetsTheTimes) {
  const Buffers buffers = readAll(startRun(loadedClip("edit_list.mp4")));
  EXPECT_FALSE(buffers.front()->attachments().notSync);
  EXPECT_TRUE(buffers.front()->attachments().doNotDisplay);
  EXPECT_LT(buffers.front()->presentationTimeStamp(), kCMTimeZero);
  EXPECT_EQ(shownTimes(buffers).front(), kCMTimeZero);
  EXPECT_EQ(firstShownNumber(buffers), 40);
}

TEST_F(AVAssetReaderRangeTest, DecodeTimesMayComeBeforeZero) {
  const Buffers buffers = readAll(startRun(loadedClip("h264_30.mp4")));
  EXPECT_EQ(buffers.front()->presentationTimeStamp(), kCMTimeZero);
  EXPECT_LT(buffers.front()->decodeTimeStamp(), kCMTimeZero);
}

TEST_F(AVAssetReaderRangeTest, ATrackThatStartsLateKeepsItsPlaceOnTheTimeLine) {
  const Buffers buffers = readAll(startRun(loadedClip("late_video.mp4")));
  EXPECT_EQ(shownTimes(buffers).front(), CMTimeMake(1, 2));
}

TEST_F(AVAssetReaderRangeTest, ReadsNoHeaderOfALoadedAssetAgain) {
  const auto folder = std::filesystem::temp_directory_path();
  const auto path = folder / ("zaffo-headless-" + std::to_string(::getpid()) + ".mp4");
  std::filesystem::copy_file(test::clip("h264_30.mp4"), path,
                             std::filesystem::copy_options::overwrite_existing);
  const auto asset = loadedAsset(path.string());
  const Buffers expected = readAll(startRun(asset));
  ASSERT_EQ(expected.size(), 120u);
  {
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    std::string bytes(64 * 1024, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    const std::size_t header = bytes.find("mdat");
    ASSERT_NE(header, std::string::npos) << "the clip's index comes first";
    file.clear();
    file.seekp(0);
    file << std::string(header, '\0');
  }
  for (const CMTime start : {kCMTimeZero, CMTimeMake(5, 2), kCMTimeZero}) {
    const Buffers buffers = readFrom(asset, start);
    EXPECT_EQ(buffers.size(), start == kCMTimeZero ? 120u : 60u);
    EXPECT_TRUE(std::ranges::equal(buffers.back()->dataBuffer()->bytes(),
                                   expected.back()->dataBuffer()->bytes()));
  }
  std::filesystem::remove(path);
}

/// An asset over a scripted source.
class SourceAsset final : public AVAsset {
 public:
  void loadValuesAsynchronouslyForKeys(std::vector<std::string>,
                                       std::function<void()> handler) override {
    handler();
  }
  AVKeyValueStatus statusOfValueForKey(const std::string&, NSErrorPtr*) const override {
    return AVKeyValueStatus::Loaded;
  }
  void cancelLoading() override {}
  CMTime duration() const override { return source->duration(); }
  std::vector<std::shared_ptr<const AVAssetTrack>> tracks() const override {
    return source->tracks();
  }
  bool isReadable() const override { return readable; }
  bool isPlayable() const override { return true; }
  std::shared_ptr<AVAsset> copy() override { return nullptr; }
  std::shared_ptr<media::SampleSource> sampleSource() const override { return source; }

  const std::shared_ptr<media::ScriptedSampleSource> source =
      std::make_shared<media::ScriptedSampleSource>();
  bool readable = true;
};

class AVAssetReaderWaitTest : public AssetReaderFixture {
 protected:
  [[nodiscard]] media::SampleScript& script() { return *asset_->source->script; }

  /// Until the reader has been told that there is nothing yet.
  void waitForReads(int count) {
    const auto reads = [this] {
      const std::lock_guard lock(script().mutex);
      return script().reads;
    };
    while (reads() < count) std::this_thread::yield();
  }

  const std::shared_ptr<SourceAsset> asset_ = std::make_shared<SourceAsset>();
};

TEST_F(AVAssetReaderWaitTest, WaitsForASampleThatIsNotThereYet) {
  script().open = true;
  const Run run = startRun(asset_);
  std::shared_ptr<CMSampleBuffer> buffer;
  std::thread reading([&] { buffer = run.output->copyNextSampleBuffer(); });
  waitForReads(1);
  script().add(0, 7);
  script().ready();
  reading.join();
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(buffer->presentationTimeStamp(), CMTimeMake(7, 30));
}

TEST_F(AVAssetReaderWaitTest, ACancelEndsAWait) {
  script().open = true;
  const Run run = startRun(asset_);
  std::shared_ptr<CMSampleBuffer> buffer;
  std::thread reading([&] { buffer = run.output->copyNextSampleBuffer(); });
  waitForReads(1);
  run.reader->cancelReading();
  reading.join();
  EXPECT_EQ(buffer, nullptr);
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Cancelled);
}

TEST_F(AVAssetReaderWaitTest, ASourceThatBecomesReadyWhenTheReaderIsGoneWakesNobody) {
  script().open = true;
  { const Run run = startRun(asset_); }
  script().ready();
  EXPECT_EQ(script().reads, 0);
}

TEST_F(AVAssetReaderWaitTest, ATrackThatCannotBeOpenedFailsTheStart) {
  asset_->source->refusal = makeError(AVErrorUnknown, "refused");
  const Run run = makeRun(asset_);
  EXPECT_FALSE(run.reader->startReading());
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Failed);
  EXPECT_EQ(run.reader->error(), asset_->source->refusal);
  EXPECT_EQ(run.output->copyNextSampleBuffer(), nullptr);
}

TEST_F(AVAssetReaderWaitTest, IsNotMadeOfAnAssetThatIsNotReadable) {
  asset_->readable = false;
  NSErrorPtr error;
  EXPECT_EQ(AVAssetReader::create(asset_, &error), nullptr);
  EXPECT_NE(error, nullptr);
}

TEST_F(AVAssetReaderWaitTest, HandsOutTheBytesThatWereReadUnlessAskedToCopyWhatOthersHold) {
  const auto bytesOf = [](media::Sample& sample) { return sample.packet->data; };
  for (const bool copies : {false, true}) {
    const uint8_t* read = bytesOf(script().add(0, 0).sample);
    const media::PacketPtr held(av_packet_clone(script().steps.front().sample.packet.get()));
    const Run run = startRun(asset_);
    run.output->setAlwaysCopiesSampleData(copies);
    const auto buffer = run.output->copyNextSampleBuffer();
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->dataBuffer()->bytes().data() == read, !copies);
    EXPECT_TRUE(std::ranges::equal(buffer->dataBuffer()->bytes(),
                                   std::span(held->data, static_cast<std::size_t>(held->size))));
  }
}

}  // namespace
}  // namespace zaffo
