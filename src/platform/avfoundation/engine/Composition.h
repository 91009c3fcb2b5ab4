// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "platform/Mutex.h"
#include "platform/avfoundation/AVComposition.h"
#include "platform/avfoundation/engine/CompositionTrack.h"

namespace zaffo {

/// What mutable and fixed compositions have in common: every key is loaded from the start, and
/// handlers that wait for one are called all the same.
class LoadedComposition {
 public:
  static void callLater(std::function<void()> handler);
  [[nodiscard]] static AVKeyValueStatus status(const std::string& key, NSErrorPtr* error);
};

/// A composition as it was at one moment. Thread: any.
class FixedComposition final : public AVAsset,
                               public std::enable_shared_from_this<FixedComposition> {
 public:
  using Tracks = std::vector<std::shared_ptr<const AVAssetTrack>>;

  /// `tracks` are all of them, those without media too.
  FixedComposition(std::shared_ptr<media::CompositionSource> source, Tracks tracks)
      : source_(std::move(source)), tracks_(std::move(tracks)) {}

  void loadValuesAsynchronouslyForKeys(std::vector<std::string> keys,
                                       std::function<void()> handler) override;
  AVKeyValueStatus statusOfValueForKey(const std::string& key, NSErrorPtr* error) const override;
  void cancelLoading() override {}
  CMTime duration() const override { return source_->duration(); }
  Tracks tracks() const override { return tracks_; }
  bool isReadable() const override { return true; }
  bool isPlayable() const override { return source_->isPlayable(); }
  std::shared_ptr<AVAsset> copy() override { return shared_from_this(); }
  std::shared_ptr<media::SampleSource> sampleSource() const override { return source_; }

 private:
  const std::shared_ptr<media::CompositionSource> source_;
  const Tracks tracks_;
};

/// The platform's own AVMutableComposition: its tracks, and a fixed composition of them that is
/// made when it is first needed and kept until a track changes.
class Composition final : public AVMutableComposition {
 public:
  std::shared_ptr<AVMutableCompositionTrack> addMutableTrackWithMediaType(
      AVMediaType mediaType, int preferredTrackID) override;
  std::vector<std::shared_ptr<AVMutableCompositionTrack>> mutableTracks() const override;

  void loadValuesAsynchronouslyForKeys(std::vector<std::string> keys,
                                       std::function<void()> handler) override;
  AVKeyValueStatus statusOfValueForKey(const std::string& key, NSErrorPtr* error) const override;
  void cancelLoading() override {}
  CMTime duration() const override { return present()->duration(); }
  std::vector<std::shared_ptr<const AVAssetTrack>> tracks() const override {
    return present()->tracks();
  }
  bool isReadable() const override { return true; }
  bool isPlayable() const override { return present()->isPlayable(); }
  std::shared_ptr<AVAsset> copy() override { return present(); }
  std::shared_ptr<media::SampleSource> sampleSource() const override {
    return present()->sampleSource();
  }

 private:
  [[nodiscard]] std::shared_ptr<FixedComposition> present() const;
  [[nodiscard]] std::shared_ptr<FixedComposition> freeze() const;
  [[nodiscard]] uint64_t version() const;

  std::vector<std::shared_ptr<CompositionTrack>> tracks_;

  mutable Mutex presentMutex_;
  mutable std::shared_ptr<FixedComposition> present_ ZAFFO_GUARDED_BY(presentMutex_);
  mutable uint64_t presentVersion_ ZAFFO_GUARDED_BY(presentMutex_) = 0;
};

}  // namespace zaffo
