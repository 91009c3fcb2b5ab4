#include "platform/media/FFmpegError.h"

#include <array>
#include <system_error>

#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {
namespace {

NSErrorPtr described(const char* domain, long code, std::string text, NSErrorPtr underlying) {
  return NSError::create(domain, code, {{NSLocalizedDescriptionKey, std::move(text)}},
                         std::move(underlying));
}

}  // namespace

NSErrorPtr makeError(AVError code, std::string text, NSErrorPtr underlying) {
  return described(AVFoundationErrorDomain, code, std::move(text), std::move(underlying));
}

NSErrorPtr makeFFmpegError(AVError code, std::string text, int averror) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> reason{};
  av_strerror(averror, reason.data(), reason.size());
  return makeError(code, std::move(text),
                   described(FFmpegErrorDomain, averror, reason.data(), nullptr));
}

NSErrorPtr makePosixError(AVError code, std::string text, int number) {
  return makeError(
      code, std::move(text),
      described(NSPOSIXErrorDomain, number, std::generic_category().message(number), nullptr));
}

NSErrorPtr contentIsProtected() {
  return makeError(AVErrorContentIsProtected, "The video is protected by encryption.");
}

}  // namespace zaffo::media
