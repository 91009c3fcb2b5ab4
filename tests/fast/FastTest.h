// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "doubles/ManualTime.h"
#include "doubles/ScriptedAVPlayerItem.h"
#include "doubles/ScriptedAssetReader.h"
#include "doubles/ScriptedDisplayLayer.h"
#include "fast/PlaybackSessionFactory.h"
#include "platform/foundation/NSNotificationCenter.h"

namespace zaffo {

/// What happens between its making and lines(), a line each: what the code under test prints and,
/// among it, what the doubles are told.
class Transcript {
 public:
  Transcript() { testing::internal::CaptureStdout(); }
  ~Transcript() {
    if (isOpen_) (void)testing::internal::GetCapturedStdout();
  }
  Transcript(const Transcript&) = delete;
  Transcript& operator=(const Transcript&) = delete;

  [[nodiscard]] std::vector<std::string> lines() {
    isOpen_ = false;
    std::istringstream text(testing::internal::GetCapturedStdout());
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
  }

 private:
  bool isOpen_ = true;
};

/// Platform objects out of a script, in time that stands still. Samples are a quarter of a second
/// long.
class FastTest : public testing::Test {
 protected:
  /// Nothing is under way any more when the script goes.
  void TearDown() override { time.settle(); }

  static CMTime seconds(double value) { return CMTimeMakeWithSeconds(value, 1000); }

  /// Readers that will be made from now on give `count` samples, from their start time on.
  void giveSamples(int count) {
    scriptReader = [count](ScriptedAssetReader& reader) {
      reader.onStartTime = [&reader, count](CMTime start) {
        for (int i = 0; i < count; ++i) {
          reader.samples.push_back(makeScriptedSample(seconds(CMTimeGetSeconds(start) + 0.25 * i)));
        }
      };
    };
  }

  [[nodiscard]] PlaybackSessionFactory factory() {
    return PlaybackSessionFactory{
        .audioClockCreate =
            [this](PlaybackSessionFactory::ClockPtr* clock) {
              *clock = hasClock ? CMClockGetHostTimeClock() : nullptr;
              return clockStatus;
            },
        .timebaseCreateWithMasterClock =
            [this](const PlaybackSessionFactory::ClockPtr& clock,
                   PlaybackSessionFactory::TimebasePtr* made) {
              if (hasTimebase) *made = makeTimebase(clock);
              return timebaseStatus;
            },
        .displayLayer =
            [this] {
              layers.push_back(std::make_shared<ScriptedDisplayLayer>());
              if (scriptLayer) scriptLayer(*layers.back());
              return layers.back();
            },
        .assetReaderWithAsset =
            [this](const std::shared_ptr<AVAsset>& read, NSErrorPtr* error) {
              readerAssets.push_back(read);
              return makeReader(error);
            },
        .assetReaderTrackOutputWithTrack =
            [this](const std::shared_ptr<const AVAssetTrack>& track) {
              std::printf("output for track %d\n", track->trackID);
              return std::make_shared<ScriptedAssetReader::Output>(readers.back());
            },
    };
  }

  /// Whether a clock and a timebase can be made, and the status that is told.
  bool hasClock = true;
  int32_t clockStatus = 0;
  bool hasTimebase = true;
  int32_t timebaseStatus = 0;
  /// Why no reader can be made; null when one can.
  NSErrorPtr readerError;
  /// Told of each reader and layer that is made.
  std::function<void(ScriptedAssetReader& reader)> scriptReader;
  std::function<void(ScriptedDisplayLayer& layer)> scriptLayer;

  ManualTime time;
  const std::shared_ptr<ScriptedAsset> copy = std::make_shared<ScriptedAsset>();
  const std::shared_ptr<ScriptedAsset> asset = [this] {
    auto made = std::make_shared<ScriptedAsset>();
    made->copyResult = copy;
    return made;
  }();
  const std::shared_ptr<ScriptedAVPlayerItem> item = std::make_shared<ScriptedAVPlayerItem>(asset);
  std::vector<std::shared_ptr<ScriptedAssetReader>> readers;
  std::vector<std::shared_ptr<AVAsset>> readerAssets;
  std::vector<std::shared_ptr<ScriptedDisplayLayer>> layers;
  std::weak_ptr<CMTimebase> lastTimebase;

 private:
  std::shared_ptr<AVAssetReader> makeReader(NSErrorPtr* error) {
    std::printf("reader made\n");
    if (readerError) {
      *error = readerError;
      return nullptr;
    }
    readers.push_back(std::make_shared<ScriptedAssetReader>());
    if (scriptReader) scriptReader(*readers.back());
    return readers.back();
  }

  std::shared_ptr<CMTimebase> makeTimebase(const PlaybackSessionFactory::ClockPtr& clock) {
    const auto timebase = CMTimebase::create(clock);
    lastTimebase = timebase;
    changes_.push_back(timebase->observeChanges([weak = lastTimebase] {
      const auto changed = weak.lock();
      if (!changed) return;
      std::printf("timebase rate %g time %g\n", changed->rate(), CMTimeGetSeconds(changed->time()));
    }));
    return timebase;
  }

  std::vector<std::shared_ptr<void>> changes_;
};

}  // namespace zaffo
