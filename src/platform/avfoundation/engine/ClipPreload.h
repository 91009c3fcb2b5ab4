// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/NSError.h"
#include "platform/media/source/SampleSource.h"
#include "platform/media/source/SourceOpening.h"

namespace zaffo {

/// Has bytes brought by reading a clip as a player would: its header, then the samples of its first
/// seconds in order of time. In turns on a queue, one each time bytes that it waited for have come.
/// Gives up when it is let go of. Thread: the queue.
class ClipPreload : public std::enable_shared_from_this<ClipPreload> {
 public:
  using Completion = std::function<void(const NSErrorPtr& error)>;

  /// Calls `done` once on `queue`, never inside the call.
  [[nodiscard]] static std::shared_ptr<ClipPreload> begin(std::shared_ptr<media::ByteSource> bytes,
                                                          double seconds, DispatchQueuePtr queue,
                                                          Completion done);

 private:
  /// A track that is read, and how far it was, in seconds.
  struct Track {
    std::unique_ptr<media::SampleCursor> cursor;
    double time = 0;
    bool isRead = false;
  };

  ClipPreload(std::shared_ptr<media::ByteSource> bytes, double seconds, DispatchQueuePtr queue,
              Completion done)
      : queue_(std::move(queue)),
        done_(std::move(done)),
        seconds_(seconds),
        opening_(std::in_place, std::move(bytes)) {}
  [[nodiscard]] std::function<void()> posting();
  void step();
  [[nodiscard]] bool open();
  void addTrack(AVMediaType type);
  [[nodiscard]] Track* next();
  void end(const NSErrorPtr& error);

  const DispatchQueuePtr queue_;
  Completion done_;
  const double seconds_;
  std::optional<media::SourceOpening> opening_;
  std::shared_ptr<media::SampleSource> source_;  ///< once it is open
  std::vector<Track> tracks_;
};

}  // namespace zaffo
