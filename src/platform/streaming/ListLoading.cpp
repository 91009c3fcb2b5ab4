// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/ListLoading.h"

#include <string_view>
#include <utility>

namespace zaffo::streaming {

ListLoading::ListLoading(std::shared_ptr<network::HttpResource> resource)
    : text_(std::move(resource), {}, static_cast<int64_t>(network::Playlist::kMostBytes)) {}

media::Outcome ListLoading::step() {
  return text_.step();
}

Result<network::Playlist> ListLoading::take() {
  if (NSErrorPtr error = text_.error()) return error;
  const auto bytes = text_.bytes();
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return network::Playlist::parse(text, text_.location());
}

}  // namespace zaffo::streaming
