// What stands around the code of docs/embedding.md: each line `// BLOCK` is replaced with the next of
// its blocks.
#include <ZaffoPlayback/ZaffoPlayback.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

struct Log {
  void debug(std::string_view line);
};
extern Log myLog;

class Page : public zaffo::UIView {
 public:
  void playShortly(const std::shared_ptr<zaffo::PlayerManager>& pool,
                   const std::shared_ptr<zaffo::NSURL>& url) {
    // BLOCK
  }

 private:
  void showText(const std::string& text);

  std::shared_ptr<zaffo::PlayerDecorator> handle_;
};

// BLOCK
private:
std::string id_;
std::shared_ptr<zaffo::ZFSingleLoopVideoPlayerItemLoader> loader_;
};

class LoopingVideo {
 public:
  explicit LoopingVideo(std::shared_ptr<const zaffo::NSURL> url) :
    // BLOCK
  {}

 private:
  std::shared_ptr<zaffo::ZFLoopingVideoPlayerItemLoader> loader_;
};

double lengthOfRound(const std::shared_ptr<zaffo::AVPlayerItem>& item, double loopSeconds) {
  // BLOCK
  return round;
}

class LongPage : public zaffo::UIView {
 public:
  void loadItem(const std::shared_ptr<zaffo::ZFVideo>& video,
                zaffo::AVPlayerItemLoaderOptions options) {
    // BLOCK
  }

  void lend(const std::shared_ptr<zaffo::PlayerManager>& pool,
            const std::shared_ptr<zaffo::ZFVideo>& video,
            const std::shared_ptr<zaffo::AVPlayerItem>& item) {
    // BLOCK
  }

  void lendWithinBounds(const std::shared_ptr<zaffo::PlayerManager>& pool,
                        const std::shared_ptr<zaffo::AVPlayerItem>& item) {
    // BLOCK
  }

 private:
  void showText(const std::string& text);
  void askForPlayer(std::shared_ptr<zaffo::AVPlayerItem> item);

  std::shared_ptr<zaffo::PlayerDecorator> handle_;
};

void sendElsewhere() {
  // BLOCK
}

using namespace zaffo;

void playToTheEnd(const std::shared_ptr<Player>& player,
                  const std::shared_ptr<const AVAssetTrack>& videoTrack,
                  const std::shared_ptr<AVSampleBufferDisplayLayer>& layer, float rate,
                  const std::function<void()>& endIsDue) {
  std::shared_ptr<DispatchTimer> timer;
  // BLOCK
}
