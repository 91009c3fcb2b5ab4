// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zaffo::feed {

/// What a person can ask the feed for.
enum class Action {
  NextPage,
  PreviousPage,
  FirstPage,
  LastPage,
  TogglePlaying,
  SeekForward,
  SeekBack,
  Scrub,
  ToggleMute,
  Louder,
  Quieter,
  ToggleFullScreen,
  ToggleKeys,
  TogglePool,
  AddVideos,
  Leave,
  Quit,
};

/// How an action is asked for, and what a person is told about it.
struct Binding {
  Action action;
  /// Keys by SDL's names, the wheel and gestures by FeedInput's.
  std::vector<std::string_view> triggers;
  std::string_view text;
  bool repeats = false;  ///< a key that is held down asks again and again

  /// "Down, PageDown, J".
  [[nodiscard]] std::string triggerList() const;
};

/// Every binding there is: the one place that says which key does what. `?` shows it, and the
/// manual and README say the same.
[[nodiscard]] std::span<const Binding> bindings();

/// The binding that has `trigger`; null when none has.
[[nodiscard]] const Binding* bindingOf(std::string_view trigger);

}  // namespace zaffo::feed
