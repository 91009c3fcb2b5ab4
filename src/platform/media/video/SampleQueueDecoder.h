// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "platform/media/codec/VideoDecoder.h"
#include "platform/media/video/DecodeOnlyRun.h"
#include "platform/media/video/SampleQueue.h"

namespace zaffo::media {

/// Decodes a queue just as far as it takes to show the right picture, for both players: whoever
/// fills the queue and says what is wanted has the policy. Of the frames that are due the last one
/// alone is given; those before it are decoded only if others refer to them. Works a sample at a
/// time. Thread: one at a time.
///
/// A first sample that is to be displayed immediately is drained out of the decoder without waiting
/// for those that follow. What follows is then decoded from it again, if it is ever asked for;
/// until then the decoder may be let go. If it is not to be shown itself, the first frame that is;
/// should samples run out before the frame that is due, the earliest one there is stands in for it.
/// The frame is kept: where the next generation begins with the same sample, as after a rewind,
/// nothing is decoded.
class SampleQueueDecoder {
 public:
  using OpenDecoder =
      std::function<Result<std::unique_ptr<VideoDecoder>>(const AVCodecParameters& parameters)>;

  explicit SampleQueueDecoder(SampleQueue& sampleQueue, OpenDecoder open = &VideoDecoder::open)
      : sampleQueue_(sampleQueue), openDecoder_(std::move(open)) {}

  struct Demand {
    CMTime now;
    bool ahead = false;        ///< also the frame after those that are due
    bool noneComing = false;   ///< no sample is on its way: what the decoder holds back is wanted
    bool haveAllCome = false;  ///< besides, these are all that there are
    bool overdue = false;      ///< nothing was shown for long: a late frame is better than none
    /// The presentation of a frame that is known to be the one for `now`: it is had as soon as its
    /// sample is in, if that is one of the first.
    CMTime sought = kCMTimeInvalid;
    /// Frames before it will be too late: those that no other refers to may be left out.
    CMTime hurryTo = kCMTimeInvalid;
  };
  struct Picture {
    VideoFrame frame;
    bool atOnce = false;  ///< to be shown whatever the time is
    /// It stands for an earlier frame, which no sample that came so far is for: those are still
    /// given, and this one again.
    bool isStandIn = false;
  };

  /// Turns to the samples of the queue's present generation.
  void begin();
  [[nodiscard]] uint64_t generation() const { return generation_; }
  /// Again when there is no sample, which the queue's push() will tell of, or when the queue was
  /// flushed; End when there is nothing to do for what was asked.
  [[nodiscard]] Outcome step(const Demand& demand, Picture& picture);
  /// Whether a step went back to decode again since the last call. An owner that keeps frames which
  /// are not shown yet forgets them then, and tells goOnAfter() what is on show.
  [[nodiscard]] bool takeRewind() { return std::exchange(rewound_, false); }
  /// The frame at `shown` is on show, none with an invalid time: gives those that follow it.
  void goOnAfter(CMTime shown) { passed_ = shown; }
  /// Why the last step failed.
  [[nodiscard]] const NSErrorPtr& error() const { return error_; }

  /// Whether a run of samples has begun to be decoded whose first frame was not given yet.
  [[nodiscard]] bool isInDecodeOnlyRun() const { return decodeOnlyRun_.isUnderWay(); }
  /// Whether it was known at the last step which frame is the last that is due: no sample can come
  /// any more that is to be shown before the time asked for.
  [[nodiscard]] bool isSettled() const { return isSettled_; }
  /// Whether a frame that is due waits to be the last one.
  [[nodiscard]] bool holdsLateFrame() const;
  /// Lets go of the decoder when decoding from the sync sample to the picture on show (at `shown`)
  /// again takes no more than a moment. True when there is no decoder any more, and the frames
  /// after the one on show will be given again.
  [[nodiscard]] bool letGoIfCheap(CMTime shown);
  /// The same, however long that takes; not where the samples for it are not kept any more.
  [[nodiscard]] bool letGo(CMTime shown);
  /// Whether what follows is decoded from the sync sample again: the decoder was drained before.
  [[nodiscard]] bool isSpent() const { return isSpent_; }
  [[nodiscard]] bool hasDecoder() const { return decoder_ != nullptr; }
  /// Whether a first frame is kept that is not the one on show (at `shown`).
  [[nodiscard]] bool keepsOtherThan(CMTime shown) const;
  void forgetFirst() { first_.reset(); }
  /// Lets go of the decoder if it holds nothing.
  void letGoIfSpent() {
    if (isSpent_ || sent_ == 0) decoder_.reset();
  }
  /// Starts again from the kept samples if they have a frame for `time`, which lies before what
  /// was given last. The frames after that one will be given again.
  [[nodiscard]] bool goBackTo(CMTime time);
  /// How many frames were due and left out since the last call.
  [[nodiscard]] std::size_t takeLate() { return std::exchange(late_, 0); }
  /// Lets go of everything.
  void close();

