// SPDX-License-Identifier: Apache-2.0
#include <cmath>

#include "doubles/MainLoopUntil.h"
#include "platform/avfoundation/AVAssetImageGenerator.h"
#include "platform/avfoundation/AVComposition.h"
#include "platform/avfoundation/PlayerFixture.h"
#include "platform/avfoundation/engine/EnginePlayer.h"
#include "platform/media/output/CapturedOutput.h"
#include "platform/streaming/StreamServer.h"

namespace zaffo {
namespace {

constexpr double kPi = 3.14159265358979;

/// An asset of a source that is open.
class SourceAsset final : public AVAsset {
 public:
  explicit SourceAsset(std::shared_ptr<media::SampleSource> source) : source_(std::move(source)) {}

  void loadValuesAsynchronouslyForKeys(std::vector<std::string> /*keys*/,
                                       std::function<void()> handler) override {
    handler();
  }
  AVKeyValueStatus statusOfValueForKey(const std::string& /*key*/,
                                       NSErrorPtr* /*error*/) const override {
    return AVKeyValueStatus::Loaded;
  }
  void cancelLoading() override {}
  CMTime duration() const override { return source_->duration(); }
  std::vector<std::shared_ptr<const AVAssetTrack>> tracks() const override {
    return source_->tracks();
  }
  bool isReadable() const override { return false; }
  bool isPlayable() const override { return true; }
  std::shared_ptr<AVAsset> copy() override { return nullptr; }
  std::shared_ptr<media::SampleSource> sampleSource() const override { return source_; }

 private:
  const std::shared_ptr<media::SampleSource> source_;
};

/// Streams whose bytes are all here, played with time moved by hand.
class StreamPlaybackTest : public PlayerFixture {
 protected:
  StreamPlaybackTest() { player_ = EnginePlayer::create(output_); }
  ~StreamPlaybackTest() override {
    player_.reset();
    time_.settle();
  }

  /// Puts a stream into the player and waits until its first frame is there.
  std::shared_ptr<AVPlayerItem> openStream(const std::string& name) {
    streams_.serve(name);
    return openList(streams_.listOf(name));
  }
  std::shared_ptr<AVPlayerItem> openList(const network::URL& list) {
    streams_.hold();
    auto asset = AVAsset::assetWithURL(list);
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration"}, [] {});
    time_.settle();
    return put(asset);
  }
  std::shared_ptr<AVPlayerItem> put(const std::shared_ptr<AVAsset>& asset) {
    auto item = AVPlayerItem::playerItemWithAsset(asset);
    player_->replaceCurrentItemWithPlayerItem(item);
    time_.settle();
    EXPECT_EQ(item->status(), AVPlayerItemStatus::ReadyToPlay) << media::textOf(item->error());
    return item;
  }

  void start() {
    player_->setRate(1);
    time_.settle();
    while (seconds() == 0) time_.advance(kNanosecondsPerMillisecond);
  }

  /// Looks into the middle of each picture's time.
  void expectPictures(int first, int end) {
    for (int picture = first; picture < end; ++picture) {
      time_.advance(std::llround(((picture + 0.5) / 30 - seconds()) * 1e9));
      ASSERT_EQ(shown(), picture) << "at " << seconds();
    }
  }

