// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/Composition.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/MakeError.h"

namespace zaffo {

std::shared_ptr<AVMutableComposition> AVMutableComposition::create() {
  return std::make_shared<Composition>();
}

void LoadedComposition::callLater(std::function<void()> handler) {
  dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT), std::move(handler));
}

AVKeyValueStatus LoadedComposition::status(const std::string& key, NSErrorPtr* error) {
  constexpr std::array kKnownKeys{"tracks", "duration", "playable", "readable"};
  if (std::ranges::find(kKnownKeys, key) != kKnownKeys.end()) return AVKeyValueStatus::Loaded;
  setError(error, makeError(AVErrorUnknown, "An asset has no key \"" + key + "\"."));
  return AVKeyValueStatus::Failed;
}

void FixedComposition::loadValuesAsynchronouslyForKeys(std::vector<std::string> /*keys*/,
                                                       std::function<void()> handler) {
  LoadedComposition::callLater(std::move(handler));
}

AVKeyValueStatus FixedComposition::statusOfValueForKey(const std::string& key,
                                                       NSErrorPtr* error) const {
  return LoadedComposition::status(key, error);
}

void Composition::loadValuesAsynchronouslyForKeys(std::vector<std::string> /*keys*/,
                                                  std::function<void()> handler) {
  LoadedComposition::callLater(std::move(handler));
}

AVKeyValueStatus Composition::statusOfValueForKey(const std::string& key, NSErrorPtr* error) const {
  return LoadedComposition::status(key, error);
}

std::shared_ptr<AVMutableCompositionTrack> Composition::addMutableTrackWithMediaType(
    AVMediaType mediaType, int preferredTrackID) {
  int highest = 0;
  bool taken = preferredTrackID <= 0;
  for (const auto& track : tracks_) {
    highest = std::max(highest, track->trackID());
    taken = taken || track->trackID() == preferredTrackID;
  }
  tracks_.push_back(
      std::make_shared<CompositionTrack>(mediaType, taken ? highest + 1 : preferredTrackID));
  return tracks_.back();
}

std::vector<std::shared_ptr<AVMutableCompositionTrack>> Composition::mutableTracks() const {
  return {tracks_.begin(), tracks_.end()};
}

uint64_t Composition::version() const {
  uint64_t version = tracks_.size();
  for (const auto& track : tracks_) version += track->version();
  return version;
}

std::shared_ptr<FixedComposition> Composition::present() const {
  MutexLock lock(presentMutex_);
  const uint64_t now = version();
  if (!present_ || presentVersion_ != now) present_ = freeze();
  presentVersion_ = now;
  return present_;
}

std::shared_ptr<FixedComposition> Composition::freeze() const {
  std::vector<media::CompositionSource::Track> described;
  std::vector<std::shared_ptr<media::SampleSource>> sources;
  FixedComposition::Tracks all;
  for (const auto& track : tracks_) {
    described.push_back(track->snapshot());
    all.push_back(std::make_shared<const AVAssetTrack>(described.back().description));
    sources.insert(sources.end(), track->sources().begin(), track->sources().end());
  }
  auto source = media::CompositionSource::create(std::move(described), std::move(sources));
  // Those with media are the source's own, which know where their samples come from.
  for (const auto& withMedia : source->tracks()) {
    *std::ranges::find(all, withMedia->trackID, [](const auto& t) { return t->trackID; }) =
        withMedia;
  }
  return std::make_shared<FixedComposition>(std::move(source), std::move(all));
}

}  // namespace zaffo
