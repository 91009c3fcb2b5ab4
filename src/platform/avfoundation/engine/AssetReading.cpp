// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/AssetReading.h"

#include <utility>

namespace zaffo {

AVAssetReaderStatus AssetReading::status() const {
  MutexLock lock(mutex_);
  return status_;
}

NSErrorPtr AssetReading::error() const {
  MutexLock lock(mutex_);
  return error_;
}

bool AssetReading::isOpenWhileLocked() const {
  return status_ == AVAssetReaderStatus::Unknown || status_ == AVAssetReaderStatus::Reading;
}

bool AssetReading::begin(std::size_t outputs) {
  MutexLock lock(mutex_);
  if (status_ != AVAssetReaderStatus::Unknown) return false;
  status_ = AVAssetReaderStatus::Reading;
  openOutputs_ = outputs;
  return true;
}

void AssetReading::endOutput() {
  MutexLock lock(mutex_);
  if (--openOutputs_ == 0 && isOpenWhileLocked()) status_ = AVAssetReaderStatus::Completed;
}

void AssetReading::fail(NSErrorPtr error) {
  MutexLock lock(mutex_);
  if (!isOpenWhileLocked()) return;
  status_ = AVAssetReaderStatus::Failed;
  error_ = std::move(error);
}

void AssetReading::cancel() {
  MutexLock lock(mutex_);
  if (isOpenWhileLocked()) status_ = AVAssetReaderStatus::Cancelled;
}

}  // namespace zaffo
