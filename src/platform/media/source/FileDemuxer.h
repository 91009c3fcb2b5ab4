// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <span>

#include "platform/foundation/Result.h"
#include "platform/media/FFmpegCommon.h"
#include "platform/media/source/ContainerFormat.h"
#include "platform/media/source/ReadTask.h"
#include "platform/media/source/TaskInput.h"

namespace zaffo::media {

/// An AVFormatContext that reads one ByteSource and nothing else: its formats are an allow list, it
/// opens no other file and knows no protocol. All that reads is called in the work of a ReadTask,
/// and leaves that where bytes are missing. Thread: one at a time.
class FileDemuxer {
 public:
  /// A segment of a stream is read from front to end, nothing behind the place is looked at.
  enum class Kind { File, Segment };

  /// Parses the header, in the work of `task`. Fails when the file cannot be played.
  static Result<std::unique_ptr<FileDemuxer>> open(ReadTask& task, Kind kind = Kind::File);
  ~FileDemuxer();
  FileDemuxer(const FileDemuxer&) = delete;
  FileDemuxer& operator=(const FileDemuxer&) = delete;

  /// What reads from now on is the work of `task`, which has the same bytes and outlives that.
  void readFor(ReadTask& task) { input_.readFor(task); }
  /// After its task was abandoned in the middle: whether it can be used again, once it has gone to
  /// some place. Only where the samples themselves were missing has the parser lost nothing.
  [[nodiscard]] bool survivesAbandoning();

  [[nodiscard]] AVFormatContext* context() const { return context_.get(); }
  /// Whether nothing was read since open(): the demuxer stands before the first packet.
  [[nodiscard]] bool isAtStart() const { return atStart_; }
  void setMoved() {
    atStart_ = false;
    behindHeadOf_ = -1;
  }
  /// Whether what was read last is the head of a stream (see TrackHead), all of it.
  [[nodiscard]] bool isBehindHead(int streamIndex) const { return behindHeadOf_ == streamIndex; }
  void setBehindHead(int streamIndex) { behindHeadOf_ = streamIndex; }
  /// Goes back before the first packet of a stream by the index; false when there is none.
  [[nodiscard]] bool rewind(int streamIndex);

  [[nodiscard]] std::span<AVStream* const> streams() const {
    return {context_->streams, context_->nb_streams};
  }
  /// Reads the first sample of each picture stream whose header leaves open when it is shown: a
  /// fragmented file's header tells durations, but not the first composition offset.
  void learnStarts();
  /// The timestamp, in the stream's time base, that is time zero of the asset.
  [[nodiscard]] int64_t timelineStart(const AVStream& stream) const;
  /// Whether the index of each stream names every sample of the file.
  [[nodiscard]] bool hasCompleteIndex() const { return format_ && format_->hasCompleteIndex; }
  /// Whether the file tells when samples of a stream are decoded. Where it does not, FFmpeg
  /// guesses, and is right only of codecs that present samples in the order in which they are
  /// decoded.
  [[nodiscard]] bool tellsDecodeTimes(const AVStream& stream) const;
  /// As the function of this name, of its bytes.
  [[nodiscard]] NSErrorPtr readFailed(int averror) const;

 private:
  FileDemuxer(ReadTask& task, Kind kind) : kind_(kind), input_(task) {}
  [[nodiscard]] NSErrorPtr recognise();
  [[nodiscard]] NSErrorPtr recogniseSegment();
  [[nodiscard]] AVFormatContext* makeContext();
  [[nodiscard]] NSErrorPtr describeStreams();
  [[nodiscard]] NSErrorPtr parse();
  [[nodiscard]] bool lacksPictureSize() const;
  [[nodiscard]] bool lacksStart(const AVStream& stream) const;
  [[nodiscard]] NSErrorPtr notRecognised() const;

  const Kind kind_;
  TaskInput input_;  // outlives context_, which reads through it until it is closed
  FormatContextPtr context_;
  const ContainerFormat* format_ = nullptr;
  bool atStart_ = true;
  int behindHeadOf_ = -1;
  int64_t startMicroseconds_ = 0;
};

}  // namespace zaffo::media
