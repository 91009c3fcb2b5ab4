// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "platform/media/FFmpegCommon.h"
#include "platform/media/source/ReadTask.h"
#include "platform/media/source/SampleTable.h"
#include "platform/media/source/TaskInput.h"

namespace zaffo::media {

/// A track whose samples are read by their places in the file, without a demuxer. Made by
/// TrackIndexing; unchanged from then on, and shared by all that read the track. Thread: any.
struct IndexedTrack {
  SampleTable table;
  int streamIndex = 0;
  AVRational timeBase{};        ///< of the stream
  AVRational packetTimeBase{};  ///< what packets say of it
  int sampleRate = 0;           ///< 0: no sound
  /// How long each lasts where that is told so; where it is not, until the next one is decoded.
  std::optional<int64_t> eachDuration;
  int64_t end = 0;            ///< until when the last one lasts
  int64_t usualDuration = 0;  ///< where the others come to nothing
  int64_t priming = 0;        ///< samples of sound that the encoder put in front

  /// Makes `packet` say what the demuxer would of the sample that `walk` gives next, which it
  /// leaves behind; null, and nothing is said, behind the last one.
  [[nodiscard]] std::optional<SampleTable::Entry> describeNext(SampleTable::Walk& walk,
                                                               AVPacket& packet) const;
  /// How much of the sound from a sample on was put in front.
  [[nodiscard]] int64_t primingFrom(std::size_t place) const;
};

/// Reads the samples of an indexed track, in the work of a ReadTask. Stands before the first one.
/// Thread: one at a time.
class IndexedPackets {
 public:
  /// `track` and `task` outlive it.
  IndexedPackets(const IndexedTrack& track, ReadTask& task)
      : track_(track), task_(task), walk_(track.table, 0) {
    goTo(0);
  }

  /// As av_read_frame().
  [[nodiscard]] int read(AVPacket& packet);
  /// Goes before a sample, by its number.
  void goTo(std::size_t place);
  /// Goes behind the first `count` samples, as if they had been read.
  void goBehind(std::size_t count);
  /// Goes to the last sync sample that is decoded and presented at or before `timestamp`, and to
  /// the first sample for a time before it; false when there is none.
  [[nodiscard]] bool goToSync(int64_t timestamp);
  /// A read was left in the middle, and will not be gone on with.
  void wasAbandoned() { input_.reset(); }

 private:
  const IndexedTrack& track_;
  ReadTask& task_;
  SampleTable::Walk walk_;
  int64_t skip_ = 0;                  ///< of the next one's sound
  std::unique_ptr<TaskInput> input_;  ///< made when it is first needed
};

}  // namespace zaffo::media
