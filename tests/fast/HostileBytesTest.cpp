// SPDX-License-Identifier: Apache-2.0

// Clips that are damaged at random places, in a pool of fast players.

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>

#include "doubles/ManualTime.h"
#include "doubles/TestSeed.h"
#include "doubles/TestVideo.h"
#include "fast/DamagedClip.h"
#include "fast/PlayerFastOutputView.h"
#include "fast/QuietTrace.h"
#include "media/FrameNumber.h"
#include "platform/avfoundation/AVAudioSession.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "pool/PlayerDecorator.h"
#include "pool/PlayerManager.h"

namespace zaffo {
namespace {

class HostileBytesTest : public testing::Test {
 protected:
  using Bytes = std::string;

  enum class Outcome { Nothing, LoadFailed, Ended, FailedToEnd, LayerFailed };

  HostileBytesTest() {
    AVAudioSession::sharedInstance().setOutput(AVAudioSession::Output::None);
    manager_->setUseFastPlayer(true);
    neighbour_ = load("neighbour", test::clip("h264_30.mp4"));
  }

  std::size_t below(std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(random_);
  }
  /// Writes, zeroes or turns over up to a quarter of what lies in [begin, end), in a few places.
  void damage(Bytes& bytes, std::size_t begin, std::size_t end) {
    for (std::size_t places = 1 + below(6); places > 0; --places) {
      const std::size_t from = begin + below(end - begin);
      const std::size_t length = 1 + below(std::min(end - from, (end - begin) / 4));
      const std::size_t kind = below(3);
      for (std::size_t i = from; i < from + length; ++i) {
        const auto random = static_cast<char>(below(256));
        bytes[i] = kind == 0 ? random : kind == 1 ? '\0' : static_cast<char>(~bytes[i]);
      }
    }
  }

  std::shared_ptr<AVPlayerItem> itemAt(const std::string& path) {
    const auto asset = AVURLAsset::URLAssetWithURL(NSURL::fileURLWithPath(path));
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration", "playable"}, [] {});
    time_.settle();
    return AVPlayerItem::playerItemWithAsset(asset);
  }
  /// A player of the pool with the clip; null when it cannot be loaded.
  std::shared_ptr<PlayerDecorator> load(const std::string& id, const std::string& path) {
    std::optional<PlayerLoadResult> result;
    const auto command =
        manager_->loadPlayer(std::make_shared<TestVideo>(id, false), itemAt(path), {},
                             [&result](const PlayerLoadResult& told) { result = told; });
    for (int i = 0; i < 300 && !result; ++i) time_.advance(kNanosecondsPerSecond / 10);
    command->cancel();
    EXPECT_TRUE(result) << "the load neither succeeds nor fails";
    if (result && !result->player()) {
      EXPECT_TRUE(result->error());
    }
    return result ? result->player() : nullptr;
  }

  /// Loads and plays a clip, drawing as it goes, until it is over one way or another.
  Outcome play(const std::string& path) {
    const auto player = load("damaged", path);
    if (!player) return Outcome::LoadFailed;
    auto outcome = Outcome::Nothing;
    const auto item = player->playerItem();
    if (!item) return Outcome::LayerFailed;
    const auto token = std::make_shared<int>(0);
    const auto listen = [&](const char* name, Outcome heard) {
      NSNotificationCenter::defaultCenter().addObserver(
          token, name, item, [&outcome, heard](const NSNotification&) { outcome = heard; });
    };
    listen(AVPlayerItemDidPlayToEndTimeNotification, Outcome::Ended);
    listen(AVPlayerItemFailedToPlayToEndTimeNotification, Outcome::FailedToEnd);
    player->setRate(1);
    for (int i = 0; i < 80 && outcome == Outcome::Nothing; ++i) {
      time_.advance(kNanosecondsPerSecond / 10);
      (void)draw(*player);
      if (!player->playerItem()) outcome = Outcome::LayerFailed;
    }
    return outcome;
  }

  static std::shared_ptr<AVSampleBufferDisplayLayer> layerOf(const Player& player) {
    const auto view = std::dynamic_pointer_cast<PlayerFastOutputView>(player.outputView());
    return view ? view->sampleBufferDisplayerLayer() : nullptr;
  }
  static std::optional<int> draw(const Player& player) {
    const auto layer = layerOf(player);
    if (!layer) return std::nullopt;
    layer->setBounds(CGRectMake(0, 0, 192, 108));
    const auto picture = layer->picture(TimeSource::now());
    return picture ? test::frameNumber(picture->buffer) : std::nullopt;
  }
  /// `player` goes to a frame and shows it.
  void expectWorks(Player& player) {
    const int frame = static_cast<int>(below(50));
    player.setRate(0);
    player.seekToTime(CMTimeMake(2 * frame + 1, 60), kCMTimeZero, kCMTimeZero, {});
    time_.settle();
    EXPECT_EQ(draw(player), frame);
  }

