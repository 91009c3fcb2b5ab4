// SPDX-License-Identifier: Apache-2.0
#include "feed/Bindings.h"

#include <algorithm>

namespace zaffo::feed {

std::string Binding::triggerList() const {
  std::string list;
  for (const auto trigger : triggers) {
    if (!list.empty()) list += ", ";
    list += trigger;
  }
  return list;
}

std::span<const Binding> bindings() {
  using enum Action;
  static const std::vector<Binding> kBindings{
      {NextPage,
       {"Down", "PageDown", "J", "wheel down", "drag up"},
       "the next page",
       /*repeats=*/true},
      {PreviousPage,
       {"Up", "PageUp", "K", "wheel up", "drag down"},
       "the previous page",
       /*repeats=*/true},
      {FirstPage, {"Home"}, "the first page"},
      {LastPage, {"End"}, "the last page"},
      {TogglePlaying, {"Space", "click"}, "pauses and plays"},
      {SeekForward, {"Right"}, "5 seconds on", /*repeats=*/true},
      {SeekBack, {"Left"}, "5 seconds back", /*repeats=*/true},
      {Scrub, {"drag on the bar"}, "shows the video there"},
      {ToggleMute, {"M"}, "silences the sound, or brings it back"},
      {Louder, {"0", "Ctrl+wheel up"}, "louder", /*repeats=*/true},
      {Quieter, {"9", "Ctrl+wheel down"}, "quieter", /*repeats=*/true},
      {ToggleFullScreen, {"F", "F11", "double click"}, "fills the screen, or goes back"},
      {ToggleKeys, {"?", "F1"}, "shows these keys"},
      {TogglePool, {"I"}, "shows the pool of players"},
      {AddVideos, {"drop"}, "adds files and folders let go over the window"},
      {Leave, {"Escape"}, "closes what is shown, leaves the full screen, ends the program"},
      {Quit, {"Q"}, "ends the program, as closing the window does"},
  };
  return kBindings;
}

const Binding* bindingOf(std::string_view trigger) {
  const auto all = bindings();
  const auto found = std::ranges::find_if(all, [&](const Binding& binding) {
    return std::ranges::find(binding.triggers, trigger) != binding.triggers.end();
  });
  return found == all.end() ? nullptr : &*found;
}

}  // namespace zaffo::feed
