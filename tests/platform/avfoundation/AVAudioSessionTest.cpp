// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVAudioSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <vector>

#include "doubles/ManualTime.h"
#include "media/Clips.h"
#include "media/WavFile.h"
#include "platform/avfoundation/AVPlayer.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/media/MediaServices.h"
#include "platform/media/output/AudioOutput.h"

namespace zaffo {
namespace {

class AVAudioSessionTest : public testing::Test {
 protected:
  ManualTime time;
  AVAudioSession& session = AVAudioSession::sharedInstance();
};

TEST_F(AVAudioSessionTest, RunsAtFortyEightKilohertz) {
  EXPECT_EQ(session.sampleRate(), 48000);
}

TEST_F(AVAudioSessionTest, AResetEndsPlaybackAndThenPostsItsNotification) {
  const auto observer = std::make_shared<int>(0);
  const uint64_t before = media::MediaServices::shared().generation();
  int ended = 0;
  const auto token = media::MediaServices::shared().observeReset([&] {
    EXPECT_EQ(*observer, 0);
    ++ended;
  });
  NSNotificationCenter::defaultCenter().addObserver(
      observer, AVAudioSessionMediaServicesWereResetNotification, nullptr,
      [&](const NSNotification& notification) {
        EXPECT_EQ(notification.object, nullptr);
        EXPECT_EQ(ended, 1);
        ++*observer;
      });
  session.resetMediaServices();
  EXPECT_EQ(*observer, 1);
  EXPECT_EQ(media::MediaServices::shared().generation(), before + 1);
}

/// The pitch of 0.4 s of sound from a sample on, in Hz.
double pitchAt(const std::vector<float>& sound, std::size_t from) {
  const std::size_t length = 48000 * 4 / 10;
  if (from + length > sound.size()) return 0;
  int rising = 0;
  for (std::size_t i = from + 1; i < from + length; ++i)
    rising += sound[i - 1] < 0 && sound[i] >= 0;
  return rising / 0.4;
}

TEST_F(AVAudioSessionTest, RecordsWhatIsPlayedToNoDevice) {
  const std::string path = testing::TempDir() + "AVAudioSessionTest.wav";
  session.setOutput(AVAudioSession::Output::None);
  const auto player = AVPlayer::create();
  player->replaceCurrentItemWithPlayerItem(AVPlayerItem::playerItemWithAsset(
      AVAsset::assetWithURL(NSURL::fileURLWithPath(test::clip("audio_only.m4a")))));
  time.settle();
  ASSERT_EQ(session.startRecording(path), nullptr);
  player->setRate(1);
  time.advance(2 * kNanosecondsPerSecond);
  session.stopRecording();
  session.stopRecording();
  const test::WavFile wav = test::readWav(path);
  std::filesystem::remove(path);
  EXPECT_EQ(wav.rate, 48000u);
  EXPECT_NEAR(static_cast<double>(wav.left.size()), 2 * 48000, 48000 / 10);
  const auto loud = std::ranges::find_if(wav.left, [](float sample) { return sample > 0.1f; });
  const auto begin = static_cast<std::size_t>(loud - wav.left.begin());
  EXPECT_LT(begin, 48000u / 10) << "from the start on";
  EXPECT_NEAR(pitchAt(wav.left, begin + 12'000), test::toneOfSecond(0), 5);
  EXPECT_NEAR(pitchAt(wav.left, begin + 48'000 + 12'000), test::toneOfSecond(1), 5);
}

TEST_F(AVAudioSessionTest, ARecordingThatCannotBeginIsAnError) {
  EXPECT_NE(session.startRecording("/nowhere/at/all.wav"), nullptr);
}

}  // namespace
}  // namespace zaffo
