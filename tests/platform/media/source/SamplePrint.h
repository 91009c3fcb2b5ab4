// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/media/Sample.h"

namespace zaffo::media {

/// What there is to a sample, its bytes included.
inline std::string fingerprint(const Sample& sample) {
  const AVPacket& packet = *sample.packet;
  const std::string_view bytes(reinterpret_cast<const char*>(packet.data),
                               static_cast<std::size_t>(packet.size));
  return CMTimeDescription(sample.presentation) + CMTimeDescription(sample.decode) +
         CMTimeDescription(sample.duration) + (sample.sync ? " sync" : "") +
         (sample.decodeOnly ? " hidden " : " ") +
         std::to_string(std::hash<std::string_view>{}(bytes));
}

inline std::vector<std::string> fingerprintsOf(const std::vector<Sample>& samples) {
  std::vector<std::string> prints;
  for (const Sample& sample : samples) prints.push_back(fingerprint(sample));
  return prints;
}

}  // namespace zaffo::media
