// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "doubles/ManualTime.h"
#include "media/Clips.h"
#include "platform/avfoundation/AVAssetReader.h"

namespace zaffo {

using Buffers = std::vector<std::shared_ptr<CMSampleBuffer>>;

/// Readers of the test clips' first video track.
class AssetReaderFixture : public testing::Test {
 protected:
  struct Run {
    std::shared_ptr<AVAssetReader> reader;
    std::shared_ptr<AVAssetReaderTrackOutput> output;
  };

  [[nodiscard]] static std::shared_ptr<AVAsset> unloadedAsset(const std::string& path) {
    return AVAsset::assetWithURL(NSURL::fileURLWithPath(path));
  }

  [[nodiscard]] std::shared_ptr<AVAsset> loadedAsset(const std::string& path) {
    auto asset = unloadedAsset(path);
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration"}, [] {});
    time_.settle();
    return asset;
  }

  [[nodiscard]] std::shared_ptr<AVAsset> loadedClip(const std::string& name) {
    return loadedAsset(test::clip(name));
  }

  /// A reader with an output for the first track of a kind, not started.
  [[nodiscard]] static Run makeRun(const std::shared_ptr<AVAsset>& asset,
                                   AVMediaType type = AVMediaTypeVideo) {
    NSErrorPtr error;
    Run run{AVAssetReader::create(asset, &error), nullptr};
    EXPECT_TRUE(run.reader) << (error ? error->localizedDescription() : "");
    const auto tracks = asset->tracksWithMediaType(type);
    if (!run.reader || tracks.empty()) return run;
    run.output = AVAssetReaderTrackOutput::create(tracks.front());
    run.output->setAlwaysCopiesSampleData(false);
    EXPECT_TRUE(run.reader->canAddOutput(run.output));
    run.reader->addOutput(run.output);
    return run;
  }

  /// The same, started on a range.
  [[nodiscard]] static Run startRun(const std::shared_ptr<AVAsset>& asset,
                                    CMTime start = kCMTimeZero,
                                    CMTime duration = kCMTimePositiveInfinity) {
    Run run = makeRun(asset);
    run.reader->setTimeRange({start, duration});
    EXPECT_TRUE(run.reader->startReading());
    return run;
  }

  [[nodiscard]] static Buffers readAll(const Run& run) {
    Buffers buffers;
    while (auto buffer = run.output->copyNextSampleBuffer()) buffers.push_back(std::move(buffer));
    return buffers;
  }

  /// The times at which buffers are to be shown, in that order.
  [[nodiscard]] static std::vector<CMTime> shownTimes(const Buffers& buffers) {
    std::vector<CMTime> times;
    for (const auto& buffer : buffers) {
      if (!buffer->attachments().doNotDisplay) times.push_back(buffer->presentationTimeStamp());
    }
    std::ranges::sort(times, [](CMTime a, CMTime b) { return a < b; });
    return times;
  }

  ManualTime time_;
};

}  // namespace zaffo
