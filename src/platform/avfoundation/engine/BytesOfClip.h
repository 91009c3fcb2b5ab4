// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/foundation/NSURL.h"
#include "platform/foundation/Result.h"
#include "platform/media/source/ByteSource.h"

namespace zaffo {

/// The bytes at an address, on disk or on the network; an error where there can be none. Opening a
/// file may wait for the disk.
[[nodiscard]] Result<std::shared_ptr<media::ByteSource>> bytesAt(
    const std::shared_ptr<const NSURL>& url);

}  // namespace zaffo
