// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/AssetOpening.h"

#include <memory>
#include <utility>

#include "platform/dispatch/Confinement.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/source/LocalByteSource.h"
#include "platform/network/SharedResources.h"

namespace zaffo {
namespace {

Result<std::shared_ptr<media::ByteSource>> bytesAt(const std::shared_ptr<const NSURL>& url) {
  if (!url) return makeError(AVErrorUnsupportedURL, "There is no address of a clip.");
  if (url->isFileURL()) return media::LocalByteSource::open(url->path());
  return std::shared_ptr<media::ByteSource>(network::SharedResources::shared().at(url));
}

}  // namespace

std::shared_ptr<AssetOpening> AssetOpening::begin(const std::shared_ptr<const NSURL>& url,
                                                  const DispatchQueuePtr& queue, Completion done) {
  auto bytes = bytesAt(url);
  if (!bytes) {
    done(bytes.error());
    return nullptr;
  }
  const std::shared_ptr<AssetOpening> opening(
      new AssetOpening(*std::move(bytes), queue, std::move(done)));
  opening->opening_.setReadyHandler([weakSelf = opening->weak_from_this(), queue] {
    queue->async([weakSelf] {
      if (const auto self = weakSelf.lock()) self->step();
    });
  });
  opening->step();
  return opening;
}

void AssetOpening::step() {
  assertCurrent(*queue_);
  if (opening_.step() == media::Outcome::Again) return;
  auto opened = opening_.take();
  if (!opened) return done_(opened.error());
  done_(*std::move(opened));
}

}  // namespace zaffo
