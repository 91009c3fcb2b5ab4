// SPDX-License-Identifier: Apache-2.0
#include "platform/window/InputTranslation.h"

namespace zaffo::window {

namespace {

using Type = InputEvent::Type;

InputEvent make(Type type) {
  InputEvent event;
  event.type = type;
  return event;
}

InputEvent makePointer(Type type, double x, double y) {
  InputEvent event = make(type);
  event.position = {x, y};
  return event;
}

std::optional<InputEvent> translateWindow(const SDL_WindowEvent& window) {
  switch (window.event) {
    case SDL_WINDOWEVENT_CLOSE:
      return make(Type::Close);
    case SDL_WINDOWEVENT_SIZE_CHANGED:
      return make(Type::Resize);
    case SDL_WINDOWEVENT_MINIMIZED:
    case SDL_WINDOWEVENT_HIDDEN:
      return make(Type::Hide);
    case SDL_WINDOWEVENT_RESTORED:
    case SDL_WINDOWEVENT_SHOWN:
      return make(Type::Show);
    default:
      return std::nullopt;
  }
}

void noteModifiers(InputEvent& event, int modifiers) {
  event.withShift = (modifiers & KMOD_SHIFT) != 0;
  event.withControl = (modifiers & KMOD_CTRL) != 0;
}

InputEvent translateKey(const SDL_KeyboardEvent& key) {
  InputEvent event = make(Type::KeyDown);
  event.key = SDL_GetKeyName(key.keysym.sym);
  event.isRepeated = key.repeat != 0;
  noteModifiers(event, key.keysym.mod);
  return event;
}

InputEvent translateDrop(const SDL_DropEvent& drop) {
  InputEvent event = make(Type::Drop);
  if (drop.file) event.path = drop.file;
  return event;
}

InputEvent translateWheel(const SDL_MouseWheelEvent& wheel, int modifiers) {
  InputEvent event = makePointer(Type::Wheel, wheel.mouseX, wheel.mouseY);
  // SDL counts away from the person as positive, which scrolls to what lies above.
  const double away = static_cast<double>(wheel.preciseY);
  event.wheelY = wheel.direction == SDL_MOUSEWHEEL_FLIPPED ? away : -away;
  noteModifiers(event, modifiers);
  return event;
}

}  // namespace

std::optional<InputEvent> InputTranslation::translateFinger(const SDL_TouchFingerEvent& finger,
                                                            CGSize size) {
  const double x = static_cast<double>(finger.x) * size.width;
  const double y = static_cast<double>(finger.y) * size.height;
  if (finger.type == SDL_FINGERDOWN && !finger_ && !mouseIsDown_) {
    finger_ = finger.fingerId;
    return makePointer(Type::PointerDown, x, y);
  }
  if (finger_ != finger.fingerId) return std::nullopt;
  if (finger.type == SDL_FINGERMOTION) return makePointer(Type::PointerMove, x, y);
  if (finger.type != SDL_FINGERUP) return std::nullopt;
  finger_.reset();
  return makePointer(Type::PointerUp, x, y);
}

std::optional<InputEvent> InputTranslation::translate(const SDL_Event& event, CGSize size,
                                                      int64_t hostNanoseconds) {
  std::optional<InputEvent> result;
  const SDL_MouseButtonEvent& button = event.button;
  switch (event.type) {
    case SDL_WINDOWEVENT:
      result = translateWindow(event.window);
      break;
    case SDL_KEYDOWN:
      modifiers_ = event.key.keysym.mod;
      result = translateKey(event.key);
      break;
    case SDL_KEYUP:
      modifiers_ = event.key.keysym.mod;
      break;
    case SDL_MOUSEWHEEL:
      result = translateWheel(event.wheel, modifiers_);
      break;
    case SDL_MOUSEBUTTONDOWN:
      if (button.button != SDL_BUTTON_LEFT || finger_) break;
      mouseIsDown_ = true;
      result = makePointer(Type::PointerDown, button.x, button.y);
      break;
    case SDL_MOUSEMOTION:
      result = makePointer(mouseIsDown_ ? Type::PointerMove : Type::PointerHover, event.motion.x,
                           event.motion.y);
      break;
    case SDL_MOUSEBUTTONUP:
      if (button.button != SDL_BUTTON_LEFT || !mouseIsDown_) break;
      mouseIsDown_ = false;
      result = makePointer(Type::PointerUp, button.x, button.y);
      break;
    case SDL_DROPFILE:
      result = translateDrop(event.drop);
      break;
    case SDL_FINGERDOWN:
    case SDL_FINGERMOTION:
    case SDL_FINGERUP:
      result = translateFinger(event.tfinger, size);
      break;
    default:
      break;
  }
  if (result) result->hostTime = hostNanoseconds;
  return result;
}

}  // namespace zaffo::window
