#pragma once

#include <memory>

#include "fast/AVAssetReaderExtension.h"
#include "fast/PlaybackSessionFactory.h"
#include "platform/avfoundation/AVAssetReader.h"

namespace zaffo {

/// Reads the samples of an asset's first video track, compressed as they are stored, from a start
/// time to the end of the asset: one run, never rewound. Sound is never read. The first sample it
/// hands out tells the display layer to forget what it decoded before and to show it at once.
///
/// Thread: that of its owner, one at a time.
class PlaybackSessionReader {
 public:
  /// Starts reading at the sample that decoding `time` needs. Throws NSErrorException with the
  /// platform's error when there is no reader, and ReadError when the reader has ended already. An
  /// asset without a video track is no error here.
  PlaybackSessionReader(const std::shared_ptr<AVAsset>& asset, CMTime time,
                        const PlaybackSessionFactory& factory);
  PlaybackSessionReader(const PlaybackSessionReader&) = delete;
  PlaybackSessionReader& operator=(const PlaybackSessionReader&) = delete;

  /// The next sample in decode order, the caller's own; never null. Throws ReadError when there is
  /// none any more.
  [[nodiscard]] std::shared_ptr<CMSampleBuffer> nextVideoBuffer();

  /// Ends reading: nextVideoBuffer() throws Canceled from now on.
  void teardown();

 private:
  void checkStatus() const;
  void addVideoOutput(const AVAsset& asset, const PlaybackSessionFactory& factory);

  std::shared_ptr<AVAssetReader> assetReader_;
  std::shared_ptr<AVAssetReaderOutput> videoOutput_;  // Null when there is nothing to read.
  bool waitingForFirstBuffer_ = true;
};

}  // namespace zaffo