  streaming::StreamServer streams_;
  media::CapturedOutput output_;
};

/// How far a sound is from the steady tone of the streams, at its worst: amplitude and phase are
/// fitted over the whole, so that a sample left out or put in anywhere tells.
double strayFromTone(const std::vector<float>& sound) {
  const auto count = sound.size() / 2;
  const double step = 2 * kPi * 1500 / media::CapturedOutput::kRate;
  double sine = 0, cosine = 0;
  for (std::size_t i = 0; i < count; ++i) {
    sine += 2 * double{sound[2 * i]} * std::sin(step * static_cast<double>(i));
    cosine += 2 * double{sound[2 * i]} * std::cos(step * static_cast<double>(i));
  }
  sine /= static_cast<double>(count);
  cosine /= static_cast<double>(count);
  double worst = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const double at = step * static_cast<double>(i);
    worst = std::max(worst, std::abs(sound[2 * i] - sine * std::sin(at) - cosine * std::cos(at)));
  }
  return worst;
}

class StreamPlaybackOf : public StreamPlaybackTest,
                         public testing::WithParamInterface<const char*> {};

TEST_P(StreamPlaybackOf, ShowsEveryPictureInTurnWithSteadySoundToItsEnd) {
  const auto item = openStream(GetParam());
  const auto ended = count(AVPlayerItemDidPlayToEndTimeNotification);
  EXPECT_EQ(shown(), 0);
  start();
  expectPictures(0, 75);
  const auto loaded = item->loadedTimeRanges();
  ASSERT_EQ(loaded.size(), 1U);
  EXPECT_NEAR(CMTimeGetSeconds(loaded[0].start), 2.5, 0.1);
  EXPECT_GT(CMTimeGetSeconds(loaded[0].duration), 1);
  expectPictures(75, 240);
  ASSERT_EQ(output_.starts().size(), 1U) << "sound was begun once";
  const int64_t from = output_.starts().front();
  const auto sound = output_.heard(from + 4800, from + 7 * 48000 + 43200);
  EXPECT_LT(strayFromTone(sound), 0.02);
  EXPECT_EQ(*ended, 0);
  time_.advance(kNanosecondsPerSecond / 10);
  EXPECT_EQ(*ended, 1);
  EXPECT_EQ(shown(), 239);
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, StreamPlaybackOf,
                         testing::Values("ts", "fmp4", "ts_ranges", "fmp4_ranges", "ts_44100",
                                         "encrypted"));

TEST_F(StreamPlaybackTest, AnotherRenditionTakesOverWithoutALostPictureOrSound) {
  const auto master = streams_.holdRenditions();
  const auto source = streaming::StreamServer::open(
      master, streaming::StreamServer::servicesWith({1e8, 1e8, 7e5, 1e8}));
  ASSERT_TRUE(source);
  put(std::make_shared<SourceAsset>(source));
  const auto width = [&] {
    return player_->videoOutput()->pictureAtHostTime(TimeSource::now()).buffer->cropWidth;
  };
  start();
  expectPictures(0, 60);
  EXPECT_EQ(width(), 384);
  expectPictures(60, 120);
  EXPECT_EQ(width(), 96);
  expectPictures(120, 240);
  EXPECT_EQ(width(), 384);
  const int64_t from = output_.starts().front();
  EXPECT_LT(strayFromTone(output_.heard(from + 4800, from + 7 * 48000 + 43200)), 0.02);
}

TEST_F(StreamPlaybackTest, SoundThatComesApartIsHeardWithThePictures) {
  for (const std::string kind : {"", "_fmp4"}) {
    streams_.serve("pictures" + kind);
    streams_.serve("sound" + kind);
    streams_.put("/apart" + kind + ".m3u8",
                 "#EXTM3U\n#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"a\",NAME=\"x\",URI=\"sound" + kind +
                     "/list.m3u8\"\n#EXT-X-STREAM-INF:BANDWIDTH=1000,AUDIO=\"a\"\npictures" + kind +
                     "/list.m3u8\n");
    const auto before = output_.starts().size();
    openList(streams_.url("/apart" + kind + ".m3u8"));
    start();
    expectPictures(0, 240);
    ASSERT_EQ(output_.starts().size(), before + 1);
    const int64_t from = output_.starts().back();
    EXPECT_LT(strayFromTone(output_.heard(from + 4800, from + 7 * 48000 + 43200)), 0.02) << kind;
  }
}

TEST_F(StreamPlaybackTest, AThumbnailIsThePictureOfItsTime) {
  streams_.serve("fmp4");
  streams_.hold();
  const auto source = streaming::StreamServer::open(streams_.listOf("fmp4"));
  ASSERT_TRUE(source);
  const auto generator =
      AVAssetImageGenerator::assetImageGeneratorWithAsset(std::make_shared<SourceAsset>(source));
  for (const int picture : {0, 59, 60, 150}) {
    NSErrorPtr error;
    const auto image =
        generator->copyCGImageAtTime(CMTimeMake(2 * picture + 1, 60), nullptr, &error);
    EXPECT_EQ(test::frameNumber(image), picture) << media::textOf(error);
  }
}

TEST_F(StreamPlaybackTest, ALoopGoesRound) {
  streams_.serve("ts");
  streams_.hold();
  const auto source = streaming::StreamServer::open(streams_.listOf("ts"));
  ASSERT_TRUE(source);
  const auto composition = AVMutableComposition::create();
  for (const auto& track : source->tracks()) {
    const auto looped = composition->addMutableTrackWithMediaType(track->mediaType, 0);
    for (int round = 0; round < 2; ++round) {
      EXPECT_TRUE(looped->insertTimeRange({kCMTimeZero, source->duration()}, track,
                                          CMTimeMultiply(source->duration(), round), nullptr));
    }
  }
  put(composition);
  start();
  expectPictures(0, 240);
  for (int picture = 0; picture < 240; ++picture) {
    time_.advance(std::llround((8 + (picture + 0.5) / 30 - seconds()) * 1e9));
    ASSERT_EQ(shown(), picture) << "at " << seconds();
  }
}

class StreamSeekIn : public StreamPlaybackTest, public testing::WithParamInterface<const char*> {};

TEST_P(StreamSeekIn, ShowsTheExactPictureAndPlaysOnFromIt) {
  openStream(GetParam());
  for (const int picture : {60, 59, 61, 180, 179, 0, 239, 119}) {
    EXPECT_EQ(seekExactly(CMTimeMake(2 * picture + 1, 60)), true);
    EXPECT_EQ(shown(), picture);
    EXPECT_EQ(seekExactly(CMTimeMake(picture, 30)), true);
    EXPECT_EQ(shown(), picture);
  }
  player_->setRate(1);
  const double place = seconds();
  while (seconds() <= place) time_.advance(kNanosecondsPerMillisecond);
  expectPictures(120, 190);
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, StreamSeekIn, testing::Values("ts", "fmp4", "ts_ranges"));

constexpr int64_t kTwentySeconds = 20 * kNanosecondsPerSecond;

/// In real time.
class StreamedItem : public testing::Test {
 protected:
  void play(const network::URL& list, float rate) {
    item_ = AVPlayerItem::playerItemWithAsset(AVAsset::assetWithURL(list));
    player_->replaceCurrentItemWithPlayerItem(item_);
    player_->setRate(rate);
  }