  const unsigned seed_ = test::testSeed();
  const testing::ScopedTrace trace_{__FILE__, __LINE__, "ZAFFO_TEST_SEED=" + std::to_string(seed_)};
  const QuietTrace quiet_;
  std::mt19937 random_{seed_};
  ManualTime time_;
  std::shared_ptr<PlayerManager> manager_ = PlayerManager::create();
  std::shared_ptr<PlayerDecorator> neighbour_;
};

/// Where the samples of an MP4 lie.
std::pair<std::size_t, std::size_t> mediaData(const std::string& bytes) {
  const std::size_t type = bytes.find("mdat");
  std::size_t size = 0;
  for (std::size_t i = type - 4; i < type; ++i) size = size << 8 | static_cast<uint8_t>(bytes[i]);
  return {type + 4, type - 4 + size};
}

TEST_F(HostileBytesTest, DamagedSamplesEndInTheEndAFailureOrOneOfTheLayer) {
  const DamagedClip clips[] = {DamagedClip("h264_30.mp4"), DamagedClip("hevc.mp4"),
                               DamagedClip("mpeg4_mp3.mp4")};
  for (int round = 0; round < 18; ++round) {
    const auto& clip = clips[round % 3];
    Bytes bytes = clip.bytes();
    const auto [begin, end] = mediaData(bytes);
    ASSERT_LE(end, bytes.size());
    damage(bytes, begin, end);
    clip.write(bytes);
    const Outcome outcome = play(clip.path());
    EXPECT_TRUE(outcome == Outcome::Ended || outcome == Outcome::FailedToEnd ||
                outcome == Outcome::LayerFailed)
        << "round " << round << ": " << static_cast<int>(outcome);
    expectWorks(*neighbour_);
    clip.write(clip.bytes());
    const auto again = load("damaged", clip.path());
    ASSERT_TRUE(again) << "round " << round;
    expectWorks(*again);
  }
}

TEST_F(HostileBytesTest, AFileDamagedAnywhereNeitherCrashesNorStopsThePool) {
  const DamagedClip clips[] = {DamagedClip("h264_30.mp4"), DamagedClip("fragmented.mp4"),
                               DamagedClip("edit_list.mp4"), DamagedClip("vp9_opus.webm"),
                               DamagedClip("open_gop.mp4")};
  for (int round = 0; round < 20; ++round) {
    const auto& clip = clips[round % 5];
    Bytes bytes = clip.bytes();
    // Headers lead furthest, and they lie at the begin.
    damage(bytes, 0, below(2) == 0 ? bytes.size() : std::min<std::size_t>(bytes.size(), 2048));
    if (below(4) == 0) bytes.resize(below(bytes.size()));
    clip.write(bytes);
    (void)play(clip.path());
    expectWorks(*neighbour_);
    clip.write(clip.bytes());
    const auto again = load("damaged", clip.path());
    ASSERT_TRUE(again) << "round " << round;
    if (&clip != &clips[2]) expectWorks(*again);  // that one has 25 frames a second
  }
}

TEST_F(HostileBytesTest, AFileThatIsCutShortUnderASessionEndsAndPlaysWhenItIsWholeAgain) {
  const DamagedClip clip("h264_30_moov_last.mp4");
  for (int round = 0; round < 8; ++round) {
    const auto player = load("damaged", clip.path());
    ASSERT_TRUE(player);
    const auto token = std::make_shared<int>(0);
    int ends = 0;
    for (const auto* const name : {AVPlayerItemDidPlayToEndTimeNotification,
                                   AVPlayerItemFailedToPlayToEndTimeNotification}) {
      NSNotificationCenter::defaultCenter().addObserver(token, name, player->playerItem(),
                                                        [&ends](const NSNotification&) { ++ends; });
    }
    clip.write(clip.bytes().substr(0, 1 + below(clip.bytes().size() / 2)));
    player->setRate(1);
    time_.advance(6 * kNanosecondsPerSecond);
    EXPECT_GT(ends, 0);
    clip.write(clip.bytes());
  }
}

}  // namespace
}  // namespace zaffo
