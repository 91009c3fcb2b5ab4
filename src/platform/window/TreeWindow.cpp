// SPDX-License-Identifier: Apache-2.0
#include "platform/window/TreeWindow.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "platform/RecentTimes.h"
#include "platform/TimeSource.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/NSThread.h"
#include "platform/window/SoftwareRenderer.h"

namespace zaffo::window {

namespace {

CGImagePtr drawImage(const DisplayList& list) {
  const std::size_t stride = std::size_t{4} * static_cast<std::size_t>(list.width);
  std::vector<uint8_t> pixels(stride * static_cast<std::size_t>(list.height));
  SoftwareRenderer().draw(
      list, {pixels.data(), static_cast<std::ptrdiff_t>(stride), list.width, list.height});
  return std::make_shared<const CGImage>(list.width, list.height, stride, std::move(pixels));
}

/// Waits for the render thread where waiting harms nobody, then lets the screen go on the main
/// queue, where it was made.
void retire(std::unique_ptr<RenderThread> renderThread, std::unique_ptr<Screen> screen) {
  renderThread->stop();
  const auto queue = dispatch_queue_create_blocking("com.zaffo.window.retire");
  queue->async([thread = std::shared_ptr<RenderThread>(std::move(renderThread)),
                kept = std::shared_ptr<Screen>(std::move(screen))]() mutable {
    thread.reset();
    dispatch_get_main_queue()->async([kept = std::move(kept)] {});
  });
}

}  // namespace

TreeWindow::TreeWindow(std::unique_ptr<Screen> screen, std::unique_ptr<RenderThread> renderThread)
    : screen_(std::move(screen)),
      renderThread_(std::move(renderThread)),
      rootView_(UIView::create({CGPointZero, screen_->size()})),
      pacer_(screen_->frameInterval()) {}

std::shared_ptr<TreeWindow> TreeWindow::create(std::unique_ptr<Screen> screen,
                                               std::unique_ptr<RenderThread> renderThread) {
  assertMainThread();
  const std::shared_ptr<TreeWindow> window(
      new TreeWindow(std::move(screen), std::move(renderThread)));
  window->attach();
  return window;
}

TreeWindow::~TreeWindow() {
  rootView_->layer()->setDisplayRequestHandler({});
  screen_->setHandlers({}, {});
  if (paceTimer_) paceTimer_->cancel();
  if (pictureTimer_) pictureTimer_->cancel();
  retire(std::move(renderThread_), std::move(screen_));
}

void TreeWindow::attach() {
  rootView_->layer()->setDisplayRequestHandler([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->setNeedsDraw();
  });
  screen_->setHandlers(
      [weak = weak_from_this()](const InputEvent& event) {
        if (const auto self = weak.lock()) self->handleEvent(event);
      },
      [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->setNeedsDraw();
      });
  setNeedsDraw();
}

void TreeWindow::setInputHandler(std::function<void(const InputEvent&)> handler) {
  inputHandler_ = std::move(handler);
}

void TreeWindow::setPresentHandler(std::function<void(int64_t)> handler) {
  presentHandler_ = std::move(handler);
}

void TreeWindow::handleEvent(const InputEvent& event) {
  if (event.type == InputEvent::Type::Resize) {
    rootView_->setFrame({CGPointZero, screen_->size()});
    setNeedsDraw();
  }
  // A copy: the handler may replace itself, or let the window go.
  if (const auto handler = inputHandler_) handler(event);
}

void TreeWindow::setNeedsDraw() {
  assertMainThread();
  needsDraw_ = true;
  if (state_ == State::Clean) schedule();
}

void TreeWindow::schedule() {
  state_ = State::Scheduled;
  auto drawLater = [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->draw();
  };
  const int64_t now = TimeSource::now(), delay = pacer_.delay(now);
  if (delay > 0) {
    paceTimer_ = dispatch_timer_at(now + delay, dispatch_get_main_queue(), std::move(drawLater));
  } else {
    dispatch_get_main_queue()->async(std::move(drawLater));
  }
}

DisplayListAndPresentations TreeWindow::listTree(int64_t hostNanoseconds) {
  const CGSize size = screen_->size();
  const double scale = screen_->scale();
  return makeDisplayList(rootView_->layer(), static_cast<int>(std::lround(size.width * scale)),
                         static_cast<int>(std::lround(size.height * scale)), scale,
                         hostNanoseconds);
}

void TreeWindow::draw() {
  state_ = State::Drawing;
  rootView_->layoutIfNeeded();
  needsDraw_ = false;  // what layout changed is in the list
  const int64_t now = TimeSource::now();
  pacer_.made(now);
  auto [list, presentations] = listTree(now);
  presenting_ = std::move(presentations);
  planNextPicture(now);
  renderThread_->post([weak = weak_from_this(), drawn = std::make_shared<const DisplayList>(
                                                    std::move(list))](Canvas& canvas) {
    const int64_t began = TimeSource::now();
    canvas.draw(*drawn);
    noteTime(TimedWork::Drawing, TimeSource::now() - began);
    canvas.show();
    const int64_t presented = TimeSource::now();
    dispatch_get_main_queue()->async([weak, presented] {
      if (const auto self = weak.lock()) self->finishedPresenting(presented);
    });
  });
}

/// Comes back by itself when a layer's picture changes next: nobody else has to wake for that.
void TreeWindow::planNextPicture(int64_t now) {
  if (pictureTimer_) std::exchange(pictureTimer_, nullptr)->cancel();
  std::optional<int64_t> next;
  for (const auto& presentation : presenting_) {
    const auto layer = presentation.layer.lock();
    const auto time = layer ? layer->nextPictureTime() : std::nullopt;
    if (time && (!next || *time < *next)) next = time;
  }
  if (!next) return;
  pictureTimer_ = dispatch_timer_at(std::max(*next, now + pacer_.delay(now)),
                                    dispatch_get_main_queue(), [weak = weak_from_this()] {
                                      if (const auto self = weak.lock()) self->pictureIsDue();
                                    });
}

void TreeWindow::pictureIsDue() {
  needsDraw_ = true;
  if (state_ != State::Clean) return;
  if (pacer_.delay(TimeSource::now()) > 0) return schedule();
  draw();
}

void TreeWindow::finishedPresenting(int64_t hostNanoseconds) {
  ++presentedPictures_;
  for (const auto& [weakLayer, buffer] : std::exchange(presenting_, {})) {
    if (const auto layer = weakLayer.lock()) layer->didPresent(buffer, hostNanoseconds);
  }
  if (const auto handler = presentHandler_) handler(hostNanoseconds);
  screen_->deliverEvents();
  state_ = State::Clean;
  if (needsDraw_) schedule();
}

void TreeWindow::snapshot(std::function<void(CGImagePtr)> completion) {
  assertMainThread();
  rootView_->layoutIfNeeded();
  const uint64_t number = ++lastSnapshot_;
  // Completions stay on the main thread, so that what they hold is let go there.
  snapshotCompletions_.emplace(number, std::move(completion));
  auto list = std::make_shared<const DisplayList>(listTree(TimeSource::now()).list);
  renderThread_->post([weak = weak_from_this(), list = std::move(list), number](Canvas&) {
    dispatch_get_main_queue()->async([weak, number, image = drawImage(*list)] {
      if (const auto self = weak.lock()) self->finishedSnapshot(number, image);
    });
  });
}

void TreeWindow::finishedSnapshot(uint64_t number, const CGImagePtr& image) {
  const auto node = snapshotCompletions_.extract(number);
  if (!node.empty() && node.mapped()) node.mapped()(image);
}

}  // namespace zaffo::window