 private:
  static constexpr uint64_t kNoGeneration = ~uint64_t{0};
  enum class Drain { None, AtOnce, Sought, NewRun, End };
  /// A sample that was drained at once, and its frame when that came out.
  struct First {
    QueuedSamplePtr sample;
    VideoFrame frame;
  };

  [[nodiscard]] Outcome work(const Demand& demand, Picture& picture);
  [[nodiscard]] CMTime dueInDecoder(CMTime now) const;
  [[nodiscard]] Outcome take(VideoFrame frame, const Demand& demand, Picture& picture);
  [[nodiscard]] bool isStandIn(CMTime presentation, CMTime now) const;
  [[nodiscard]] bool takeHeldBack(Picture& picture);
  void noteHeldBack();
  void cameOut(CMTime presentation);
  [[nodiscard]] Outcome noteError();
  [[nodiscard]] Outcome feed(const Demand& demand, Picture& picture);
  [[nodiscard]] Outcome feedNothing(const Demand& demand);
  [[nodiscard]] bool holdsFrames() const { return decoder_ && sentToShow_ > 0 && !isSpent_; }
  [[nodiscard]] bool isWantedAtOnce(const QueuedSample& next) const;
  [[nodiscard]] bool isDrainedAtOnce(const QueuedSample& next) const;
  [[nodiscard]] bool isFirstAgain(const QueuedSample& next) const;
  [[nodiscard]] bool hasFormatOf(const QueuedSample& next) const;
  [[nodiscard]] bool open();
  [[nodiscard]] Outcome send(const QueuedSamplePtr& next, const Demand& demand);
  [[nodiscard]] bool isSought(const Sample& sample, const Demand& demand) const;
  [[nodiscard]] Outcome drain(Drain reason);
  [[nodiscard]] Outcome finishDrain(Picture& picture);
  [[nodiscard]] bool isHopeless(const Demand& demand, bool hasNext) const;
  [[nodiscard]] Outcome failWithoutPicture();
  void restartDecoder();

  SampleQueue& sampleQueue_;
  const OpenDecoder openDecoder_;
  uint64_t generation_ = kNoGeneration;
  std::unique_ptr<VideoDecoder> decoder_;
  std::shared_ptr<const CMFormatDescription> format_;
  NSErrorPtr error_;

  std::size_t sent_ = 0;        ///< since the decoder began
  std::size_t sentToShow_ = 0;  ///< those of them that are to be shown
  Drain drain_ = Drain::None;
  bool isSpent_ = false;  ///< the decoder was drained or is gone in the midst of a run
  /// Presentation of what was sent, is wanted, and did not come out.
  std::vector<CMTime> pending_;
  CMTime due_ = kCMTimeInvalid;       ///< the latest one that is due and was not given
  CMTime dueLater_ = kCMTimeInvalid;  ///< the latest of those that were not sent yet
  CMTime passed_ = kCMTimeInvalid;    ///< everything up to it was given
  std::optional<Picture> lookahead_;
  std::optional<First> first_;

  DecodeOnlyRun decodeOnlyRun_;
  bool isSettled_ = false;
  bool isComplete_ = false;           ///< no sample can come any more for the time asked for
  bool wantsFirst_ = false;           ///< the next frame that is given is to be shown at once
  CMTime atOnce_ = kCMTimeInvalid;    ///< the frame at this time is
  CMTime answered_ = kCMTimeInvalid;  ///< the frame that the decoder was drained for
  std::size_t late_ = 0;
  bool gaveNothing_ = true;     ///< since begin()
  bool rewound_ = false;        ///< by a step, not taken yet
  std::size_t unanswered_ = 0;  ///< samples to be shown that were sent while nothing came out
  int64_t workTime_ = 0;        ///< of the steps since the last frame, nanoseconds
};

}  // namespace zaffo::media
