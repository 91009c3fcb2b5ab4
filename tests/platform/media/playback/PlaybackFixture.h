// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/MemorySource.h"
#include "platform/media/Encoding.h"
#include "platform/media/GatedSource.h"
#include "platform/media/output/CapturedOutput.h"
#include "platform/media/playback/Playback.h"

namespace zaffo::media {

/// A playback of pictures and of an even sound that lie in memory, behind a
/// gate.
class PlaybackFixture : public testing::Test {
 protected:
  static constexpr int64_t kSecond = kNanosecondsPerSecond;
  static constexpr int64_t kFrame = kSecond / kEncodedRate;
  static constexpr int kPictures = 1, kSound = 2;

  ~PlaybackFixture() override {
    if (playback_) playback_->close();
    time_.settle();
  }

  /// With `soundSeconds` of sound, none with zero.
  void open(const PictureScript& script, int soundSeconds) {
    const auto source = std::make_shared<MemorySource>();
    source->setDuration(CMTimeMake(script.count, kEncodedRate));
    Encoded pictures = encodePictures(script);
    source->add({.type = AVMediaTypeVideo,
                 .parameters = std::move(pictures.parameters),
                 .samples = std::move(pictures.samples),
                 .formats = {}});
    if (soundSeconds > 0) {
      Encoded sound = makeSound(0, int64_t{CapturedOutput::kRate} * soundSeconds, 1024,
                                [](int64_t) { return 0.5f; });
      source->add({.type = AVMediaTypeAudio,
                   .parameters = std::move(sound.parameters),
                   .samples = std::move(sound.samples),
                   .formats = {}});
    }
    memory_ = source;
    source_ = std::make_shared<GatedSource>(source);
    Playback::Events events;
    events.pictureChanged = [this] {
      if (pictureChanged_) pictureChanged_();
    };
    events.ended = [this](uint64_t) { ++ended_; };
    events.failed = [this](uint64_t, const NSErrorPtr&) { ++failed_; };
    playback_ = Playback::create(source_, output_, std::move(events));
    time_.settle();
  }
  void setRate(double rate) {
    playback_->setRate(rate);
    time_.settle();
  }

  /// What tells the picture that is drawn now from its neighbours.
  [[nodiscard]] std::optional<int> shown() {
    return pictureNumber(playback_->frames()->bufferAtHostTime(TimeSource::now()));
  }
  /// What shown() gives for the picture of a number: a grey is a byte.
  [[nodiscard]] static int greyOf(int number) {
    const int grey = (kGreyOfZero + kGreyStep * number) % 256;
    return (grey - kGreyOfZero + kGreyStep / 2) / kGreyStep;
  }
  [[nodiscard]] double seconds() const { return CMTimeGetSeconds(playback_->currentTime()); }
  [[nodiscard]] bool runs() const { return playback_->timebase()->rate() != 0; }

  /// How many of the 10 ms between two output frames are silent.
  [[nodiscard]] int silencesIn(int64_t first, int64_t end) const {
    const auto sound = output_.heard(first, end);
    int silences = 0;
    for (std::size_t at = 0; at + 960 <= sound.size(); at += 960) {
      bool isSilent = true;
      for (std::size_t i = at; i < at + 960; ++i) isSilent = isSilent && sound[i] == 0;
      silences += isSilent;
    }
    return silences;
  }

  ManualTime time_;
  CapturedOutput output_;
  std::shared_ptr<MemorySource> memory_;
  std::shared_ptr<GatedSource> source_;
  std::shared_ptr<Playback> playback_;
  std::function<void()> pictureChanged_;   ///< called on the playback's queue
  std::atomic<int> ended_{0}, failed_{0};  ///< how often that was told
};

}  // namespace zaffo::media
