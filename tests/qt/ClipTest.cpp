// SPDX-License-Identifier: Apache-2.0
#include <ZaffoQt/ZaffoClip.h>
#include <gmock/gmock.h>

#include <QtCore/QPointer>
#include <QtMultimedia/QVideoFrame>
#include <QtMultimedia/QVideoSink>

#include <limits>
#include <memory>
#include <numeric>
#include <vector>

#include "QtTestSupport.h"

namespace zaffo::test {
namespace {

/// The number in a frame's first plane.
int numberIn(QVideoFrame frame) {
  if (!frame.map(QVideoFrame::ReadOnly)) return -1;
  const int stride = frame.bytesPerLine(0);
  const auto brightness = [&](int x, int y) -> double { return frame.bits(0)[y * stride + x]; };
  const int number = readFrameNumber(frame.width(), frame.height(), brightness).value_or(-1);
  frame.unmap();
  return number;
}

class ClipTest : public QtTest {
 protected:
  /// A clip that plays once, with its first picture.
  ZaffoClip* play(const char* name, QVideoSink* sink = nullptr) {
    clip_ = std::make_unique<ZaffoClip>();
    clip_->setLooping(false);
    clip_->setVideoSink(sink);
    clip_->setSource(urlOf(name));
    settle();
    return clip_.get();
  }
  int frameNow() { return test::numberIn(clip_->image(QSize(192, 108))); }

