// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/TaskInput.h"

#include <cstddef>
#include <cstdio>
#include <optional>
#include <span>

#include "platform/media/FFmpegError.h"

namespace zaffo::media {
namespace {

constexpr int kBufferBytes = 32 * 1024;

}  // namespace

TaskInput::TaskInput(ReadTask& task)
    : task_(&task),
      context_(avio_alloc_context(static_cast<uint8_t*>(av_malloc(kBufferBytes)), kBufferBytes, 0,
                                  this, readPacket, nullptr, seekTo)) {}

int TaskInput::readPacket(void* opaque, uint8_t* buffer, int size) {
  auto* self = static_cast<TaskInput*>(opaque);
  const int64_t count =
      self->task_->read(self->position_, std::span(buffer, static_cast<std::size_t>(size)));
  if (count == 0) return AVERROR_EOF;
  if (count > 0) self->position_ += count;
  return static_cast<int>(count);
}

int64_t TaskInput::seekTo(void* opaque, int64_t offset, int whence) {
  auto* self = static_cast<TaskInput*>(opaque);
  const std::optional<int64_t> bytes = self->task_->bytes().size();
  switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
      return bytes.value_or(AVERROR(ENOSYS));
    case SEEK_SET:
      break;
    case SEEK_CUR:
      offset += self->position_;
      break;
    case SEEK_END:
      if (!bytes) return AVERROR(ENOSYS);
      offset += *bytes;
      break;
    default:
      return AVERROR(EINVAL);
  }
  if (offset < 0) return AVERROR(EINVAL);
  self->position_ = offset;
  return offset;
}

NSErrorPtr readFailed(const ByteSource& bytes, int averror) {
  if (NSErrorPtr error = bytes.error()) return error;
  return makeFFmpegError(AVErrorFileFailedToParse,
                         "The file \"" + bytes.name() + "\" is damaged or incomplete.", averror);
}

}  // namespace zaffo::media
