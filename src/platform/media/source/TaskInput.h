// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "platform/foundation/NSError.h"
#include "platform/media/FFmpegCommon.h"
#include "platform/media/source/ReadTask.h"

namespace zaffo::media {

/// The bytes of a ReadTask as FFmpeg reads them, in that task's work. Thread: one at a time.
class TaskInput {
 public:
  /// `task` outlives it, or the next one that readFor() names does.
  explicit TaskInput(ReadTask& task);
  TaskInput(const TaskInput&) = delete;
  TaskInput& operator=(const TaskInput&) = delete;

  /// What reads from now on is the work of `task`, which has the same bytes.
  void readFor(ReadTask& task) { task_ = &task; }
  [[nodiscard]] ReadTask& task() const { return *task_; }
  [[nodiscard]] AVIOContext* context() const { return context_.get(); }
  /// A read that failed is not held against the next one.
  void forgive() { context_->eof_reached = context_->error = 0; }

 private:
  static int readPacket(void* opaque, uint8_t* buffer, int size);
  static int64_t seekTo(void* opaque, int64_t offset, int whence);

  ReadTask* task_;
  int64_t position_ = 0;
  const IOContextPtr context_;
};

/// What it means to a person that FFmpeg could not read `bytes`: why they cannot be had, where that
/// is it.
[[nodiscard]] NSErrorPtr readFailed(const ByteSource& bytes, int averror);

}  // namespace zaffo::media
