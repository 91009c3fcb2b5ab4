#include "platform/avfoundation/AVAudioSession.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "doubles/ManualTime.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/media/AudioOutput.h"
#include "platform/media/MediaServices.h"

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

TEST_F(AVAudioSessionTest, RecordsWhatIsPlayedToNoDevice) {
  const std::string path = testing::TempDir() + "AVAudioSessionTest.wav";
  session.setOutput(AVAudioSession::Output::None);
  ASSERT_EQ(session.startRecording(path), nullptr);
  time.advance(1000 * kNanosecondsPerMillisecond);
  session.stopRecording();
  EXPECT_EQ(std::filesystem::file_size(path), 94u + 8 * 48000 * 102 / 100);
  std::filesystem::remove(path);
  session.stopRecording();
}

TEST_F(AVAudioSessionTest, ARecordingThatCannotBeginIsAnError) {
  EXPECT_NE(session.startRecording("/nowhere/at/all.wav"), nullptr);
}

}  // namespace
}  // namespace zaffo
