// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>

#include "platform/media/source/ReadTask.h"
#include "platform/media/source/SampleSource.h"
#include "platform/media/source/TrackReader.h"

namespace zaffo::media {

/// Walks one track of a file; every other track is passed over unread. Never waits: next() gives
/// Again where bytes are missing, and seek() is heard at once, also while they are. What lies in
/// the track's head is never missing. Reads nothing before the first next(), where even the header
/// may have to be parsed again. See TrackReader for what is given.
class FileSampleCursor final : public SampleCursor {
 public:
  /// `demuxer` may be null.
  FileSampleCursor(std::shared_ptr<FileSampleSource> source, std::unique_ptr<FileDemuxer> demuxer,
                   const AVAssetTrack& track);
  ~FileSampleCursor() override;

  [[nodiscard]] Outcome next(Sample& sample) override;
  /// Always true: what cannot be read is next()'s Error.
  [[nodiscard]] bool seek(CMTime time) override;
  [[nodiscard]] NSErrorPtr error() const override;
  [[nodiscard]] const AVCodecParameters& codecParameters() const override {
    return reader_.codecParameters();
  }
  void setReadyHandler(std::function<void()> handler) override {
    task_.setReadyHandler(std::move(handler));
  }

 private:
  void readOne();
  void abandon();

  ReadTask task_;
  TrackReader reader_;
  std::optional<CMTime> sought_;  ///< where to go before the next sample is read
  Sample read_;                   ///< by the work under way
  Outcome outcome_ = Outcome::Again;
};

}  // namespace zaffo::media
