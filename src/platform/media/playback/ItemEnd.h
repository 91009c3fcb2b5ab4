#pragma once

#include <optional>

#include "platform/coremedia/CMTime.h"

namespace zaffo::media {

/// How far the pictures or the sound of an item have been given out.
struct DataEnd {
  bool isOver = false;        ///< all that there is
  std::optional<CMTime> end;  ///< where they end, as far as that is known
};

/// When an item is over: at its duration, or where its data ends if that is earlier or if the
/// container does not tell. Nothing while that is not known, or when nothing will ever tell. An
/// item without pictures, or without sound, has no end of them.
[[nodiscard]] std::optional<CMTime> endOfItem(CMTime duration,
                                              const std::optional<DataEnd>& pictures,
                                              const std::optional<DataEnd>& sound);

}  // namespace zaffo::media
