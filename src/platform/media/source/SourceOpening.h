// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "platform/foundation/Result.h"
#include "platform/media/Outcome.h"
#include "platform/media/source/FileSampleSource.h"
#include "platform/media/source/ReadTask.h"

namespace zaffo::media {

/// The opening of a file, in steps that never wait. Thread: one at a time; the ready handler is
/// called on any.
class SourceOpening {
 public:
  explicit SourceOpening(std::shared_ptr<ByteSource> bytes)
      : bytes_(std::move(bytes)), task_(bytes_) {}

  /// Called when step() may get further. Set before the first step.
  void setReadyHandler(std::function<void()> handler) { task_.setReadyHandler(std::move(handler)); }
  /// Again while bytes are missing; Ready or Error when it has come to its end: see take().
  [[nodiscard]] Outcome step();
  /// What came of it.
  [[nodiscard]] Result<std::shared_ptr<FileSampleSource>> take() { return *std::move(opened_); }

 private:
  const std::shared_ptr<ByteSource> bytes_;
  std::optional<Result<std::shared_ptr<FileSampleSource>>> opened_;
  ReadTask task_;  // ends before what it writes to
};

}  // namespace zaffo::media
