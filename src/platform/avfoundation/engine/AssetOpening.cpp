// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/AssetOpening.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <span>
#include <utility>

#include "platform/avfoundation/engine/BytesOfClip.h"
#include "platform/dispatch/Confinement.h"

namespace zaffo {

std::shared_ptr<AssetOpening> AssetOpening::begin(const std::shared_ptr<const NSURL>& url,
                                                  const DispatchQueuePtr& queue, Completion done) {
  auto bytes = bytesAt(url);
  if (!bytes) {
    done(bytes.error());
    return nullptr;
  }
  const std::shared_ptr<AssetOpening> opening(
      new AssetOpening(url, *std::move(bytes), queue, std::move(done)));
  opening->step();
  return opening;
}

/// What makes a step on the queue, from any thread, unless this is gone by then.
std::function<void()> AssetOpening::posting() {
  return [weakSelf = weak_from_this(), queue = queue_] {
    queue->async([weakSelf] {
      if (const auto self = weakSelf.lock()) self->step();
    });
  };
}

void AssetOpening::step() {
  assertCurrent(*queue_);
  if (!clip_ && !stream_ && !isKnown()) return;
  stream_ ? stepOn(*stream_) : stepOn(*clip_);
}

/// Whether the first bytes are here, and what they say. Only what is remote can be a stream: a list
/// on disk could name any file.
bool AssetOpening::isKnown() {
  std::array<uint8_t, streaming::StreamOpening::kMarkBytes> mark{};
  int64_t count = 0;
  if (!url_->isFileURL()) count = bytes_->readHeld(0, mark);
  const bool isPart = count >= 0 && count < static_cast<int64_t>(mark.size());
  if (count == -EAGAIN || (isPart && !url_->isFileURL() && !front_)) {
    front_ = bytes_->want(0, static_cast<int64_t>(mark.size()), posting());
    return false;
  }
  front_.reset();
  const auto front = std::span(mark).first(static_cast<std::size_t>(std::max<int64_t>(0, count)));
  begin(streaming::StreamOpening::isList(front));
  return true;
}

void AssetOpening::begin(bool isStream) {
  if (isStream) {
    stream_.emplace(url_).setReadyHandler(posting());
  } else {
    clip_.emplace(bytes_).setReadyHandler(posting());
  }
}

template <typename Opening>
void AssetOpening::stepOn(Opening& opening) {
  if (opening.step() == media::Outcome::Again) return;
  auto opened = opening.take();
  if (!opened) return done_(opened.error());
  done_(*std::move(opened));
}

}  // namespace zaffo
