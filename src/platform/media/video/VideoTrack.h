#pragma once

#include <memory>
#include <optional>

#include "platform/media/ReorderHorizon.h"
#include "platform/media/codec/VideoDecoder.h"
#include "platform/media/source/SampleSource.h"
#include "platform/media/video/DecodeOnlyRun.h"

namespace zaffo::media {

/// The pictures of one video track: finds the frame of any time exactly, then gives the frames that
/// follow it in order. Works a sample at a time, so that its owner can turn to something newer
/// between two steps. Thread: one at a time.
///
/// The frame at a sync sample is drained out of the decoder as soon as that one sample is in,
/// without waiting for the frames that would confirm its place (where it lies after the time, the
/// samples behind it are read first, for one that is presented before it); and so is the frame at
/// time zero that is not a sync sample, once its own sample and the few before it are in. What
/// follows is then decoded from the sync sample again, if it is ever asked for; until then the
/// decoder may be let go.
class VideoTrack {
 public:
  VideoTrack(std::shared_ptr<SampleSource> source, int trackID);

  /// Starts the search for the frame shown at `time`; a sync sample's frame from `earliest` to
  /// `latest` will do as well.
  void beginSeek(CMTime time, CMTime earliest, CMTime latest);
  /// A step of the search: Ready when found. Again while the source has nothing yet, which its
  /// ready handler will tell.
  [[nodiscard]] Outcome stepSeek(VideoFrame& frame);

  /// A step towards the frame after the last one given; End when there is none.
  [[nodiscard]] Outcome stepNext(VideoFrame& frame);

  /// Frames after the last one given that will be too late: those that no other refers to may be
  /// left out up to `time`.
  void hurryTo(CMTime time) { hurryTo_ = time; }

  /// Lets go of the decoder when it can be rebuilt from the sync sample last shown.
  void releaseDecoderIfRebuildable();
  /// Goes on after `frame`, which was given for the sync sample at or before it, decoder let go.
  void resumeAfter(const VideoFrame& frame);

  /// What is decoded where a segment begins.
  [[nodiscard]] const DecodeOnlyRun& decodeOnlyRun() const { return decodeOnlyRun_; }

  [[nodiscard]] const NSErrorPtr& error() const { return error_; }

  void setReadyHandler(std::function<void()> handler) { readyHandler_ = std::move(handler); }

 private:
  [[nodiscard]] bool prepareDecoderAt(CMTime time);
  [[nodiscard]] bool openCursor();
  [[nodiscard]] bool openOrResetDecoder();
  void send(const Sample& sample);
  [[nodiscard]] bool isSoughtFirstFrame(const Sample& sample) const;
  [[nodiscard]] Outcome searchAgain();
  [[nodiscard]] Outcome feed();
  [[nodiscard]] bool maySkip(const Sample& sample);
  [[nodiscard]] Outcome decideSearch();
  [[nodiscard]] Outcome stepToNextSync();
  [[nodiscard]] Outcome stepBehindSync();
  [[nodiscard]] Outcome drainSync(const Sample& sample);
  [[nodiscard]] Outcome stepDrainedSync(VideoFrame& frame);
  [[nodiscard]] Outcome stepExact(VideoFrame& frame);
  [[nodiscard]] Outcome fail(NSErrorPtr error);

  /// How the frame that is sought is found.
  enum class Search {
    None,
    Undecided,    ///< the first sample will tell
    NextSync,     ///< the sync sample after the time may do: look for it without decoding
    BehindSync,   ///< the first one lies after the time: look for what is presented before it
    DrainedSync,  ///< the sync sample itself is wanted: drain it out
    Exact,        ///< decode up to the first frame after the time
  };

  const std::shared_ptr<SampleSource> source_;
  const int trackID_;
  std::function<void()> readyHandler_;
  std::unique_ptr<SampleCursor> cursor_;
  std::unique_ptr<VideoDecoder> decoder_;
  NSErrorPtr error_;
  NSErrorPtr readError_;  ///< the source gave no more; what was read before is still decoded

  Search search_ = Search::None;
  CMTime target_ = kCMTimeInvalid;
  CMTime earliest_ = kCMTimeInvalid;
  CMTime latest_ = kCMTimeInvalid;
  bool passedNewStart_ = false;  ///< on the way to the next sync sample
  Sample lateSync_;              ///< the sync sample that lies after the time
  ReorderHorizon horizon_;       ///< of it and what was read behind it
  VideoFrame candidate_;
  std::optional<VideoFrame> lookahead_;

  CMTime skipUpTo_ = kCMTimeInvalid;  ///< frames up to it may be left out if unreferenced
  CMTime latestSentUpTo_ =
      kCMTimeInvalid;                    ///< latest presentation sent that is not after skipUpTo_
  CMTime dropThrough_ = kCMTimeInvalid;  ///< frames up to it were given already
  CMTime hurryTo_ = kCMTimeInvalid;
  bool needsRestart_ = false;  ///< the decoder is drained or gone; go on from restartAt_
  CMTime restartAt_ = kCMTimeZero;
  bool draining_ = false;
  bool drainsAtTarget_ = false;   ///< when the sample of the frame sought is in
  bool drainedAtTarget_ = false;  ///< it is
  int sentSincePrepared_ = 0;
  DecodeOnlyRun decodeOnlyRun_;
  bool gaveFrame_ = false;  ///< since the decoder was last prepared
};

}  // namespace zaffo::media
