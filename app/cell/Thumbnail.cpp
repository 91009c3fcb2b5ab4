// SPDX-License-Identifier: Apache-2.0
#include "cell/Thumbnail.h"

namespace zaffo::feed {

void Thumbnail::load(ZFVideo& video, CGSize size, std::function<void()> done) {
  if (state_ != State::Unknown) return;
  state_ = State::Loading;
  video.loadThumbnailWithPriority(0, size,
                                  [weakSelf = weak_from_this(), done = std::move(done)](
                                      std::shared_ptr<const UIImage> image, NSErrorPtr error) {
                                    dispatch_async(
                                        dispatch_get_main_queue(), [weakSelf, done, image, error] {
                                          const auto self = weakSelf.lock();
                                          if (!self) return;
                                          self->state_ = image ? State::Loaded : State::Failed;
                                          if (image) self->image_ = image->cgImage();
                                          self->error_ = error;
                                          done();
                                        });
                                  });
}

}  // namespace zaffo::feed
