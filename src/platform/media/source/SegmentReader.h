// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <memory>
#include <vector>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/media/Outcome.h"
#include "platform/media/Sample.h"
#include "platform/media/source/FileDemuxer.h"

namespace zaffo::media {

/// A track of a stream's segment, as that describes it.
struct SegmentTrack {
  std::shared_ptr<AVAssetTrack> track;
  CodecParametersPtr parameters;
};

/// Reads the samples of one kind of a stream's segment in decode order, from its front to its end,
/// on the segment's own time line. What reads is called in the work of a ReadTask, and leaves that
/// where bytes are missing. Thread: one at a time.
class SegmentReader {
 public:
  /// Parses the segment's front up to the first sample that start() tells of. Fails when it is in
  /// no format of segments, damaged, or holds no sample.
  static Result<std::unique_ptr<SegmentReader>> open(ReadTask& task, AVMediaType type);

  /// The first track of each kind that the segment has. To be asked before the first sample.
  [[nodiscard]] std::vector<SegmentTrack> describe() const;
  /// Whether it has one of its own kind.
  [[nodiscard]] bool hasTrack() const { return stream_ != nullptr; }
  /// When its first picture is shown or, of sound alone, its sound begins.
  [[nodiscard]] CMTime start() const { return start_; }
  /// Of the reader's own track.
  [[nodiscard]] const AVCodecParameters& codecParameters() const { return *stream_->codecpar; }

  /// The next sample. After End or Error it stays so.
  [[nodiscard]] Outcome next(Sample& sample);
  [[nodiscard]] NSErrorPtr error() const { return error_; }

 private:
  explicit SegmentReader(std::unique_ptr<FileDemuxer> demuxer) : demuxer_(std::move(demuxer)) {}
  [[nodiscard]] AVStream* firstOf(AVMediaType type) const;
  [[nodiscard]] NSErrorPtr readToStart();
  [[nodiscard]] int read(PacketPtr& packet);
  void fill(PacketPtr packet, Sample& sample);
  void placeSound(Sample& sample);

  const std::unique_ptr<FileDemuxer> demuxer_;
  AVStream* stream_ = nullptr;  // the one that is read; null when there is none
  CMTime start_;
  std::deque<PacketPtr> early_;  // of the track, read on the way to the start
  CMTime soundGoesOn_;           // where the sound that was given last ends
  bool isFirst_ = true;          // no sample was given yet
  Outcome outcome_ = Outcome::Ready;
  NSErrorPtr error_;
};

}  // namespace zaffo::media
