// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "platform/uikit/CALayer.h"
#include "platform/uikit/Geometry.h"

namespace zaffo {

/// How a view fits its content; the values are the platform's.
enum class UIViewContentMode : int {
  ScaleToFill = 0,
  ScaleAspectFit = 1,
  ScaleAspectFill = 2,
  Redraw = 3,
  Center = 4,
  Top = 5,
  Bottom = 6,
  Left = 7,
  Right = 8,
  TopLeft = 9,
  TopRight = 10,
  BottomLeft = 11,
  BottomRight = 12,
};

/// A rectangle of the user interface, backed by a CALayer. A view owns its subviews and refers
/// weakly to its superview. Its subviews' layers are in its layer in the same order, among layers
/// that others put there. Thread: main.
class ZAFFO_EXPORT UIView : public std::enable_shared_from_this<UIView> {
 public:
  [[nodiscard]] static std::shared_ptr<UIView> create(CGRect frame = CGRectZero);
  virtual ~UIView();
  UIView(const UIView&) = delete;
  UIView& operator=(const UIView&) = delete;

  [[nodiscard]] CGRect frame() const;  ///< in the superview's coordinates
  /// A change of size asks for layout.
  void setFrame(CGRect frame);
  [[nodiscard]] CGRect bounds() const;  ///< in its own coordinates, those of the subviews
  /// A change of size asks for layout and keeps the frame's centre in place.
  void setBounds(CGRect bounds);

  /// Created with the view and never replaced; available in the constructors of subclasses.
  [[nodiscard]] const std::shared_ptr<CALayer>& layer() const { return layer_; }
  /// Null when there is none, while it is still being constructed, and once it is being destroyed.
  [[nodiscard]] std::shared_ptr<UIView> superview() const;
  /// Back to front.
  [[nodiscard]] const std::vector<std::shared_ptr<UIView>>& subviews() const;
  /// Adds on top of everything, removing it from its current superview first. This view is asked to
  /// lay out; the view that moves gets one didMoveToSuperview(). Null changes nothing; putting a
  /// view into itself or into one below it is a fatal error.
  void addSubview(const std::shared_ptr<UIView>& view);
  /// Like addSubview, but at `index` among the other subviews: just below the one that has this
  /// index, or on top of everything when there are fewer.
  void insertSubview(const std::shared_ptr<UIView>& view, std::size_t index);
  /// Does nothing when there is no superview. The superview's reference is dropped after
  /// didMoveToSuperview.
  void removeFromSuperview();

  /// Initially ScaleToFill.
  [[nodiscard]] virtual UIViewContentMode contentMode() const;
  /// Also sets how the layer maps its `contents`, for the modes that a layer supports: the first
  /// four and Center. Others leave that unchanged.
  virtual void setContentMode(UIViewContentMode mode);
  [[nodiscard]] bool isHidden() const;
  void setHidden(bool hidden);
  [[nodiscard]] CGColor backgroundColor() const;
  void setBackgroundColor(CGColor color);

  /// Asks for layoutSubviews to be called before the next draw. The window learns of it as of any
  /// display request: a view that is not visible causes no draw, and is laid out at the next one.
  void setNeedsLayout();
  /// Whether this view, or any view below it, is waiting for layout. A new view is.
  [[nodiscard]] bool needsLayout() const;
  /// Lays out this view and all below it that asked for it, each once, superviews first. A view
  /// that asks again after its turn waits for the next call. The window calls it before drawing;
  /// when no view has asked it costs nothing.
  void layoutIfNeeded();

  /// Arranges the view's content within its bounds. Called by layoutIfNeeded; never call it
  /// directly. For subclasses; call the base first.
  virtual void layoutSubviews();
  /// Called after the view was put into a superview, and after it was taken out of one; not when
  /// the superview goes away. For subclasses; call the base first.
  virtual void didMoveToSuperview();

 protected:
  explicit UIView(CGRect frame);

 private:
  void detach();
  void noteLayoutBelow();
  [[nodiscard]] std::size_t layerIndexOfSubview(std::size_t index) const;

  std::shared_ptr<CALayer> layer_;
  UIView* superview_ = nullptr;  // cleared by its destructor
  std::vector<std::shared_ptr<UIView>> subviews_;
  UIViewContentMode contentMode_ = UIViewContentMode::ScaleToFill;
  bool needsLayout_ = true;
  bool needsLayoutBelow_ = false;
};

}  // namespace zaffo
