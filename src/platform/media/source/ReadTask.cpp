// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/ReadTask.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace zaffo::media {

bool ReadTask::run(const std::function<void()>& work) {
  if (fiber_) {
    fiber_->resume();
  } else {
    fiber_ = Fiber::take();
    fiber_->start(work);
  }
  if (fiber_->hasEnded()) {
    end();
    return true;
  }
  wantMissing();
  return false;
}

void ReadTask::abandon() {
  if (!fiber_) return;
  isAbandoned_ = true;
  fiber_->resume();
  end();
  isAbandoned_ = false;
}

void ReadTask::end() {
  want_.reset();
  Fiber::giveBack(std::move(fiber_));
}

void ReadTask::wantMissing() {
  if (want_ && wanted_ == missing_ && !hasCome_) return;
  wanted_ = missing_;
  want_.reset();
  hasCome_ = false;
  want_ = bytes_->want(missing_.offset, missing_.count, [this, ready = ready_] {
    hasCome_ = true;
    if (ready) ready();
  });
}

int64_t ReadTask::read(int64_t offset, std::span<uint8_t> bytes) {
  return readSome(offset, bytes, bytes_->worthGoingOn());
}

/// Waits for `least` bytes where none is here.
int64_t ReadTask::readSome(int64_t offset, std::span<uint8_t> bytes, int64_t least) {
  const auto most = static_cast<int64_t>(std::min(bytes.size(), kMostWantedBytes));
  for (;;) {
    if (isAbandoned_) return -ECANCELED;
    const int64_t count = bytes_->readHeld(offset, bytes);
    if (count != -EAGAIN) return count;
    missing_ = {offset, std::min(least, most)};
    fiber_->suspend();
  }
}

int64_t ReadTask::readAll(int64_t offset, std::span<uint8_t> bytes) {
  std::size_t got = 0;
  while (got < bytes.size()) {
    const auto rest = bytes.subspan(got);
    const int64_t count =
        readSome(offset + static_cast<int64_t>(got), rest, static_cast<int64_t>(rest.size()));
    if (count < 0) return count;
    if (count == 0) break;
    got += static_cast<std::size_t>(count);
  }
  return static_cast<int64_t>(got);
}

}  // namespace zaffo::media
