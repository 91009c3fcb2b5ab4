#pragma once

#include <memory>

#include "platform/network/HttpResource.h"

namespace zaffo::network {

/// The bytes at an http or https address: one resource for all who read it at the same time, so
/// that the still picture of a page, its player and the loop's loader fetch nothing twice. It ends
/// with the last who holds it. Thread: any.
[[nodiscard]] std::shared_ptr<HttpResource> sharedResourceAt(const URL& address);

}  // namespace zaffo::network
