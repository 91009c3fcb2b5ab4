// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/avfoundation/AVAsset.h"
#include "platform/avfoundation/engine/AssetLoading.h"

namespace zaffo {

/// The media at a URL: of a file, or of an http or https address.
/// Thread: any.
class LoadedURLAsset final : public AVURLAsset,
                             public std::enable_shared_from_this<LoadedURLAsset> {
 public:
  explicit LoadedURLAsset(std::shared_ptr<const NSURL> url);

  void loadValuesAsynchronouslyForKeys(std::vector<std::string> keys,
                                       std::function<void()> handler) override;
  AVKeyValueStatus statusOfValueForKey(const std::string& key, NSErrorPtr* error) const override;
  void cancelLoading() override;
  CMTime duration() const override;
  std::vector<std::shared_ptr<const AVAssetTrack>> tracks() const override;
  bool isReadable() const override;
  bool isPlayable() const override;
  std::shared_ptr<AVAsset> copy() override { return shared_from_this(); }
  std::shared_ptr<media::SampleSource> sampleSource() const override;
  const std::shared_ptr<const NSURL>& URL() const override { return url_; }

 private:
  const std::shared_ptr<const NSURL> url_;
  const std::shared_ptr<AssetLoading> loading_;
};

}  // namespace zaffo
