#include "platform/window/Window.h"

#include "platform/window/MemoryCanvas.h"
#include "platform/window/TreeWindow.h"

namespace zaffo {

namespace {

std::shared_ptr<Window> createOffscreen(const Window::Options& options,
                                        std::shared_ptr<const NSError>* error) {
  auto thread = std::make_unique<window::RenderThread>();
  auto failure = thread->start(
      [](std::shared_ptr<const NSError>*) { return std::make_unique<window::MemoryCanvas>(); });
  if (error) *error = failure;
  if (failure) return nullptr;
  return window::TreeWindow::create(std::make_unique<window::OffscreenScreen>(options),
                                    std::move(thread));
}

}  // namespace

std::shared_ptr<Window> Window::create(const Options& options,
                                       std::shared_ptr<const NSError>* error) {
  return createOffscreen(options, error);
}

}  // namespace zaffo
