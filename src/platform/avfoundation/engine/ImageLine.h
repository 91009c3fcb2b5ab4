// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <memory>

#include "platform/Mutex.h"

namespace zaffo {

class ImageRequest;

/// Images that are made one after the other, as many at once as there are cores, in short turns at
/// background priority. One that waits for bytes leaves its place to the next, and goes on before
/// those that have not begun: so that few decoders are open, however many images are asked for; and
/// few wait, for each may have a connection to a server. A request is made to its end, whoever has
/// gone by then. One per process, never destroyed. Thread: any.
///
///              a place is free             the image, or an error
///     in line ────────────────> at work ─────────────────────────> over
///        ^                         │
///        └── bytes have come ── waiting <── they are not here yet
class ImageLine {
 public:
  /// Under way at once, most of them waiting.
  static constexpr unsigned kMostUnderWay = 64;

  /// Called once, on a worker.
  using Completion = std::function<void(const ImageRequest& made)>;

  [[nodiscard]] static ImageLine& shared();

  /// `request` was not begun yet.
  void make(std::unique_ptr<ImageRequest> request, Completion completion);

 private:
  class Work;
  using WorkPtr = std::shared_ptr<Work>;

  ImageLine();
  void enter(WorkPtr work);
  void enterAgain(WorkPtr work);
  void leave();
  void end();
  void begin(WorkPtr work);

  Mutex lineMutex_;
  std::deque<WorkPtr> line_ ZAFFO_GUARDED_BY(lineMutex_);
  unsigned freePlaces_ ZAFFO_GUARDED_BY(lineMutex_);
  unsigned underWay_ ZAFFO_GUARDED_BY(lineMutex_) = 0;
};

}  // namespace zaffo
