// SPDX-License-Identifier: Apache-2.0

// A player from the pool in a view, in ten lines: ten-lines FILE

#include <ZaffoPlayback/ZaffoPlayback.h>

#include <cstdio>

using namespace zaffo;

int main(int argc, char** argv) {
  if (argc != 2) return std::fprintf(stderr, "usage: ten-lines FILE\n"), 2;
  const auto window = Window::create({.size = {360, 640}, .offscreen = true}, nullptr);
  const auto manager = PlayerManager::create();
  const auto video = ClipVideo::create(NSURL::fileURLWithPath(argv[1]));
  std::shared_ptr<PlayerDecorator> player;
  int pictures = 0;

  play(manager, video, [&](const PlayerLoadResult& result) {
    if (!(player = result.player())) return MainLoop::quit();
    player->outputView()->setFrame(window->rootView()->bounds());
    window->rootView()->addSubview(player->outputView());
  });
  window->setPresentHandler([&](int64_t) {
    if (player && CMTimeGetSeconds(player->currentTime()) >= 0.5) MainLoop::quit();
    pictures += player ? 1 : 0;
  });
  MainLoop::run();

  std::printf("%d pictures shown\n", pictures);
  if (player) {
    player->setRate(0);
    player->releaseToManager();
  }
  return pictures > 0 ? 0 : 1;
}
