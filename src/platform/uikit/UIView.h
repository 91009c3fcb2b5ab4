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

/// A rectangle of the user interface, backed by a CALayer. Thread: main.
class ZAFFO_EXPORT UIView : public std::enable_shared_from_this<UIView> {
 public:
  [[nodiscard]] static std::shared_ptr<UIView> create(CGRect frame = CGRectZero);
  virtual ~UIView();
  UIView(const UIView&) = delete;
  UIView& operator=(const UIView&) = delete;

  [[nodiscard]] CGRect frame() const;
  /// A change of size asks for layout.
  void setFrame(CGRect frame);
  [[nodiscard]] CGRect bounds() const;
  void setBounds(CGRect bounds);

  [[nodiscard]] const std::shared_ptr<CALayer>& layer() const { return layer_; }
  [[nodiscard]] std::shared_ptr<UIView> superview() const;
  [[nodiscard]] const std::vector<std::shared_ptr<UIView>>& subviews() const;
  /// Adds on top, taking it out of its present superview first.
  void addSubview(const std::shared_ptr<UIView>& view);
  void insertSubview(const std::shared_ptr<UIView>& view, std::size_t index);
  void removeFromSuperview();

  [[nodiscard]] virtual UIViewContentMode contentMode() const;
  virtual void setContentMode(UIViewContentMode mode);
  [[nodiscard]] bool isHidden() const;
  void setHidden(bool hidden);
  [[nodiscard]] CGColor backgroundColor() const;
  void setBackgroundColor(CGColor color);

  void setNeedsLayout();
  [[nodiscard]] bool needsLayout() const;
  /// Lays out this view and all below it that asked for it. The window calls it before drawing.
  void layoutIfNeeded();

  /// For subclasses; call the base first.
  virtual void layoutSubviews();
  virtual void didMoveToSuperview();

 protected:
  explicit UIView(CGRect frame);

 private:
  void moveToSuperview(const std::shared_ptr<UIView>& superview);

  std::shared_ptr<CALayer> layer_;
  std::weak_ptr<UIView> superview_;
  std::vector<std::shared_ptr<UIView>> subviews_;
  UIViewContentMode contentMode_ = UIViewContentMode::ScaleToFill;
  bool needsLayout_ = true;
};

}  // namespace zaffo
