// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include "platform/media/CodecConfig.h"
#include "platform/media/source/ReadTask.h"
#include "platform/media/source/SampleSource.h"
#include "platform/media/source/SegmentReader.h"
#include "platform/streaming/StreamClock.h"
#include "platform/streaming/StreamFeed.h"

namespace zaffo::streaming {

/// Walks the samples of one track of a stream, segment after segment, on the stream's time line.
/// Segments continue each other: a decoder is told of a new start only where another rendition, run
/// or header begins. Holds the segments that lie next, so that they are brought. Never waits.
/// Thread: one at a time.
class StreamCursor final : public media::SampleCursor {
 public:
  /// The bytes of segments that are held ahead, with the one that is read.
  static constexpr int64_t kMostBytesAhead = int64_t{8} << 20;
  static constexpr std::size_t kMostSegmentsAhead = 3;

  /// `clock` is shared by all cursors of the stream; `config` is what its first segment told.
  StreamCursor(std::shared_ptr<StreamFeed> feed, std::shared_ptr<StreamClock> clock,
               AVMediaType type, media::CodecConfig config);
  ~StreamCursor() override;

  [[nodiscard]] media::Outcome next(media::Sample& sample) override;
  [[nodiscard]] bool seek(CMTime time) override;
  [[nodiscard]] NSErrorPtr error() const override { return error_; }
  [[nodiscard]] const AVCodecParameters& codecParameters() const override {
    return *config_.parameters();
  }
  void setReadyHandler(std::function<void()> handler) override;

 private:
  /// What the samples given last belonged to.
  struct Place {
    std::size_t rendition = 0;
    int run = 0;
    std::string header;
  };

  void leave();
  void startAt(int64_t number);
  [[nodiscard]] media::Outcome enter();
  [[nodiscard]] media::Outcome awaitSegment();
  void skipTo(int64_t number);
  [[nodiscard]] double secondsRead() const;
  void hold(std::shared_ptr<const StreamSegment> segment);
  void readOne();
  void begin();
  void take();
  void takeToLand(media::Sample sample);
  void land();
  void endSegment();
  void place(media::Sample& sample);
  void prefetch();

  const std::shared_ptr<StreamFeed> feed_;
  const std::shared_ptr<StreamClock> clock_;
  const AVMediaType type_;
  std::function<void()> ready_;
  media::CodecConfig config_;  // of the samples given from now on

  int64_t number_;                                          // of the segment that is read
  std::shared_ptr<const StreamSegment> segment_;            // null until it is entered
  std::deque<std::shared_ptr<const StreamSegment>> ahead_;  // those that follow it
  std::unique_ptr<media::ReadTask> task_;
  std::unique_ptr<media::SegmentReader> reader_;  // made by the task's work
  media::Sample read_;                            // by the work
  media::Outcome outcome_ = media::Outcome::Again;
  bool hasBegun_ = false;  // the reader, and its times have a place

  CMTime offset_;                   // from the segment's times to the stream's
  std::optional<CMTime> target_;    // sought, and the place for it not found yet
  int64_t lowest_ = 0;              // segment that it was looked for in
  std::deque<media::Sample> held_;  // to be given
  std::optional<Place> lastPlace_;  // null after a seek
  bool startsAnew_ = false;         // the next sample is marked as a discontinuity
  CMTime shownUntil_;               // what came before a new start, shown up to here
  CMTime lastEnd_ = kCMTimeNegativeInfinity;
  CMTime lastDecode_;
  std::shared_ptr<media::WantHandler> waiter_;  // for a live stream's list to go on
  bool hasEnded_ = false;
  NSErrorPtr error_;
};

}  // namespace zaffo::streaming
