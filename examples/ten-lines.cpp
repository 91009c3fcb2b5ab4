// A player from the pool in a view, in ten lines: ten-lines FILE

#include <ZaffoPlayback/ZaffoPlayback.h>

#include <cstdio>

using namespace zaffo;

namespace {

/// A video as an application describes it, loaded by one of the library's loaders.
class Clip final : public ZFVideo {
 public:
  explicit Clip(const std::shared_ptr<const NSURL>& url)
      : id_(url->absoluteString()),
        loader_(ZFSingleLoopVideoPlayerItemLoader::createWithURL(url)) {}

  std::string videoId() const override { return id_; }
  CMTime itemDuration() const override { return kCMTimeIndefinite; }
  bool canPause() const override { return true; }
  bool canPlay() const override { return true; }
  bool explicitContent() const override { return false; }
  bool canReuseAVPlayerItem() const override { return true; }
  ZFCancelCommandPtr loadAVPlayerItemWithOptions(AVPlayerItemLoaderOptions options,
                                                 ItemCompletion done) override {
    return loader_->loadAVPlayerItemWithOptions(options, std::move(done));
  }
  ZFCancelCommandPtr loadThumbnailWithPriority(unsigned long priority, CGSize size,
                                               ThumbnailCompletion done) override {
    return loader_->loadThumbnailWithPriority(priority, size, std::move(done));
  }
  ZFCancelCommandPtr preloadWithPriority(unsigned long priority, PreloadCompletion done) override {
    return loader_->preloadWithPriority(priority, std::move(done));
  }

 private:
  std::string id_;
  std::shared_ptr<AVPlayerItemLoader> loader_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return std::fprintf(stderr, "usage: ten-lines FILE\n"), 2;
  const auto window = Window::create({.size = {360, 640}, .offscreen = true}, nullptr);
  const auto manager = PlayerManager::create();
  const auto video = std::make_shared<Clip>(NSURL::fileURLWithPath(argv[1]));
  std::shared_ptr<PlayerDecorator> player;
  int pictures = 0;

  const auto play = [&](const PlayerLoadResult& result) {
    if (!(player = result.player())) return MainLoop::quit();
    player->outputView()->setFrame(window->rootView()->bounds());
    window->rootView()->addSubview(player->outputView());
    player->setRate(1);
  };
  video->loadAVPlayerItemWithOptions({}, [&](std::shared_ptr<AVPlayerItem> item, double, double) {
    dispatch_async(dispatch_get_main_queue(), [&, item] {
      if (item) return void(manager->loadPlayer(video, item, {}, play));
      MainLoop::quit();
    });
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
