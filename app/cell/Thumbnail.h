// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// The thumbnail of a video, fetched once. Thread: main.
class Thumbnail : public std::enable_shared_from_this<Thumbnail> {
 public:
  enum class State { Unknown, Loading, Loaded, Failed };

  [[nodiscard]] State state() const { return state_; }
  [[nodiscard]] const CGImagePtr& image() const { return image_; }
  /// Why it Failed.
  [[nodiscard]] const NSErrorPtr& error() const { return error_; }

  /// Fetches the thumbnail of `video`, at most `size` pixels large, and calls `done` on the main
  /// thread when it has arrived or failed. Does nothing after the first time.
  void load(ZFVideo& video, CGSize size, std::function<void()> done);
  /// When it Failed the next load() tries again.
  void forgetFailure() {
    if (state_ == State::Failed) state_ = State::Unknown;
  }

 private:
  State state_ = State::Unknown;
  CGImagePtr image_;
  NSErrorPtr error_;
};

}  // namespace zaffo::feed
