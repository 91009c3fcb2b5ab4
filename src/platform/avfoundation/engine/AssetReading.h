// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>

#include "platform/Mutex.h"
#include "platform/avfoundation/AVAssetReader.h"

namespace zaffo {

/// The status of a reader, as it and its outputs report it. Thread: any.
class AssetReading {
 public:
  [[nodiscard]] AVAssetReaderStatus status() const;
  [[nodiscard]] NSErrorPtr error() const;

  /// From Unknown to Reading; false in every other state.
  [[nodiscard]] bool begin(std::size_t outputs);
  /// An output has given all its samples: after the last one the reader is Completed.
  void endOutput();
  /// Both take effect while the status is Unknown or Reading only.
  void fail(NSErrorPtr error);
  void cancel();

 private:
  [[nodiscard]] bool isOpenWhileLocked() const ZAFFO_REQUIRES(mutex_);

  mutable Mutex mutex_;
  AVAssetReaderStatus status_ ZAFFO_GUARDED_BY(mutex_) = AVAssetReaderStatus::Unknown;
  NSErrorPtr error_ ZAFFO_GUARDED_BY(mutex_);
  std::size_t openOutputs_ ZAFFO_GUARDED_BY(mutex_) = 0;
};

}  // namespace zaffo
