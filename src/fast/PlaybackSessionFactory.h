// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "platform/avfoundation/AVAssetReader.h"
#include "platform/avfoundation/AVSampleBufferDisplayLayer.h"
#include "platform/coremedia/CMAudioClock.h"
#include "platform/coremedia/CMTimebase.h"

namespace zaffo {

/// How the fast path creates the platform's objects: as the platform does, unless a test
/// substitutes others. Thread: any; the functions may be called on several threads at once.
struct PlaybackSessionFactory {
  using ClockPtr = std::shared_ptr<CMClock>;
  using TimebasePtr = std::shared_ptr<CMTimebase>;

  /// Sets its argument and returns 0, or returns an error code.
  std::function<int32_t(ClockPtr*)> audioClockCreate = [](ClockPtr* clock) {
    std::shared_ptr<CMAudioClock> made;
    const int32_t status = CMAudioClockCreate(&made);
    *clock = std::move(made);
    return status;
  };
  std::function<int32_t(const ClockPtr&, TimebasePtr*)> timebaseCreateWithMasterClock =
      [](const ClockPtr& clock, TimebasePtr* timebase) {
        *timebase = CMTimebase::create(clock);
        return 0;
      };
  std::function<std::shared_ptr<AVSampleBufferDisplayLayer>()> displayLayer =
      &AVSampleBufferDisplayLayer::create;
  /// Null with the error set when there is no reader.
  std::function<std::shared_ptr<AVAssetReader>(std::shared_ptr<AVAsset>, NSErrorPtr*)>
      assetReaderWithAsset = &AVAssetReader::create;
  std::function<std::shared_ptr<AVAssetReaderOutput>(std::shared_ptr<const AVAssetTrack>)>
      assetReaderTrackOutputWithTrack = &AVAssetReaderTrackOutput::create;
};

}  // namespace zaffo
