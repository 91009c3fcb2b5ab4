// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "platform/coremedia/CMTime.h"

namespace zaffo::media {

/// How far the pictures or the sound of an item have been read.
struct DataEnd {
  bool isOver = false;        ///< to the end
  std::optional<CMTime> end;  ///< where they end, as far as that is known by now
};

/// When an item is over: at its duration, or where its data ends if that is earlier or if the
/// container gives no duration. None while that is not known yet, or if it never will be.
/// `pictures` and `sound` are none for an item that has none.
[[nodiscard]] std::optional<CMTime> endOfItem(CMTime duration,
                                              const std::optional<DataEnd>& pictures,
                                              const std::optional<DataEnd>& sound);

}  // namespace zaffo::media
