// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "platform/media/CodecConfig.h"
#include "platform/media/source/SampleSource.h"
#include "platform/media/source/SegmentReader.h"
#include "platform/streaming/StreamClock.h"
#include "platform/streaming/StreamFeed.h"

namespace zaffo::streaming {

/// The tracks of a stream: one of pictures and one of sound at most, which come with the pictures
/// or in segments of their own. What its first segments tell of them holds for all. Thread: any.
class StreamSource final : public media::SampleSource,
                           public std::enable_shared_from_this<StreamSource> {
 public:
  /// A track, and the segments that it is read from.
  struct Part {
    media::SegmentTrack track;
    std::shared_ptr<StreamFeed> feed;
  };

  [[nodiscard]] static std::shared_ptr<StreamSource> make(std::vector<Part> parts,
                                                          std::shared_ptr<StreamClock> clock);

  [[nodiscard]] const std::vector<std::shared_ptr<const AVAssetTrack>>& tracks() const override {
    return tracks_;
  }
  [[nodiscard]] CMTime duration() const override;
  [[nodiscard]] NSErrorPtr whyNotDecoded(int trackID) const override;
  [[nodiscard]] media::BufferedAhead bufferedAhead() const override;
  Result<std::unique_ptr<media::SampleCursor>> openCursor(int trackID) override;

 private:
  struct Track {
    std::shared_ptr<StreamFeed> feed;
    media::CodecConfig config;
  };

  explicit StreamSource(std::shared_ptr<StreamClock> clock) : clock_(std::move(clock)) {}
  void add(Part part);

  const std::shared_ptr<StreamClock> clock_;
  std::vector<std::shared_ptr<const AVAssetTrack>> tracks_;
  std::map<int, Track> read_;  // by track
};

}  // namespace zaffo::streaming
