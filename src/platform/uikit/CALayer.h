// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/coremedia/CVPixelBuffer.h"
#include "platform/uikit/CGImage.h"
#include "platform/uikit/Geometry.h"

namespace zaffo {

struct CGColor {
  double red = 0, green = 0, blue = 0, alpha = 0;  ///< 0 to 1, alpha not premultiplied
  bool operator==(const CGColor&) const = default;
};

/// The moving picture that a layer now shows, and where.
struct LayerPicture {
  CVPixelBufferPtr buffer;
  /// Where the clean aperture goes, in the layer's bounds, after `quarterTurns` and `mirrored`.
  CGRect destination;
  int quarterTurns = 0;   ///< clockwise turns of 90 degrees, 0 to 3
  bool mirrored = false;  ///< flipped left to right before it is turned
};

/// A rectangle in the layer tree: from back to front a colour, an image, a moving picture, and the
/// sublayers in order. A layer owns its sublayers and refers weakly to its superlayer, of which it
/// has at most one. Subclasses may use every operation in their constructor. Thread: main. A layer
/// that is not in a tree may be created and destroyed on any thread.
class ZAFFO_EXPORT CALayer : public std::enable_shared_from_this<CALayer> {
 public:
  [[nodiscard]] static std::shared_ptr<CALayer> create();
  virtual ~CALayer();
  CALayer(const CALayer&) = delete;
  CALayer& operator=(const CALayer&) = delete;

  [[nodiscard]] CGRect frame() const;  ///< in the superlayer's coordinates
  /// Also sets the size of the bounds; their origin stays.
  void setFrame(CGRect frame);
  /// In its own coordinates, those of its sublayers. The origin is the point seen at the upper left
  /// corner of the frame.
  [[nodiscard]] CGRect bounds() const;
  /// A change of size keeps the frame's centre in place.
  void setBounds(CGRect bounds);

  /// Null when there is none.
  [[nodiscard]] std::shared_ptr<CALayer> superlayer() const;
  /// Back to front.
  [[nodiscard]] const std::vector<std::shared_ptr<CALayer>>& sublayers() const;
  /// Adds on top, removing it from its current superlayer first. Null changes nothing; putting a
  /// layer into itself or into one below it is a fatal error.
  void addSublayer(const std::shared_ptr<CALayer>& layer);
  /// As addSublayer, to `index` among the sublayers as they are without `layer`; on top when there
  /// are fewer.
  void insertSublayer(const std::shared_ptr<CALayer>& layer, std::size_t index);
  /// Changes nothing when there is no superlayer. The superlayer's reference is given up.
  void removeFromSuperlayer();

  /// Transparent at first.
  [[nodiscard]] CGColor backgroundColor() const;
  void setBackgroundColor(CGColor color);
  [[nodiscard]] const CGImagePtr& contents() const;
  /// The image is drawn over the background, mapped by contentsGravity.
  void setContents(CGImagePtr image);
  enum class Gravity {
    Resize,            ///< stretched to the bounds
    ResizeAspect,      ///< as large as fits into the bounds, centred
    ResizeAspectFill,  ///< as small as covers the bounds, centred
    Center,            ///< one point per pixel, centred
  };
  /// Initially Resize.
  [[nodiscard]] Gravity contentsGravity() const;
  void setContentsGravity(Gravity gravity);
  /// Whether this layer and all below it are left out.
  [[nodiscard]] bool isHidden() const;
  void setHidden(bool hidden);
  /// 0 to 1, multiplied into everything below; initially 1.
  [[nodiscard]] double opacity() const;
  void setOpacity(double opacity);  ///< clamped to 0 to 1; NaN counts as 0
  /// Whether sublayers are clipped to the bounds; initially false.
  [[nodiscard]] bool masksToBounds() const;
  void setMasksToBounds(bool masks);

  /// Tells the root's display request handler that what this layer shows has changed; every setter
  /// that changes something does so itself. Does nothing while this layer or one above it is hidden
  /// or fully transparent. Costs nanoseconds: a walk to the root and one call, and requests are
  /// merged until the next draw by the window there.
  void setNeedsDisplay();

  /// The moving picture to show at host time `hostNanoseconds` (TimeSource); none for a plain
  /// layer.
  [[nodiscard]] virtual std::optional<LayerPicture> picture(int64_t hostNanoseconds);

  /// For a window that draws again at a time of its own: host time at which the picture changes
  /// next, as far as the layer knows. It does not ask to be drawn for that change, unless the
  /// window fails to come. None for a plain layer.
  [[nodiscard]] virtual std::optional<int64_t> nextPictureTime();

  /// Called on the main thread after `buffer`, obtained from picture(), was put on screen.
  virtual void didPresent(const CVPixelBufferPtr& buffer, int64_t hostNanoseconds);

  /// For the window that shows this layer as its root: called on the main thread each time this
  /// layer or anything visible below it asks to be drawn. The handler should note that and return:
  /// it is called in the middle of changes to the tree, so it may neither draw nor change layers.
  void setDisplayRequestHandler(std::function<void()> handler);

 protected:
  CALayer();

 private:
  void requestDisplayAround();
  [[nodiscard]] bool isInvisible() const;

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace zaffo
