// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// What a person is told when a video gave neither an item nor a picture: why, in words that need
/// no knowledge of media. `error` is the picture's and may be null. Thread: any.
[[nodiscard]] std::string failureText(const NSErrorPtr& error);

/// Whether the same may work in a while: a server that did not answer, a connection that was lost.
[[nodiscard]] bool mayPass(const NSErrorPtr& error);

}  // namespace zaffo::feed
