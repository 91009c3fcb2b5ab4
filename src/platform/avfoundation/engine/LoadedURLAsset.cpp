#include "platform/avfoundation/engine/LoadedURLAsset.h"

#include <algorithm>

#include "platform/foundation/MakeError.h"
#include "platform/media/source/FileSampleSource.h"

namespace zaffo {
namespace {

Result<std::shared_ptr<media::SampleSource>> open(const std::shared_ptr<const NSURL>& url) {
  if (!url || !url->isFileURL()) {
    const std::string text = url ? url->absoluteString() : "";
    return makeError(
        AVErrorUnsupportedURL,
        "The address \"" + text + "\" is not one of a local file; only those can be played.");
  }
  auto source = media::FileSampleSource::open(url->path());
  if (!source) return source.error();
  return *std::move(source);
}

}  // namespace

LoadedURLAsset::LoadedURLAsset(std::shared_ptr<const NSURL> url)
    : url_(std::move(url)),
      loading_(std::make_shared<AssetLoading>([address = url_] { return open(address); })) {}

void LoadedURLAsset::loadValuesAsynchronouslyForKeys(std::vector<std::string> keys,
                                                     std::function<void()> handler) {
  loading_->load(keys, std::move(handler));
}

AVKeyValueStatus LoadedURLAsset::statusOfValueForKey(const std::string& key,
                                                     NSErrorPtr* error) const {
  return loading_->status(key, error);
}

void LoadedURLAsset::cancelLoading() {
  loading_->cancel();
}

CMTime LoadedURLAsset::duration() const {
  const auto source = loading_->sourceForKey("duration");
  return source ? source->duration() : kCMTimeInvalid;
}

std::vector<std::shared_ptr<const AVAssetTrack>> LoadedURLAsset::tracks() const {
  const auto source = loading_->sourceForKey("tracks");
  if (!source) return {};
  return source->tracks();
}

bool LoadedURLAsset::isReadable() const {
  return url_ && url_->isFileURL() && !loading_->error();
}

bool LoadedURLAsset::isPlayable() const {
  const auto source = loading_->sourceForKey("playable");
  return source && source->isPlayable();
}

std::shared_ptr<media::SampleSource> LoadedURLAsset::sampleSource() const {
  return loading_->sourceForKey("tracks");
}

}  // namespace zaffo
