// SPDX-License-Identifier: Apache-2.0
#include "platform/media/FFmpegError.h"

#include <array>

#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {

NSErrorPtr makeFFmpegError(AVError code, std::string text, int averror) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> reason{};
  av_strerror(averror, reason.data(), reason.size());
  return makeError(
      code, std::move(text),
      NSError::create(FFmpegErrorDomain, averror, {{NSLocalizedDescriptionKey, reason.data()}}));
}

}  // namespace zaffo::media
