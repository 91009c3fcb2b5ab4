// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "platform/media/ReorderHorizon.h"
#include "platform/media/source/SampleSource.h"
#include "platform/media/video/SampleQueueDecoder.h"

namespace zaffo::media {

/// The pictures of one video track: finds the frame of any time exactly, then gives the frames that
/// follow it in order. Reads a sample at a time into a queue, as the decoder of that asks for them,
/// so that its owner can turn to something newer between two steps. Thread: one at a time.
///
/// A frame that is known to be the one sought is had as soon as its sample is in, without waiting
/// for the samples that would confirm its place. That is a sync sample's frame that will do, and
/// the frame at time zero. Where a sync sample lies after the time, the samples behind it are read
/// first, for one that is presented before it. What follows such a frame is decoded from the sync
/// sample again, if it is ever asked for; until then the decoder may be let go.
///
/// Where the sync sample lies so far before the time that decoding from there takes long, its frame
/// is decoded alone first: there is a preview then, for whoever cannot wait for the frame itself.
class VideoTrack {
 public:
  VideoTrack(std::shared_ptr<SampleSource> source, int trackID);

  /// Starts the search for the frame shown at `time`; a sync sample's frame from `earliest` to
  /// `latest` will do as well.
  void beginSeek(CMTime time, CMTime earliest, CMTime latest);
  /// A step of the search: Ready when found. Again while the source has nothing yet, which its
  /// ready handler will tell.
  [[nodiscard]] Outcome stepSeek(VideoFrame& frame);
  /// Whether the preview is being decoded: a few steps, of which one is the frame.
  [[nodiscard]] bool isMakingPreview() const { return search_ == Search::Preview; }
  /// Of the search under way, until the frame itself is found.
  [[nodiscard]] bool hasPreview() const { return preview_.has_value(); }
  [[nodiscard]] std::optional<VideoFrame> takePreview() {
    return std::exchange(preview_, std::nullopt);
  }

  /// A step towards the frame after the last one given; End when there is none.
  [[nodiscard]] Outcome stepNext(VideoFrame& frame);

  /// Frames after the last one given that will be too late: those that no other refers to may be
  /// left out up to `time`.
  void hurryTo(CMTime time) { hurryTo_ = time; }
  /// Reads on up to `time`, not with an invalid time, before another frame is decoded: what lies
  /// before the last sync sample on the way is left out.
  void leapTo(CMTime time) { leapTo_ = time; }
  /// How many frames were left out since the last call.
  [[nodiscard]] std::size_t takeLate() { return decoder_.takeLate(); }

  /// Lets go of the decoder when it can be rebuilt from the sync sample last shown.
  void releaseDecoderIfRebuildable() { decoder_.letGoIfSpent(); }
  [[nodiscard]] bool hasDecoder() const { return decoder_.hasDecoder(); }
  /// Goes on after the frame that is presented at `shown`, from the sync sample at or before it:
  /// nothing of what was read or decoded is needed any more.
  void resumeAfter(CMTime shown);

  /// How many a picture of what was read last has.
  [[nodiscard]] int64_t pixels() const {
    return format_ ? int64_t{format_->width()} * format_->height() : 0;
  }
  /// What is decoded where a segment begins.
  [[nodiscard]] const DecodeOnlyRun& decodeOnlyRun() const { return decodeOnlyRun_; }

  [[nodiscard]] const NSErrorPtr& error() const { return error_; }

  void setReadyHandler(std::function<void()> handler) { readyHandler_ = std::move(handler); }

 private:
  /// How the frame that is sought is found.
  enum class Search {
    None,
    Undecided,   ///< the first sample will tell
    NextSync,    ///< the sync sample after the time may do: look for it without decoding
    Preview,     ///< decode the sync sample alone, then all from there
    BehindSync,  ///< the first one lies after the time: look for what is presented before it
    Decoding,    ///< decode up to the frame
  };

  [[nodiscard]] bool placeAt(CMTime time);
  [[nodiscard]] bool openCursor();
  [[nodiscard]] Outcome read(Sample& sample);
  void enqueue(Sample sample);
  [[nodiscard]] Outcome decideSearch();
  [[nodiscard]] Outcome stepToNextSync();
  [[nodiscard]] Outcome stepBehindSync();
  [[nodiscard]] bool isFarBehind(const Sample& sync) const;
  [[nodiscard]] Outcome beginPreview(Sample sync);
  [[nodiscard]] Outcome stepPreview();
  [[nodiscard]] Outcome stepDecoding(VideoFrame& frame);
  [[nodiscard]] Outcome searchAgain();
  [[nodiscard]] Outcome step(SampleQueueDecoder::Demand demand, VideoFrame& frame);
  [[nodiscard]] bool readsOn() const;
  [[nodiscard]] Outcome feed();
  [[nodiscard]] Outcome fail(NSErrorPtr error);

  const std::shared_ptr<SampleSource> source_;
  const int trackID_;
  std::function<void()> readyHandler_;
  std::unique_ptr<SampleCursor> cursor_;
  std::shared_ptr<const CMFormatDescription> format_;  ///< of the samples that are read
  SampleQueue samples_;
  SampleQueueDecoder decoder_{samples_};
  DecodeOnlyRun decodeOnlyRun_;  ///< of what is read
  NSErrorPtr error_;
  NSErrorPtr readError_;   ///< the source gave no more; what was read before is still decoded
  bool hasEnded_ = false;  ///< the source gave all

  Search search_ = Search::None;
  CMTime target_ = kCMTimeInvalid;
  CMTime earliest_ = kCMTimeInvalid;
  CMTime latest_ = kCMTimeInvalid;
  CMTime sought_ = kCMTimeInvalid;  ///< the frame's own time, where that is known
  std::optional<VideoFrame> preview_;
  bool passedNewStart_ = false;  ///< on the way to the next sync sample
  CMTime lateSync_;              ///< of the sync sample that lies after the time
  ReorderHorizon horizon_;       ///< of it and what was read behind it

  CMTime hurryTo_ = kCMTimeInvalid;
  CMTime leapTo_ = kCMTimeInvalid;
  CMTime resumeAt_ = kCMTimeInvalid;  ///< nothing of what follows it was read
};

}  // namespace zaffo::media
