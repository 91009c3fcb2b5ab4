// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

namespace zaffo {
class PlayerManager;
}

namespace zaffo::qt {

/// The pool of all clips, made for the first and gone with the last. Sees to it that Qt's event
/// loop runs the library's work, from then on for good: what is torn down later is work as well.
/// Thread: main, with an application object.
[[nodiscard]] std::shared_ptr<PlayerManager> sharedPool();

}  // namespace zaffo::qt
