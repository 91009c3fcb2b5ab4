#include "platform/avfoundation/LoopedSound.h"

#include "platform/avfoundation/EnginePlayer.h"
#include "platform/avfoundation/PlayerFixture.h"

namespace zaffo {
namespace {

using media::CapturedOutput;
using media::kTestOutputRate;

constexpr int64_t kMillisecond = kNanosecondsPerMillisecond;

class LoopedSoundTest : public testing::Test {
 protected:
  ~LoopedSoundTest() override {
    player_.reset();
    time_.settle();
  }

  [[nodiscard]] std::shared_ptr<AVAsset> load(const std::string& name) {
    auto asset = AVAsset::assetWithURL(NSURL::fileURLWithPath(test::clip(name)));
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration"}, [] {});
    time_.settle();
    return asset;
  }

  void put(const LoopedClip& loop) {
    player_->replaceCurrentItemWithPlayerItem(loop.item());
    time_.settle();
  }

  void seek(CMTime time) {
    player_->seekToTime(time, kCMTimeZero, kCMTimeZero, nullptr);
    time_.settle();
  }

  void play(double seconds, float rate = 1) {
    player_->setRate(rate);
    time_.advance(std::llround(seconds * 1e9));
  }

  /// What was heard of `count` frames since the last start.
  [[nodiscard]] std::vector<float> heard(int64_t count, int64_t from = 0) const {
    const int64_t start = output_.starts().back() + from;
    return output_.heard(start, start + count);
  }

  ManualTime time_;
  CapturedOutput output_;
  std::shared_ptr<AVPlayer> player_ = EnginePlayer::create(output_);
};

class SoundOf : public LoopedSoundTest, public testing::WithParamInterface<const char*> {};

TEST_P(SoundOf, TenSeamsIsTheMixOfTheDecodedSourceSampleForSample) {
  const std::string name = std::string("loop_tone_") + GetParam();
  const LoopedClip loop(load(name), 12, false);
  put(loop);
  play(11.5 * CMTimeGetSeconds(loop.length));
  const int64_t frames = std::llround(11 * CMTimeGetSeconds(loop.length) * kTestOutputRate);
  const ReferenceMix reference(loop, media::decodeAudio(test::clip(name)));
  const Difference difference(heard(frames), reference.frames(0, frames));
  EXPECT_LT(difference.largest, 1e-5) << "at " << difference.frame;
}

INSTANTIATE_TEST_SUITE_P(Codecs, SoundOf,
                         testing::Values("aac.mp4", "aac_44100.mp4", "mp3.mp4", "mp3.mkv",
                                         "opus.mp4", "opus.mkv", "pcm.mov"));

}  // namespace
}  // namespace zaffo
