// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/media/Outcome.h"
#include "platform/media/source/FileDemuxer.h"
#include "platform/media/source/IndexedTrack.h"
#include "platform/media/source/TrackHead.h"

namespace zaffo::media {

class FileSampleSource;

/// Reads the samples of one track of a file in decode order. What reads is called in the work of a
/// ReadTask, and leaves that where bytes are missing. Reading does not touch the file for what lies
/// in the track's head: the file is parsed, if it must be, when more is read.
///
/// A file that ends before its header says (a download cut short) gives the samples that are whole
/// and then Error, so that what is there can be played and nobody takes the cut for the end. So it
/// does after a seek beyond the cut, which leaves none, and where the header is all there is.
/// Thread: one at a time.
class TrackReader {
 public:
  /// Stands nowhere at first. `demuxer` may be null; `task` outlives the reader.
  TrackReader(std::shared_ptr<FileSampleSource> source, std::unique_ptr<FileDemuxer> demuxer,
              const AVAssetTrack& track, ReadTask& task);
  ~TrackReader();
  TrackReader(const TrackReader&) = delete;
  TrackReader& operator=(const TrackReader&) = delete;

  /// In the task's work: reads the samples of a track's head, as far as they can be. What `demuxer`
  /// is goes on being.
  static void readHead(std::shared_ptr<FileSampleSource> source,
                       std::unique_ptr<FileDemuxer>& demuxer, const AVAssetTrack& track,
                       ReadTask& task, TrackHead& head);

  /// In the task's work, unless isInHead(): the next sample. After End or Error it stays so until
  /// it goes elsewhere.
  [[nodiscard]] Outcome next(Sample& sample);
  /// In the task's work: goes to the place for `time` (see SampleCursor::seek).
  void seek(CMTime time);
  /// Goes there if that is in the head; false, standing nowhere, if it is not.
  [[nodiscard]] bool goInHead(CMTime time);
  /// Whether the next sample is one of the head's.
  [[nodiscard]] bool isInHead() const {
    return outcome_ == Outcome::Ready && inHead_ && *inHead_ < head_.samples.size();
  }
  /// The task's work was abandoned: it stands nowhere.
  void wasAbandoned();

  [[nodiscard]] NSErrorPtr error() const { return error_; }
  [[nodiscard]] const AVCodecParameters& codecParameters() const;

 private:
  [[nodiscard]] Outcome read();
  [[nodiscard]] bool rewind();
  void leave();
  [[nodiscard]] bool goToFirst();
  [[nodiscard]] int readPacket();
  [[nodiscard]] bool seekPacket(int64_t timestamp);
  [[nodiscard]] bool canRead();
  [[nodiscard]] bool namesAllSamples() const;
  [[nodiscard]] std::optional<int64_t> lastIndexed() const;
  [[nodiscard]] bool parseAnew();
  [[nodiscard]] Outcome giveHead(Sample& sample);
  [[nodiscard]] bool goBehindHead();
  [[nodiscard]] std::optional<std::size_t> placeInHead(CMTime time) const;
  [[nodiscard]] bool seekVideo(int64_t timestamp);
  [[nodiscard]] bool landAt(int64_t timestamp);
  [[nodiscard]] bool endsEarly() const;
  void selectStream();
  void fill(Sample& sample);

  const std::shared_ptr<FileSampleSource> source_;
  ReadTask& task_;
  std::unique_ptr<FileDemuxer> demuxer_;
  const int streamIndex_;
  const CMTimeRange timeRange_;
  const TrackHead& head_;              // the source's
  std::optional<std::size_t> inHead_;  // the place is in the head, before this sample or its end
  std::optional<IndexedPackets> indexed_;  // instead of a demuxer, where the track allows it
  AVStream* stream_ = nullptr;             // null while there is no demuxer
  PacketPtr packet_;                       // the one that was read last
  int64_t lastDecode_ = AV_NOPTS_VALUE;    // read since the place was taken
  bool pending_ = false;                   // packet_ was read by a seek and not given yet
  bool isFirst_ = true;  // the next sample is the one that the place was taken for
  Outcome outcome_ = Outcome::Ready;
  NSErrorPtr error_;
};

}  // namespace zaffo::media
