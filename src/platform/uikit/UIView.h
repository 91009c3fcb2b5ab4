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

/// A rectangle of the user interface, backed by a CALayer. A view holds its subviews and knows its
/// superview weakly. The layers of its subviews lie in its layer in the subviews' order, among
/// layers that others put there. Thread: main.
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
  /// A change of size asks for layout and keeps the middle of the frame where it is.
  void setBounds(CGRect bounds);

  /// Made with the view and never replaced; at hand in the constructors of subclasses.
  [[nodiscard]] const std::shared_ptr<CALayer>& layer() const { return layer_; }
  /// Null when there is none, while it is still being constructed, and once it is being destroyed.
  [[nodiscard]] std::shared_ptr<UIView> superview() const;
  /// Back to front.
  [[nodiscard]] const std::vector<std::shared_ptr<UIView>>& subviews() const;
  /// Adds on top of everything, taking it out of its present superview first. This view is asked to
  /// lay out; the view that moves is told by didMoveToSuperview, once. Null changes nothing;
  /// putting a view into itself or into one below it is a fatal error.
  void addSubview(const std::shared_ptr<UIView>& view);
  /// As addSubview, to `index` among the subviews as they are without `view`: right below the
  /// subview that has this index, or on top of everything when there are fewer.
  void insertSubview(const std::shared_ptr<UIView>& view, std::size_t index);
  /// Changes nothing when there is no superview. The superview's reference is given up after
  /// didMoveToSuperview.
  void removeFromSuperview();

  /// ScaleToFill at first.
  [[nodiscard]] virtual UIViewContentMode contentMode() const;
  /// Also how the layer maps its `contents`, for the modes that a layer knows: the first four and
  /// Center. Others leave it as it is.
  virtual void setContentMode(UIViewContentMode mode);
  [[nodiscard]] bool isHidden() const;
  void setHidden(bool hidden);
  [[nodiscard]] CGColor backgroundColor() const;
  void setBackgroundColor(CGColor color);

  /// Asks that layoutSubviews be called before the next draw. The window learns of it as of any
  /// request for display: a view that is not seen causes no draw, and is laid out with the next.
  void setNeedsLayout();
  /// Whether this view, or any view below it, waits for layout. A new view does.
  [[nodiscard]] bool needsLayout() const;
  /// Lays out this view and all below it that asked for it, each once, superviews first. What is
  /// asked for again meanwhile of a view that had its turn waits for the next call. The window
  /// calls it before drawing; when nobody asked it costs nothing.
  void layoutIfNeeded();

  /// Places what the view contains in its bounds. Called by layoutIfNeeded, never to be called
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