  streaming::StreamServer streams_;
  std::shared_ptr<AVPlayer> player_ = AVPlayer::create();
  std::shared_ptr<AVPlayerItem> item_;
};

TEST_F(StreamedItem, StandsWhileASegmentIsLateAndGoesOn) {
  streams_.serve("ts");
  auto late = network::goodReply(streaming::StreamServer::fileOf("/ts/1.ts"));
  late.headDelay = std::chrono::milliseconds(3000);
  streams_.server.on("/ts/1.ts", {late});
  play(streams_.listOf("ts"), 2);
  ASSERT_TRUE(runMainLoopUntil(
      [&] { return item_->isPlaybackBufferEmpty() && player_->currentTime() > CMTimeMake(1, 1); },
      kTwentySeconds));
  EXPECT_LE(CMTimeGetSeconds(player_->currentTime()), 2.1);
  EXPECT_EQ(player_->rate(), 2);
  EXPECT_TRUE(
      runMainLoopUntil([&] { return player_->currentTime() > CMTimeMake(5, 2); }, kTwentySeconds));
  EXPECT_EQ(item_->status(), AVPlayerItemStatus::ReadyToPlay);
}

TEST_F(StreamedItem, FailsWithWhatIsWrongWithASegment) {
  streams_.serve("ts");
  FaultReply missing;
  missing.status = 404;
  streams_.server.on("/ts/1.ts", {missing});
  play(streams_.listOf("ts"), 4);
  ASSERT_TRUE(runMainLoopUntil([&] { return item_->status() == AVPlayerItemStatus::Failed; },
                               kTwentySeconds));
  EXPECT_EQ(media::textOf(item_->error()), "\"1.ts\" does not exist (404).");
}

TEST_F(StreamedItem, APlayerThatGoesStopsItsTraffic) {
  streams_.serve("ts");
  auto stalled = network::goodReply(streaming::StreamServer::fileOf("/ts/1.ts"));
  stalled.stallsAfter = 2000;
  streams_.server.on("/ts/1.ts", {stalled});
  play(streams_.listOf("ts"), 0);
  ASSERT_TRUE(runMainLoopUntil([&] { return item_->status() == AVPlayerItemStatus::ReadyToPlay; },
                               kTwentySeconds));
  player_->setRate(1);
  ASSERT_TRUE(streams_.server.waitForRequests(3));
  player_.reset();
  item_.reset();
  EXPECT_TRUE(streams_.server.waitForLeaver());
}

}  // namespace
}  // namespace zaffo
