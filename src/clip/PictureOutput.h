// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/coremedia/CVPixelBuffer.h"
#include "platform/dispatch/DispatchTimer.h"
#include "platform/uikit/Geometry.h"
#include "platform/uikit/UIView.h"
#include "pool/PlayerDecorator.h"

namespace zaffo {

/// A picture of a player for an application that draws by itself: the planes as the decoder made
/// them, with their format, matrix, range and clean aperture, and how they are turned upright. They
/// stay in memory for as long as the object, or a copy, lives. Thread: any.
struct ZAFFO_EXPORT OutputPicture {
  CVPixelBufferPtr buffer;  ///< never null
  int quarterTurns = 0;     ///< clockwise turns of 90 degrees, 0 to 3
  bool mirrored = false;    ///< flipped left to right before it is turned

  /// What the clean aperture measures upright, in square pixels.
  [[nodiscard]] CGSize naturalSize() const;

  /// Writes the clean aperture, upright and stretched to `width` by `height`, as opaque 8 bit BGRA
  /// with `stride` bytes from one row to the next. False, and nothing is written, when a side is
  /// not positive or there is nothing to be seen in the picture.
  [[nodiscard]] bool convertTo(uint8_t* bgra, int width, int height, std::ptrdiff_t stride) const;
};

/// The pictures of a pooled player for a toolkit of the application's own, in place of a window of
/// this library's. It takes the player's view into a tree of its own, as a superview would: who
/// shows the view elsewhere, another output of the same player say, detaches this one.
///
///     +----------+  detach(); the handle is given back or goes,  +----------+
///     | attached | --------------------------------------------> | detached |
///     +----------+  or its player; the view is shown elsewhere   +----------+
///
/// Thread: main.
class ZAFFO_EXPORT PictureOutput final : public std::enable_shared_from_this<PictureOutput> {
  struct Private {};

 public:
  /// Calls `pictureChanged` on the main thread, never inside this call, when the picture to be seen
  /// is another one than picture() gave last, or there is none any more; then not again until
  /// picture() has been called. Draw then, or later: what is due by then is what picture() gives.
  /// The callback may let go of anything, this output and the handle too. The handle is held
  /// weakly; null gives an output that is detached. Nothing is told when the pool takes the player
  /// away.
  [[nodiscard]] static std::shared_ptr<PictureOutput> attach(
      const std::shared_ptr<PlayerDecorator>& handle, std::function<void()> pictureChanged);
  PictureOutput(Private, const std::shared_ptr<PlayerDecorator>& handle,
                std::function<void()> pictureChanged);
  /// Detaches.
  ~PictureOutput();
  PictureOutput(const PictureOutput&) = delete;
  PictureOutput& operator=(const PictureOutput&) = delete;

  /// The picture that is due now; none when there is none yet, or once this is detached. May be
  /// called at any time, for each refresh of a display say.
  [[nodiscard]] std::optional<OutputPicture> picture();

  /// The callback is not called any more, and is let go. May be repeated.
  void detach();
  [[nodiscard]] bool isAttached() const;

 private:
  struct Shown;

  void displayRequested();
  void look();
  [[nodiscard]] Shown shownNow();
  [[nodiscard]] bool isWhatWasGiven(const Shown& shown) const;
  void planNextLook(const Shown& shown);

  const std::weak_ptr<PlayerDecorator> handle_;
  std::function<void()> pictureChanged_;  ///< empty once detached
  std::shared_ptr<UIView> view_;          ///< the player's; null once detached
  const std::shared_ptr<UIView> root_;    ///< the tree that it is in
  std::weak_ptr<const CVPixelBuffer> lastGiven_;
  bool gaveNone_ = true;
  bool isLookPosted_ = false;
  bool isToldAndNotTaken_ = false;
  DispatchTimerPtr nextLook_;
};

}  // namespace zaffo
