// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "companion/ZFCancelCommand.h"
#include "fast/PlaybackSessionFactory.h"
#include "platform/avfoundation/AVPlayerItem.h"
#include "platform/avfoundation/AVSampleBufferDisplayLayer.h"
#include "platform/coremedia/CMTimebase.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/KeyValueObservation.h"
#include "platform/foundation/NSError.h"

namespace zaffo {

class AVSampleBufferDisplayLayerStatusObserver;
class PlaybackSession;
class PlaybackSessionReader;

/// Is told when a session fails. Held weakly.
class ZAFFO_EXPORT PlaybackSessionDelegate {
 public:
  virtual ~PlaybackSessionDelegate() = default;
  /// The display layer of `session` has failed with `error`, and the session has stopped. Called on
  /// the session's queue.
  virtual void playbackSession(const std::shared_ptr<PlaybackSession>& session,
                               const NSErrorPtr& error) = 0;
};

/// Plays the video of one item without an AVPlayer: compressed samples go from a reader to a
/// display layer, which decodes and shows them at the times of the session's own timebase. No
/// sound.
///
///     +---------+ start  +---------+ rate > 0  +---------+
///     | created | -----> | started | --------> | playing |
///     +---------+        |  rate 0 | <-------- +---------+
///                        +---------+  rate 0        |  the reader throws
///                          ^     |                  v
///                     seek |     | too         +----------+ last frame due  +-------+
///                          |     +-----------> | draining | --------------> | ended |
///                          |                   +----------+                 +-------+
///                          +------------------------+---------------------------+
///
///     Any state --- stop, failure of the layer ---> stopped: no reader; a seek starts it again
///
/// While the timebase is stopped it reads two seconds ahead and then asks for no more. When
/// everything has been read it waits until the last sample is due, stops the timebase and posts
/// AVPlayerItemDidPlayToEndTimeNotification, or AVPlayerItemFailedToPlayToEndTimeNotification, on
/// the main queue, with the item as the object. It never loops: to loop, seek to zero and set the
/// rate.
///
/// It reports what it does on standard output, in lines that begin with the session's number.
///
/// Thread: created and started on one thread, such as main; the other operations on any. Destroying
/// it, on any thread, neither waits nor calls back.
class ZAFFO_EXPORT PlaybackSession final : public std::enable_shared_from_this<PlaybackSession> {
 public:
  /// Null is success.
  using Completion = std::function<void(NSErrorPtr error)>;

  /// Domain of the errors below; the code is that of the call that failed.
  static constexpr const char* errorDomain = "com.zaffoapp.app";
  /// Seconds of media that a session at rate 0 reads ahead.
  static constexpr double readAhead = 2.0;

  [[nodiscard]] static std::shared_ptr<PlaybackSession> create(
      std::shared_ptr<AVPlayerItem> playerItem, PlaybackSessionFactory factory = {});
  ~PlaybackSession();
  PlaybackSession(const PlaybackSession&) = delete;
  PlaybackSession& operator=(const PlaybackSession&) = delete;

  /// Null when there is none, or it is gone.
  [[nodiscard]] std::shared_ptr<PlaybackSessionDelegate> delegate() const;
  void setDelegate(const std::shared_ptr<PlaybackSessionDelegate>& delegate);

  [[nodiscard]] const std::shared_ptr<AVPlayerItem>& playerItem() const { return playerItem_; }
  /// Null until start().
  [[nodiscard]] const std::shared_ptr<AVSampleBufferDisplayLayer>& displayLayer() const {
    return displayLayer_;
  }
  /// 0 for the process's first session, then counting up.
  [[nodiscard]] std::int64_t identifier() const { return identifier_; }

  /// Makes the layer and puts the first frame on it, at rate 0. `completion` (not empty) is called
  /// once, inside the call, with "Failed to create Audio Clock", "Failed to create timebase", or
  /// the reader's error when there is one.
  void start(const Completion& completion);

  /// Stops reading and withdraws the end notification, later, on the session's queue; the session
  /// lives at least until then. The layer keeps its picture and the timebase keeps running.
  void stop();

  /// Later, shows the frame at `time` and goes on at the current rate. `completion` (may be empty)
  /// is called only when that fails, on the session's queue; never on success. A fatal error before
  /// start() has succeeded.
  void seek(CMTime time, Completion completion);

  /// 0 before start().
  [[nodiscard]] double rate() const;
  /// Above 0, reading resumes. A fatal error before start().
  void setRate(double rate);

  /// kCMTimeZero before start().
  [[nodiscard]] CMTime currentTime() const;

 private:
  PlaybackSession(std::shared_ptr<AVPlayerItem> playerItem, PlaybackSessionFactory factory);

  [[nodiscard]] const std::shared_ptr<AVAsset>& asset();
  [[nodiscard]] CMTimebase& timebase() const;
  void observeDisplayLayerStatus();
  [[nodiscard]] NSErrorPtr makeTimebase();

  [[nodiscard]] NSErrorPtr setupReader(CMTime time);
  [[nodiscard]] NSErrorPtr makeReader(CMTime time);
  void teardownReader();

  void startReadingBuffers();
  void requestBuffers();
  void stopReadingBuffers();
  void readAndEnqueueVideoBuffers();
  void enqueueWhileReady(bool isPaused, CMTime position);
  [[nodiscard]] bool enqueueNextVideoBuffer();
  void videoBuffersHaveCome(const PlaybackSessionReader* reader);
  void notifyWhenLastBufferIsDue(CMTime position, DispatchBlock notify);

  void displayLayerStatusDidChange(AVQueuedSampleBufferRenderingStatus status);

  void trace(std::string_view text) const;

  static std::int64_t nextIdentifier_;

  ObservableProperty<std::weak_ptr<PlaybackSessionDelegate>> delegate_;
  const std::shared_ptr<AVPlayerItem> playerItem_;
  std::shared_ptr<AVAsset> asset_;  // Null until first used.
  std::shared_ptr<AVSampleBufferDisplayLayer> displayLayer_;
  const std::int64_t identifier_;
  const DispatchQueuePtr queue_;
  std::shared_ptr<PlaybackSessionReader> reader_;
  std::atomic<bool> readingBuffers_{false};
  std::shared_ptr<CMTimebase> timebase_;
  std::shared_ptr<CMClock> clock_;
  CMTime lastBufferTime_ = kCMTimeZero;
  ZFCancelCommandPtr notifyCompletionCommand_;
  const std::shared_ptr<AVSampleBufferDisplayLayerStatusObserver> displayLayerStatusObserver_;
  const PlaybackSessionFactory factory_;
};

}  // namespace zaffo
