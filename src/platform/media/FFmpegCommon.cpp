// SPDX-License-Identifier: Apache-2.0
#include "platform/media/FFmpegCommon.h"

extern "C" {
#include <libavutil/log.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <mutex>

namespace zaffo::media {

void SwrDeleter::operator()(SwrContext* c) const {
  swr_free(&c);
}
void SwsDeleter::operator()(SwsContext* c) const {
  sws_freeContext(c);
}

void keepFFmpegQuiet() {
  static std::once_flag once;
  std::call_once(once, [] {
    constexpr int kDefaultLevel = AV_LOG_INFO;
    if (av_log_get_level() == kDefaultLevel) av_log_set_level(AV_LOG_QUIET);
  });
}

}  // namespace zaffo::media