  std::unique_ptr<ZaffoClip> clip_;
};

TEST_F(ClipTest, PlaysToASinkPictureByPicture) {
  QVideoSink sink;
  std::vector<int> numbers;
  QObject::connect(&sink, &QVideoSink::videoFrameChanged,
                   [&](const QVideoFrame& frame) { numbers.push_back(numberIn(frame)); });
  play("video_only.mp4", &sink);
  EXPECT_EQ(clip_->status(), ZaffoClip::Ready);
  EXPECT_EQ(clip_->pictureSize(), QSizeF(192, 108));
  advance(59 * kFrame + kNanosecondsPerMillisecond);
  std::vector<int> all(60);
  std::iota(all.begin(), all.end(), 0);
  EXPECT_EQ(numbers, all);
}

TEST_F(ClipTest, TheDecodersPlanesAreHandedOnAsTheyAre) {
  QVideoSink sink;
  play("color_bt601.mp4", &sink);
  EXPECT_EQ(sink.videoFrame().pixelFormat(), QVideoFrameFormat::Format_YUV420P);
  play("rotated_90.mp4", &sink);
  EXPECT_EQ(sink.videoFrame().size(), QSize(144, 256));
  EXPECT_EQ(clip_->pictureSize(), QSizeF(256, 144));
}

TEST_F(ClipTest, ALoopGoesOn) {
  play("video_only.mp4");
  clip_->setLooping(true);
  settle();
  advance(5 * kNanosecondsPerSecond);
  EXPECT_NEAR(clip_->position(), 5, 0.001);
  EXPECT_GT(clip_->duration(), 60);
  EXPECT_EQ(frameNow(), static_cast<int>((5 - 2 * 1.9 + 0.05) * 30));
}

TEST_F(ClipTest, WhatNobodyLooksAtIsToldOfOneChange) {
  play("video_only.mp4");
  int told = 0;
  QObject::connect(clip_.get(), &ZaffoClip::pictureChanged, [&] { ++told; });
  advance(kNanosecondsPerSecond);
  EXPECT_EQ(told, 1);
  EXPECT_EQ(frameNow(), 30);
  advance(kNanosecondsPerSecond / 2);
  EXPECT_EQ(told, 2);
}

TEST_F(ClipTest, AnImageIsConvertedOnceForEachPictureAndSize) {
  play("video_only.mp4");
  const QImage first = clip_->image(QSize(96, 54));
  EXPECT_EQ(first.cacheKey(), clip_->image(QSize(96, 54)).cacheKey());
  EXPECT_EQ(clip_->image(QSize(48, 27)).size(), QSize(48, 27));
  advance(kFrame + kNanosecondsPerMillisecond);
  EXPECT_NE(first, clip_->image(QSize(96, 54)));
  EXPECT_TRUE(clip_->image(QSize(0, 54)).isNull());
}

TEST_F(ClipTest, AnInactiveClipHasNoPlayerAndWakesNobody) {
  QVideoSink sink;
  play("video_only.mp4", &sink);
  advance(10 * kFrame);
  clip_->setActive(false);
  settle();
  EXPECT_EQ(clip_->status(), ZaffoClip::Idle);
  EXPECT_FALSE(clip_->hasPicture());
  EXPECT_TRUE(clip_->image(QSize(192, 108)).isNull());
  EXPECT_EQ(clip_->pictureSize(), QSizeF(192, 108)) << "which a layout may need";
  int frames = 0;
  QObject::connect(&sink, &QVideoSink::videoFrameChanged, [&] { ++frames; });
  advance(kNanosecondsPerSecond);
  EXPECT_EQ(frames, 0);
  EXPECT_FALSE(time_.hasTimer());

  clip_->setActive(true);
  EXPECT_EQ(clip_->status(), ZaffoClip::Ready) << "the pool has kept it";
  settle();
  EXPECT_EQ(frameNow(), 0) << "it begins anew";
}

TEST_F(ClipTest, AClipThatGoesWhileItPlaysLeavesNothing) {
  QVideoSink sink;
  play("h264_30.mp4", &sink);
  advance(10 * kFrame);
  int frames = 0;
  QObject::connect(&sink, &QVideoSink::videoFrameChanged, [&] { ++frames; });
  clip_.reset();
  settle();
  advance(kNanosecondsPerSecond);
  EXPECT_EQ(frames, 0);
  EXPECT_FALSE(time_.hasTimer()) << "something still plays";
}

TEST_F(ClipTest, ASinkMayGoFirst) {
  auto sink = std::make_unique<QVideoSink>();
  play("video_only.mp4", sink.get());
  advance(5 * kFrame + kNanosecondsPerMillisecond);
  EXPECT_EQ(numberIn(sink->videoFrame()), 5);
  sink.reset();
  EXPECT_EQ(clip_->videoSink(), nullptr);
  advance(5 * kFrame);
  EXPECT_EQ(frameNow(), 10);
  QVideoSink another;
  clip_->setVideoSink(&another);
  EXPECT_EQ(numberIn(another.videoFrame()), 10) << "at once, the one that is due";
}

TEST_F(ClipTest, AnotherSourceTakesTheClipsPlace) {
  QVideoSink sink;
  play("video_only.mp4", &sink);
  advance(5 * kFrame);
  clip_->setSource(urlOf("portrait.mp4"));
  EXPECT_FALSE(clip_->hasPicture());
  EXPECT_TRUE(clip_->pictureSize().isEmpty());
  settle();
  EXPECT_EQ(clip_->pictureSize(), QSizeF(144, 256));
  EXPECT_EQ(sink.videoFrame().size(), QSize(144, 256));
}

TEST_F(ClipTest, ALoadUnderWayIsGivenUp) {
  ZaffoClip clip;
  std::vector<ZaffoClip::Status> told;
  QObject::connect(&clip, &ZaffoClip::statusChanged, [&] { told.push_back(clip.status()); });
  clip.setSource(QUrl("file:///no such folder/missing.mp4"));
  clip.setSource(urlOf("video_only.mp4"));
  settle();
  EXPECT_THAT(told, testing::ElementsAre(ZaffoClip::Loading, ZaffoClip::Ready));
}

TEST_F(ClipTest, WhatIsWrongWithAFileIsTold) {
  ZaffoClip clip;
  clip.setSource(QUrl("file:///no such folder/missing.mp4"));
  settle();
  EXPECT_EQ(clip.status(), ZaffoClip::Failed);
  EXPECT_THAT(clip.error().toStdString(), testing::HasSubstr("missing.mp4"));
  clip.setActive(false);
  EXPECT_EQ(clip.error(), QString());
  clip.setActive(true);
  settle();
  EXPECT_EQ(clip.status(), ZaffoClip::Failed) << "it is tried again";
  clip.setSource(QUrl("qrc:/clip.mp4"));
  EXPECT_EQ(clip.status(), ZaffoClip::Failed);
  EXPECT_THAT(clip.error().toStdString(), testing::HasSubstr("qrc:/clip.mp4"));
}

TEST_F(ClipTest, AClipMayGoInsideWhatItTells) {
  for (const auto signal : {&ZaffoClip::statusChanged, &ZaffoClip::hasPictureChanged,
                            &ZaffoClip::pictureSizeChanged, &ZaffoClip::pictureChanged}) {
    QPointer<ZaffoClip> clip = new ZaffoClip;
    clip->setSource(urlOf("video_only.mp4"));
    QObject::connect(clip, signal, [clip] { delete clip; });
    settle();
    EXPECT_FALSE(clip);
  }
}

TEST_F(ClipTest, ASeekBeforeThereIsAPlayerIsKept) {
  ZaffoClip clip;
  clip.setLooping(false);
  clip.pause();
  clip.setSource(urlOf("video_only.mp4"));
  clip.seek(40.5 / 30);
  clip.seek(-1);
  clip.seek(std::numeric_limits<double>::quiet_NaN());
  settle();
  advance(kNanosecondsPerSecond);
  EXPECT_NEAR(clip.position(), 40.5 / 30, 0.0001);
  EXPECT_EQ(test::numberIn(clip.image(QSize(192, 108))), 40);
}

TEST_F(ClipTest, PropertiesAreKeptAndTold) {
  play("h264_30.mp4");
  int told = 0;
  const auto tell = [&] { ++told; };
  QObject::connect(clip_.get(), &ZaffoClip::volumeChanged, tell);
  QObject::connect(clip_.get(), &ZaffoClip::mutedChanged, tell);
  QObject::connect(clip_.get(), &ZaffoClip::playingChanged, tell);
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(clip_->setProperty("volume", 0.25));
    EXPECT_TRUE(clip_->setProperty("muted", true));
    EXPECT_TRUE(clip_->setProperty("playing", false));
  }
  EXPECT_EQ(told, 3);
  EXPECT_EQ(clip_->volume(), 0.25);
  const double position = clip_->position();
  advance(kNanosecondsPerSecond);
  EXPECT_EQ(clip_->position(), position) << "it is paused";
  clip_->setVolume(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(clip_->volume(), 0);
}

}  // namespace
}  // namespace zaffo::test
