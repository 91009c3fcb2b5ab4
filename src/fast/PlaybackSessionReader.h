// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "fast/AVAssetReaderExtension.h"
#include "fast/PlaybackSessionFactory.h"
#include "platform/avfoundation/AVAssetReader.h"

namespace zaffo {

/// Reads the samples of an asset's first video track, compressed as they are stored, from a start
/// time to the end of the asset: one pass, never rewound. Sound is never read. The first sample it
/// returns tells the display layer to forget what it decoded before and to show that sample at
/// once.
///
/// Thread: its owner's, one at a time.
class PlaybackSessionReader {
 public:
  /// Starts reading at the sample that decoding `time` needs. Throws NSErrorException with the
  /// platform's error when there is no reader, and ReadError when the reader has already ended. An
  /// asset without a video track is not an error here.
  PlaybackSessionReader(const std::shared_ptr<AVAsset>& asset, CMTime time,
                        const PlaybackSessionFactory& factory);
  PlaybackSessionReader(const PlaybackSessionReader&) = delete;
  PlaybackSessionReader& operator=(const PlaybackSessionReader&) = delete;

  /// The next sample in decode order, which the caller owns; never null. Throws ReadError when
  /// there are no more.
  [[nodiscard]] std::shared_ptr<CMSampleBuffer> nextVideoBuffer();

  /// The same, but null where the sample has not come yet: the ready handler tells when to ask
  /// again.
  [[nodiscard]] std::shared_ptr<CMSampleBuffer> nextVideoBufferIfReady();
  /// Called on any thread. Set before the first sample is asked for.
  void setReadyHandler(std::function<void()> handler);

  /// Stops reading: nextVideoBuffer() throws Canceled from now on.
  void teardown();

 private:
  enum class Patience { Waits, DoesNotWait };

  [[nodiscard]] std::shared_ptr<CMSampleBuffer> nextVideoBuffer(Patience patience);
  void checkStatus() const;
  void addVideoOutput(const AVAsset& asset, const PlaybackSessionFactory& factory);

  std::shared_ptr<AVAssetReader> assetReader_;
  std::shared_ptr<AVAssetReaderOutput> videoOutput_;  // Null when there is nothing to read.
  bool waitingForFirstBuffer_ = true;
};

}  // namespace zaffo
