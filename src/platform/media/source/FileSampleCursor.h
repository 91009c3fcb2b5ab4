#pragma once

#include <memory>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/media/source/FileDemuxer.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo::media {

class FileSampleSource;

/// Walks one track of a local file; every other track is passed over unread. next() and seek() may
/// wait for the disk and never give Again.
///
/// A file that ends before its header says (a download cut short) gives the samples that are whole
/// and then Error, so that what is there can be played and nobody takes the cut for the end. So it
/// does after a seek beyond the cut, which leaves none, and where the header is all there is.
class FileSampleCursor : public SampleCursor {
 public:
  static Result<std::unique_ptr<SampleCursor>> open(std::shared_ptr<FileSampleSource> source,
                                                    std::unique_ptr<FileDemuxer> demuxer,
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
  [[nodiscard]] bool seekVideo(int64_t timestamp);
  [[nodiscard]] bool landAt(int64_t timestamp);
  [[nodiscard]] bool endsEarly() const;
  void selectStream();
  void fill(Sample& sample);

  std::shared_ptr<FileSampleSource> source_;
  std::unique_ptr<FileDemuxer> demuxer_;
  const int streamIndex_;
  const CMTimeRange timeRange_;
  AVStream* stream_ = nullptr;
  PacketPtr packet_;                     // the one that was read last
  int64_t lastDecode_ = AV_NOPTS_VALUE;  // read since the place was taken
  bool pending_ = false;                 // packet_ was read by a seek and not given yet
  Outcome outcome_ = Outcome::Ready;
  NSErrorPtr error_;
};

}  // namespace zaffo::media
