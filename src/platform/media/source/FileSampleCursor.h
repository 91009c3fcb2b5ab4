#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/media/source/FileDemuxer.h"
#include "platform/media/source/SampleSource.h"
#include "platform/media/source/TrackHead.h"

namespace zaffo::media {

class FileSampleSource;

/// Walks one track of a local file; every other track is passed over unread. next() and seek() may
/// wait for the disk and never give Again. They do not wait for what lies in the track's head, nor
/// does opening where there is one: the file is parsed, if it must be, when more is read.
///
/// A file that ends before its header says (a download cut short) gives the samples that are whole
/// and then Error, so that what is there can be played and nobody takes the cut for the end. So it
/// does after a seek beyond the cut, which leaves none, and where the header is all there is.
class FileSampleCursor : public SampleCursor {
 public:
  /// `demuxer` may be null where the track has a head.
  static Result<std::unique_ptr<SampleCursor>> open(std::shared_ptr<FileSampleSource> source,
                                                    std::unique_ptr<FileDemuxer> demuxer,
                                                    const AVAssetTrack& track);
  /// Reads the head of a track that has none yet; null when its first sample cannot be read. What
  /// `demuxer` is goes on being.
  static std::unique_ptr<const TrackHead> readHead(std::shared_ptr<FileSampleSource> source,
                                                   std::unique_ptr<FileDemuxer>& demuxer,
                                                   const AVAssetTrack& track);
  ~FileSampleCursor() override;

  [[nodiscard]] Outcome next(Sample& sample) override;
  [[nodiscard]] bool seek(CMTime time) override;
  [[nodiscard]] NSErrorPtr error() const override { return error_; }
  [[nodiscard]] const AVCodecParameters& codecParameters() const override;

 private:
  FileSampleCursor(std::shared_ptr<FileSampleSource> source, std::unique_ptr<FileDemuxer> demuxer,
                   const AVAssetTrack& track);
  [[nodiscard]] Outcome read();
  [[nodiscard]] bool rewind();
  [[nodiscard]] bool goToFirst();
  [[nodiscard]] bool hasDemuxer();
  [[nodiscard]] bool parseAnew();
  [[nodiscard]] bool describe(TrackHead& head) const;
  [[nodiscard]] Outcome giveHead(Sample& sample);
  [[nodiscard]] bool goBehindHead();
  [[nodiscard]] bool landInHead(CMTime time);
  [[nodiscard]] bool seekVideo(int64_t timestamp);
  [[nodiscard]] bool landAt(int64_t timestamp);
  [[nodiscard]] bool endsEarly() const;
  void selectStream();
  void fill(Sample& sample);

  std::shared_ptr<FileSampleSource> source_;
  std::unique_ptr<FileDemuxer> demuxer_;
  const int streamIndex_;
  const CMTimeRange timeRange_;
  const TrackHead* const head_;          // the source's; null where there is none
  std::optional<std::size_t> inHead_;    // the place is in the head, before this sample or its end
  AVStream* stream_ = nullptr;           // null while there is no demuxer
  PacketPtr packet_;                     // the one that was read last
  int64_t lastDecode_ = AV_NOPTS_VALUE;  // read since the place was taken
  bool pending_ = false;                 // packet_ was read by a seek and not given yet
  bool isFirst_ = true;                  // the next sample is the one that the place was taken for
  Outcome outcome_ = Outcome::Ready;
  NSErrorPtr error_;
};

}  // namespace zaffo::media
