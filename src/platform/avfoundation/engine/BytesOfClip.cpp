// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/BytesOfClip.h"

#include "platform/foundation/MakeError.h"
#include "platform/media/source/LocalByteSource.h"
#include "platform/network/SharedResources.h"

namespace zaffo {

Result<std::shared_ptr<media::ByteSource>> bytesAt(const std::shared_ptr<const NSURL>& url) {
  if (!url) return makeError(AVErrorUnsupportedURL, "There is no address of a clip.");
  if (url->isFileURL()) return media::LocalByteSource::open(url->path());
  return std::shared_ptr<media::ByteSource>(network::SharedResources::shared().at(url));
}

}  // namespace zaffo
