// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/avfoundation/AVAsset.h"

namespace zaffo {

/// An asset that has what a test puts into it. A load of keys waits for finishLoading(), unless it
/// finishes at once: its handler then runs inside the call.
class ScriptedAsset final : public AVAsset {
 public:
  bool readable = true;
  bool finishesAtOnce = false;
  CMTime durationValue = CMTimeMake(5, 1);
  std::vector<std::shared_ptr<const AVAssetTrack>> trackList = {track(AVMediaTypeVideo)};
  std::shared_ptr<AVAsset> copyResult;  ///< what copy() gives
  int copies = 0;
  std::map<std::string, AVKeyValueStatus> statuses;     ///< Loaded for keys not named here
  std::vector<std::vector<std::string>> requestedKeys;  ///< one entry a request
  mutable std::vector<std::string> checkedKeys;         ///< one entry a status read

  static std::shared_ptr<const AVAssetTrack> track(AVMediaType type) {
    AVAssetTrack track;
    track.mediaType = type;
    return std::make_shared<const AVAssetTrack>(track);
  }

  /// Runs the handlers of the requests so far, on the calling thread.
  void finishLoading() {
    for (const auto& handler : std::exchange(handlers_, {})) handler();
  }

  /// Lets go of the handlers, which may hold this asset.
  void forgetRequests() { std::exchange(handlers_, {}).clear(); }

  void loadValuesAsynchronouslyForKeys(std::vector<std::string> keys,
                                       std::function<void()> handler) override {
    requestedKeys.push_back(std::move(keys));
    handlers_.push_back(std::move(handler));
    if (finishesAtOnce) finishLoading();
  }
  [[nodiscard]] AVKeyValueStatus statusOfValueForKey(const std::string& key,
                                                     NSErrorPtr* /*error*/) const override {
    checkedKeys.push_back(key);
    const auto found = statuses.find(key);
    return found == statuses.end() ? AVKeyValueStatus::Loaded : found->second;
  }
  void cancelLoading() override { finishLoading(); }
  [[nodiscard]] CMTime duration() const override { return durationValue; }
  [[nodiscard]] std::vector<std::shared_ptr<const AVAssetTrack>> tracks() const override {
    return trackList;
  }
  [[nodiscard]] std::shared_ptr<AVAsset> copy() override {
    ++copies;
    return copyResult;
  }
  [[nodiscard]] bool isReadable() const override { return readable; }
  [[nodiscard]] bool isPlayable() const override { return true; }

 private:
  std::vector<std::function<void()>> handlers_;
};

}  // namespace zaffo
