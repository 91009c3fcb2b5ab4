// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/dispatch/DispatchTimer.h"
#include "platform/media/playback/CommandLog.h"
#include "platform/media/playback/PictureSupply.h"
#include "platform/media/playback/PlaybackClock.h"
#include "platform/media/playback/PlaybackState.h"
#include "platform/media/playback/SoundSupply.h"

namespace zaffo::media {

/// Plays one item, sound and picture, against a timebase of its own. Everything runs on a serial
/// queue of its own, in short turns, woken by commands, by the source, and by a timer for the next
/// thing due; but sound that was started flows on one of its own. While it stands still nothing
/// runs. Commands return at once. Thread: any.
///
/// It decides what is done next (see PlaybackState); where it is, what is seen and what is heard
/// are its clock's, its pictures' and its sound's.
///
/// A playback that stands still, from the start at the first frame and after a while anywhere else,
/// keeps the frame on show and a stretch of sound, nothing else; playing on decodes again from the
/// sync sample.
class Playback : public std::enable_shared_from_this<Playback> {
 public:
  /// Called on the playback's queue; a step under way while close() is called may still call one.
  /// The owner goes to its own thread and looks whether this is still its playback, and, when it
  /// stopped by itself, whether that was after the owner's latest command.
  struct Events {
    std::function<void()> pictureChanged;
    std::function<void(uint64_t command)> ended;
    std::function<void(uint64_t command, NSErrorPtr)> failed;
  };
  using Completion = SeekRequest::Completion;

  /// Starts at once to find the first frame. `volumes`: of the sound tracks that are not heard at
  /// full volume.
  [[nodiscard]] static std::shared_ptr<Playback> create(std::shared_ptr<SampleSource> source,
                                                        AudioOutput& output, Events events,
                                                        std::span<const TrackVolume> volumes = {});
  ~Playback();
  Playback(const Playback&) = delete;
  Playback& operator=(const Playback&) = delete;

  /// 0 stands still; the rate holds through seeks and starts as soon as a frame is ready.
  void setRate(double rate);
  void setVolume(float volume);
  /// Goes to a frame within [time - before, time + after]: to a sync sample's where there is one,
  /// rather before `time` than after it. `completion` gets false when a newer seek or close() came
  /// first, or when there is no such frame.
  void seek(CMTime time, CMTime before, CMTime after, Completion completion);
  /// `completion` gets true once the frame of the present position is decoded and the sound is
  /// buffered; false when cancelled, failed or closed.
  void preroll(Completion completion);
  void cancelPrerolls();
  /// Ends everything; what is held is let go of on a worker.
  void close();

  /// Whether no rate was set and no seek asked for since `command`, which an event told.
  [[nodiscard]] bool isLatestCommand(uint64_t command) const { return commands_.isLatest(command); }

  [[nodiscard]] CMTime currentTime() const;
  /// Whether it waits for the source, with nothing left to be shown or heard: before its first
  /// picture and sound are there, and when they are for now all over.
  [[nodiscard]] bool waitsForSource() const { return lack_ == Lack::Pressing; }
  /// The same for one that was told to stand still while it waited.
  [[nodiscard]] bool stoodStillDry() const { return lack_ == Lack::Idle; }
  [[nodiscard]] const std::shared_ptr<CMTimebase>& timebase() const { return clock_.timebase(); }
  [[nodiscard]] const std::shared_ptr<FrameStore>& frames() const { return frames_; }

 private:
  using Seek = std::shared_ptr<SeekRequest>;
  /// Whether the source has to give more before it can go on, and whether it means to.
  enum class Lack : uint8_t { None, Idle, Pressing };
  static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

  Playback(const std::shared_ptr<SampleSource>& source, AudioOutput& output, Events events,
           std::span<const TrackVolume> volumes);
  [[nodiscard]] std::function<void()> posting(void (Playback::*step)());
  void post(void (Playback::*step)()) { posting(step)(); }

  // All below is the queue's.
  void enter(PlaybackState state);
  void beginSeek(Seek seek);
  void continueSeek();
  void nextSeekTurn();
  void waitInSeek();
  void showPreview();
  void finishSeek();
  void endSeek(bool finished);
  void settle();
  void completePrerolls(bool finished);
  void applyRate(double rate);
  void startRunning();
  void changeRate();
  void pause();
  void restLater();
  void restMore();
  void wait();
  void goOn();
  void soundIsReady();
  void pump();
  [[nodiscard]] bool catchUp(int64_t host);
  [[nodiscard]] bool runsDry(int64_t host) const;
  void schedulePump();
  void setTimer(int64_t host, void (Playback::*step)());
  void cancelTimer();
  [[nodiscard]] std::optional<int64_t> nextPumpHostTime() const;
  [[nodiscard]] std::optional<CMTime> endTime() const;
  void finish(CMTime end);
  void fail(NSErrorPtr error);
  void letGo();

  const std::shared_ptr<SerialQueue> queue_;
  PlaybackClock clock_;
  const std::shared_ptr<FrameStore> frames_;
  CommandLog commands_;
  std::atomic<Lack> lack_ = Lack::Pressing;

  Events events_;
  PlaybackState state_ = PlaybackState::Seeking;
  PictureSupply pictures_;
  SoundSupply sound_;
  double rate_ = 0;
  Seek seek_;  ///< none when the one that was sought last was superseded
  bool isSeekTurnPosted_ = false;
  int64_t previewDue_ = kNever;  ///< host time from which on a seek has taken long
  std::vector<Completion> prerolls_;
  NSErrorPtr error_;  ///< why it cannot go on, or not for long
  DispatchTimerPtr timer_;
  int64_t pumpDue_ = kNever;  ///< host time at which the next pump was to be at the latest
};

}  // namespace zaffo::media
