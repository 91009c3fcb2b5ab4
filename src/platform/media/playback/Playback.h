#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/coremedia/CMTimebase.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/media/playback/DecodeBurst.h"
#include "platform/media/soundtrack/Soundtrack.h"
#include "platform/media/video/FrameStore.h"
#include "platform/media/video/VideoTrack.h"

namespace zaffo::media {

/// Plays one item, sound and picture, against a timebase of its own. Everything runs on a serial
/// queue of its own, woken by commands, by the source, and by a timer for the next thing due; while
/// it stands still nothing runs. Commands return at once. Thread: any.
///
///                    setRate > 0                      end or failure
///     seeking ───> ready ─────────────> running ───────────────────> ready (at the end)
///        ^           │ ^                   │
///        └───────────┘ └───────────────────┘
///            seek            setRate 0            close, from anywhere: gone
///
/// An idle playback at the first frame keeps that frame and the first stretch of sound, nothing
/// else; playing on decodes again from the sync sample.
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
  using Completion = std::function<void(bool finished)>;

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
  [[nodiscard]] bool isLatestCommand(uint64_t command) const { return commands_ == command; }

  [[nodiscard]] CMTime currentTime() const;
  [[nodiscard]] const std::shared_ptr<CMTimebase>& timebase() const { return timebase_; }
  [[nodiscard]] const std::shared_ptr<FrameStore>& frames() const { return frames_; }
  [[nodiscard]] CMTime duration() const { return duration_; }

 private:
  struct Seek {
    uint64_t generation = 0;
    CMTime time, earliest, latest;
    Completion completion;
  };

  /// Where sound that starts while playing comes in.
  struct Joint {
    CMTime time;
    int64_t outputFrame = 0;
  };

  Playback(std::shared_ptr<SampleSource> source, AudioOutput& output, Events events);
  void openTracks(std::span<const TrackVolume> volumes);
  void post(void (Playback::*step)());

  void beginSeek(Seek seek);
  void continueSeek();
  void finishSeek(VideoFrame frame);
  void failSeek();
  void completeSeek(bool finished);
  void settle();
  [[nodiscard]] bool showFirstFrameFor(const Seek& seek);

  void applyRate(double rate);
  void startRunning();
  void changeRate();
  void joinSound();
  void soundIsReady();
  void pause();
  void collapse();

  void pump();
  void decodeAhead(CMTime now);
  [[nodiscard]] std::size_t framesForDecodeOnlyRun() const;
  void schedulePump();
  void finish(CMTime end);
  [[nodiscard]] CMTime endOf(const VideoFrame& frame) const;
  [[nodiscard]] std::optional<CMTime> endTime() const;
  [[nodiscard]] std::optional<int64_t> nextPumpHostTime() const;

  [[nodiscard]] bool superseded() const;
  void fail(NSErrorPtr error);
  void completePrerolls(bool finished);
  void setPosition(CMTime time);

  const std::shared_ptr<SampleSource> source_;
  AudioOutput& output_;
  const CMTime duration_;
  const DispatchQueuePtr queue_;
  const std::shared_ptr<CMTimebase> timebase_;
  const std::shared_ptr<FrameStore> frames_;

  std::atomic<bool> closed_{false};
  std::atomic<uint64_t> newestSeek_{0};
  std::atomic<uint64_t> commands_{0};

  /// Where playback started last; the timebase is behind it until the sound is heard.
  mutable Mutex positionMutex_;
  CMTime position_ ZAFFO_GUARDED_BY(positionMutex_) = kCMTimeZero;

  // All below is the queue's.
  Events events_;
  std::unique_ptr<VideoTrack> video_;
  std::unique_ptr<Soundtrack> sound_;
  double rate_ = 0;
  bool ready_ = false;    ///< the frame of the present position is on show
  bool running_ = false;  ///< the timebase moves
  std::optional<Seek> seek_;
  uint64_t handledSeek_ = 0;  ///< generation of the last seek begun
  std::vector<Completion> prerolls_;
  bool soundIsPrefilled_ = false;
  std::optional<Joint> joint_;   ///< where the sound waits to join in
  uint64_t handledCommand_ = 0;  ///< the last rate or seek that was begun
  bool atEnd_ = false;           ///< stopped by itself, not sought since
  std::optional<VideoFrame> firstFrame_;
  bool videoEnded_ = false;
  bool waitsForSource_ = false;
  DecodeBurst burst_;
  CMTime videoEnd_ = kCMTimeZero;
  NSErrorPtr error_;
  DispatchTimerPtr timer_;
};

}  // namespace zaffo::media
