// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <ZaffoPlayback/ZaffoPlayback.h>

/// A feed reduced to what is measured: videos, a pool, and ways to wait for what they do. Every
/// wait runs the main loop and ends the program when what it waits for does not come in 20 s.
/// Thread: main.
namespace bench {

enum class Loop { Single, Endless };

/// The clip at a path as a video whose item may stay in an idle player. It plays once, or is a
/// looping item.
class Video final : public zaffo::ZFVideo {
 public:
  Video(const std::string& path, std::string id, Loop loop = Loop::Single);

  [[nodiscard]] std::string videoId() const override { return id_; }
  [[nodiscard]] zaffo::CMTime itemDuration() const override { return zaffo::kCMTimeZero; }
  [[nodiscard]] bool canPause() const override { return true; }
  [[nodiscard]] bool canPlay() const override { return true; }
  [[nodiscard]] bool explicitContent() const override { return false; }

  zaffo::ZFCancelCommandPtr loadAVPlayerItemWithOptions(zaffo::AVPlayerItemLoaderOptions options,
                                                        ItemCompletion completeBlock) override;
  zaffo::ZFCancelCommandPtr loadThumbnailWithPriority(unsigned long priority,
                                                      zaffo::CGSize targetSize,
                                                      ThumbnailCompletion completion) override;
  zaffo::ZFCancelCommandPtr preloadWithPriority(unsigned long priority,
                                                PreloadCompletion completeBlock) override;
  [[nodiscard]] bool canReuseAVPlayerItem() const override { return true; }

 private:
  std::shared_ptr<zaffo::AVPlayerItemLoader> loader_;
  std::string id_;
};

using Handle = std::shared_ptr<zaffo::PlayerDecorator>;
using Item = std::shared_ptr<zaffo::AVPlayerItem>;

/// Which player the pool makes.
enum class Kind { Native, Fast };
[[nodiscard]] std::shared_ptr<zaffo::PlayerManager> makePool(Kind kind);

/// Runs the main loop until `condition` holds. `what` is for the message when it never does.
void runUntil(const std::function<bool()>& condition, const char* what);

/// Runs the main loop for a stretch of time.
void runFor(double seconds);

/// Seconds on the monotonic clock.
[[nodiscard]] double now();

/// The item of a video, loaded by its loader.
[[nodiscard]] Item loadItem(const std::shared_ptr<Video>& video);

/// Asks the pool for a player of the video and waits for it.
[[nodiscard]] Handle loadPlayer(const std::shared_ptr<zaffo::PlayerManager>& pool,
                                const std::shared_ptr<Video>& video, const Item& item);

/// From the bare URL to a player: loader, then pool.
[[nodiscard]] Handle openCold(const std::shared_ptr<zaffo::PlayerManager>& pool,
                              const std::shared_ptr<Video>& video);

/// Whether a picture of the video can be shown now.
[[nodiscard]] bool hasPicture(const Handle& handle);

/// What tells the picture that would be drawn now from others (PictureMark.h); 0 when there is
/// none. The next one asks for a draw again.
[[nodiscard]] uint64_t shownMark(const Handle& handle);

/// The picture that would be drawn now; null when there is none. The next one asks for a draw
/// again.
[[nodiscard]] zaffo::CVPixelBufferPtr shownPicture(const Handle& handle);

/// Pictures of the video that were put on screen, and that became due but never were.
struct Pictures {
  unsigned long long shown = 0, dropped = 0;
};
[[nodiscard]] Pictures picturesOf(const Handle& handle);

/// Seeks a native player with zero tolerance and waits for it to say that the frame can be shown.
void seekExactly(const Handle& handle, double seconds);

/// Seeks any player with zero tolerance and waits until the picture with `mark` would be drawn.
void seekUntilShown(const Handle& handle, double seconds, uint64_t mark);

}  // namespace bench
