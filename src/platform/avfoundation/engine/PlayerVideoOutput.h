// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/Mutex.h"
#include "platform/media/playback/VideoOutput.h"
#include "platform/media/video/FrameStore.h"

namespace zaffo {

/// The pictures of a player, from one item to the next. Thread: any.
class PlayerVideoOutput final : public media::VideoOutput,
                                public std::enable_shared_from_this<PlayerVideoOutput> {
 public:
  /// Goes over to another item's frames; none with null.
  void attach(std::shared_ptr<media::FrameStore> frames, CGAffineTransform preferredTransform);
  /// Tells all observers that another picture is due.
  void pictureChanged();

  [[nodiscard]] Picture pictureAtHostTime(int64_t hostNanoseconds) override;
  [[nodiscard]] std::optional<int64_t> planNextPicture() override;
  [[nodiscard]] uint64_t itemGeneration() const override;
  [[nodiscard]] bool hasPicture() const override;
  [[nodiscard]] uint64_t droppedFrames() const override;
  [[nodiscard]] std::shared_ptr<void> observePictures(std::function<void()> changed) override;

 private:
  using Observer = std::function<void()>;

  mutable Mutex attachmentMutex_;
  std::shared_ptr<media::FrameStore> frames_ ZAFFO_GUARDED_BY(attachmentMutex_);
  CGAffineTransform transform_ ZAFFO_GUARDED_BY(attachmentMutex_);
  uint64_t generation_ ZAFFO_GUARDED_BY(attachmentMutex_) = 0;
  std::vector<std::weak_ptr<const Observer>> observers_ ZAFFO_GUARDED_BY(attachmentMutex_);
};

}  // namespace zaffo
