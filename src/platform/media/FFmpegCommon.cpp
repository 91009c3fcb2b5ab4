#include "platform/media/FFmpegCommon.h"

extern "C" {
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace zaffo::media {

void SwrDeleter::operator()(SwrContext* c) const {
  swr_free(&c);
}
void SwsDeleter::operator()(SwsContext* c) const {
  sws_freeContext(c);
}

}  // namespace zaffo::media
