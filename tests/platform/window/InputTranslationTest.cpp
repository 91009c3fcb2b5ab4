// SPDX-License-Identifier: Apache-2.0
#include "platform/window/InputTranslation.h"

#include <gtest/gtest.h>

namespace zaffo::window {
namespace {

using Type = InputEvent::Type;

class InputTranslationTest : public testing::Test {
 protected:
  InputEvent translated(const SDL_Event& event) {
    const auto result = translation.translate(event, {200, 300}, 7);
    EXPECT_TRUE(result.has_value());
    return result.value_or(InputEvent{});
  }
  static SDL_Event windowEvent(Uint8 what) {
    SDL_Event event{};
    event.type = SDL_WINDOWEVENT;
    event.window.event = what;
    return event;
  }
  static SDL_Event keyEvent(SDL_Keycode key, Uint16 modifiers, Uint8 repeat = 0) {
    SDL_Event event{};
    event.type = SDL_KEYDOWN;
    event.key.keysym.sym = key;
    event.key.keysym.mod = modifiers;
    event.key.repeat = repeat;
    return event;
  }

  InputTranslation translation;
};

TEST_F(InputTranslationTest, AKeyComesWithItsModifiersAndWhetherItWasHeld) {
  const InputEvent plain = translated(keyEvent(SDLK_f, 0));
  EXPECT_EQ(plain.key, "F");
  EXPECT_FALSE(plain.withShift || plain.withControl || plain.isRepeated);
  const InputEvent shifted = translated(keyEvent(SDLK_SLASH, KMOD_RSHIFT, 1));
  EXPECT_EQ(shifted.key, "/");
  EXPECT_TRUE(shifted.withShift);
  EXPECT_TRUE(shifted.isRepeated);
  EXPECT_FALSE(shifted.withControl);
  EXPECT_TRUE(translated(keyEvent(SDLK_q, KMOD_LCTRL)).withControl);
}

TEST_F(InputTranslationTest, TheWheelComesWithTheKeysThatWereDownByThen) {
  SDL_Event wheel{};
  wheel.type = SDL_MOUSEWHEEL;
  wheel.wheel.preciseY = -1;
  EXPECT_FALSE(translated(wheel).withControl);
  (void)translated(keyEvent(SDLK_LCTRL, KMOD_LCTRL));
  EXPECT_TRUE(translated(wheel).withControl);
  SDL_Event released = keyEvent(SDLK_LCTRL, 0);
  released.type = SDL_KEYUP;
  EXPECT_FALSE(translation.translate(released, {200, 300}, 7).has_value());
  EXPECT_FALSE(translated(wheel).withControl);
}

TEST_F(InputTranslationTest, WhatIsDroppedComesWithItsPath) {
  char path[] = "/clips/a b.mp4";
  SDL_Event event{};
  event.type = SDL_DROPFILE;
  event.drop.file = path;
  const InputEvent drop = translated(event);
  EXPECT_EQ(drop.type, Type::Drop);
  EXPECT_EQ(drop.path, "/clips/a b.mp4");
}

TEST_F(InputTranslationTest, AWindowThatCannotBeSeenSaysSoAndWhenItCanAgain) {
  EXPECT_EQ(translated(windowEvent(SDL_WINDOWEVENT_MINIMIZED)).type, Type::Hide);
  EXPECT_EQ(translated(windowEvent(SDL_WINDOWEVENT_HIDDEN)).type, Type::Hide);
  EXPECT_EQ(translated(windowEvent(SDL_WINDOWEVENT_RESTORED)).type, Type::Show);
  EXPECT_EQ(translated(windowEvent(SDL_WINDOWEVENT_SHOWN)).type, Type::Show);
}

TEST_F(InputTranslationTest, AMouseWithNoButtonDownHovers) {
  SDL_Event event{};
  event.type = SDL_MOUSEMOTION;
  event.motion.x = 20;
  event.motion.y = 30;
  const InputEvent hover = translated(event);
  EXPECT_EQ(hover.type, Type::PointerHover);
  EXPECT_EQ(hover.position, (CGPoint{20, 30}));
}

}  // namespace
}  // namespace zaffo::window
