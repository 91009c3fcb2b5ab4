// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/NSURL.h"
#include "platform/foundation/Result.h"
#include "platform/media/source/SourceOpening.h"
#include "platform/streaming/StreamOpening.h"

namespace zaffo {

/// The opening of what an address names, a clip or a stream, which its first bytes tell; in turns
/// on a queue: one each time bytes that it waited for have come. Gives up when it is let go of.
/// Thread: the queue.
class AssetOpening : public std::enable_shared_from_this<AssetOpening> {
 public:
  using Completion = std::function<void(Result<std::shared_ptr<media::SampleSource>>)>;

  /// Called on `queue`, which may wait for the disk. Calls `done` once, there or in the call. Null
  /// when it has done so already.
  [[nodiscard]] static std::shared_ptr<AssetOpening> begin(const std::shared_ptr<const NSURL>& url,
                                                           const DispatchQueuePtr& queue,
                                                           Completion done);

 private:
  AssetOpening(std::shared_ptr<const NSURL> url, std::shared_ptr<media::ByteSource> bytes,
               DispatchQueuePtr queue, Completion done)
      : url_(std::move(url)),
        bytes_(std::move(bytes)),
        queue_(std::move(queue)),
        done_(std::move(done)) {}
  void step();
  [[nodiscard]] bool isKnown();
  void begin(bool isStream);
  template <typename Opening>
  void stepOn(Opening& opening);
  [[nodiscard]] std::function<void()> posting();

  const std::shared_ptr<const NSURL> url_;
  const std::shared_ptr<media::ByteSource> bytes_;
  const DispatchQueuePtr queue_;
  const Completion done_;
  std::unique_ptr<media::ByteSource::Want> front_;  // while its first bytes are missing
  std::optional<media::SourceOpening> clip_;        // one of these, once it is known which
  std::optional<streaming::StreamOpening> stream_;
};

}  // namespace zaffo
