// SPDX-License-Identifier: Apache-2.0

// Videos as they are decoded and drawn, beside what the ffmpeg program makes of them.

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "VirtualDisplay.h"
#include "WindowTestSupport.h"
#include "media/Clips.h"
#include "platform/avfoundation/AVAssetImageGenerator.h"
#include "platform/avfoundation/AVAssetReader.h"
#include "platform/avfoundation/AVPlayer.h"
#include "platform/avfoundation/AVPlayerLayer.h"
#include "platform/avfoundation/AVSampleBufferDisplayLayer.h"

namespace zaffo {
namespace {

struct Waves {
  const char* file;
  int width, height;
};
/// Colours that change from pixel to pixel: drawn half a pixel off they are no more than 40 dB
/// alike.
constexpr Waves kWaves[] = {
    {"waves_160x128_hevc.mp4", 160, 128}, {"waves_160x128_bt2020.mp4", 160, 128},
    {"waves_160x128_422.mp4", 160, 128},  {"waves_160x128_422p10.mp4", 160, 128},
    {"waves_160x128_444.mp4", 160, 128},  {"waves_160x128_full.mp4", 160, 128},
    {"waves_162x130_h264.mp4", 162, 130}, {"waves_162x130_vp9.webm", 162, 130},
    {"waves_161x131_vp9.webm", 161, 131}};
constexpr double kAlike = 45;  // dB

/// What ffmpeg makes of the clip's first picture, each pixel drawn as `scale` by `scale`.
CGImagePtr reference(const Waves& waves, int scale) {
  const std::filesystem::path clip = test::clip(waves.file);
  const std::string name = clip.stem().string() + "_" + std::to_string(scale) + "x.bgra";
  std::ifstream file(clip.parent_path() / name, std::ios::binary);
  std::vector<uint8_t> pixels{std::istreambuf_iterator<char>(file), {}};
  const int width = scale * waves.width;
  return std::make_shared<const CGImage>(width, scale * waves.height, std::size_t{4} * width,
                                         std::move(pixels));
}

/// Each pixel the mean of four.
CGImagePtr halved(const CGImagePtr& whole) {
  const int width = whole->width() / 2, height = whole->height() / 2;
  std::vector<uint8_t> pixels;
  for (int y = 0; y < height; ++y) {
    const uint8_t* above = whole->pixels() + std::size_t{2} * y * whole->stride();
    const uint8_t* below = above + whole->stride();
    for (int x = 0; x < 4 * width; ++x) {
      const int left = 8 * (x / 4) + x % 4, right = left + 4;
      const int sum = above[left] + above[right] + below[left] + below[right];
      pixels.push_back(static_cast<uint8_t>((sum + 2) / 4));
    }
  }
  return std::make_shared<const CGImage>(width, height, std::size_t{4} * width, std::move(pixels));
}

/// Peak signal to noise ratio of blue, green and red, in dB.
double likeness(const CGImagePtr& image, const CGImagePtr& expected) {
  if (!image || expected->width() == 0 || image->width() < expected->width() ||
      image->height() < expected->height()) {
    return 0;
  }
  double sum = 0;
  for (int y = 0; y < expected->height(); ++y) {
    for (int x = 0; x < expected->width(); ++x) {
      const Pixel a = pixelAt(image, x, y), b = pixelAt(expected, x, y);
      sum += std::pow(a.red - b.red, 2) + std::pow(a.green - b.green, 2) +
             std::pow(a.blue - b.blue, 2);
    }
  }
  const double mean = sum / (3.0 * expected->width() * expected->height());
  return 10 * std::log10(255 * 255 / std::max(mean, 1e-9));
}

std::shared_ptr<AVAsset> loadedAsset(const Waves& waves) {
  auto asset = AVAsset::assetWithURL(NSURL::fileURLWithPath(test::clip(waves.file)));
  bool loaded = false;
  asset->loadValuesAsynchronouslyForKeys({"tracks", "duration"}, [&] {
    dispatch_async(dispatch_get_main_queue(), [&] { loaded = true; });
  });
  EXPECT_TRUE(waitUntil([&] { return loaded; }));
  return asset;
}

/// The layers that show a video, each with what brings it its first picture.
class Screening {
 public:
  virtual ~Screening() = default;
  [[nodiscard]] virtual std::shared_ptr<CALayer> layer() const = 0;
  [[nodiscard]] virtual bool isReady() const = 0;
};

class PlayedByAPlayer : public Screening {
 public:
  explicit PlayedByAPlayer(const std::shared_ptr<AVAsset>& asset) {
    layer_->setPlayer(player_);
    player_->replaceCurrentItemWithPlayerItem(AVPlayerItem::playerItemWithAsset(asset));
  }
  [[nodiscard]] std::shared_ptr<CALayer> layer() const override { return layer_; }
  [[nodiscard]] bool isReady() const override { return layer_->isReadyForDisplay(); }

 private:
  std::shared_ptr<AVPlayer> player_ = AVPlayer::create();
  std::shared_ptr<AVPlayerLayer> layer_ = AVPlayerLayer::create();
};

class FedWithSamples : public Screening {
 public:
  explicit FedWithSamples(const std::shared_ptr<AVAsset>& asset) {
    timebase_->setRate(0);
    layer_->setControlTimebase(timebase_);
    reader_ = AVAssetReader::create(asset, nullptr);
    auto output =
        AVAssetReaderTrackOutput::create(asset->tracksWithMediaType(AVMediaTypeVideo).front());
    reader_->addOutput(output);
    EXPECT_TRUE(reader_->startReading());
    while (auto sample = output->copyNextSampleBuffer()) layer_->enqueueSampleBuffer(sample);
  }
  [[nodiscard]] std::shared_ptr<CALayer> layer() const override { return layer_; }
  [[nodiscard]] bool isReady() const override { return layer_->isReadyForDisplay(); }

 private:
  std::shared_ptr<CMTimebase> timebase_ = CMTimebase::create(CMClockGetHostTimeClock());
  std::shared_ptr<AVSampleBufferDisplayLayer> layer_ = AVSampleBufferDisplayLayer::create();
  std::shared_ptr<AVAssetReader> reader_;
};

std::unique_ptr<Screening> screening(bool fed, const std::shared_ptr<AVAsset>& asset) {
  if (fed) return std::make_unique<FedWithSamples>(asset);
  return std::make_unique<PlayedByAPlayer>(asset);
}

using Look = std::function<CGImagePtr(const std::shared_ptr<Window>&)>;

/// Shows each clip at its own size, at twice that and at half of it, by both kinds of layer.
void expectFidelity(const std::shared_ptr<Window>& window, const Look& look) {
  for (const Waves& waves : kWaves) {
    const auto asset = loadedAsset(waves);
    for (const bool fed : {false, true}) {
      const auto screening = zaffo::screening(fed, asset);
      const auto layer = screening->layer();
      window->rootView()->layer()->addSublayer(layer);
      for (const int scale : {1, 2}) {
        layer->setFrame(CGRectMake(0, 0, scale * waves.width, scale * waves.height));
        EXPECT_TRUE(waitUntil([&] { return screening->isReady(); })) << waves.file;
        EXPECT_GE(likeness(look(window), reference(waves, scale)), kAlike)
            << waves.file << (fed ? ", fed with samples, " : ", played, ") << scale << " times";
      }
      if (waves.width % 2 == 0 && waves.height % 2 == 0) {
        layer->setFrame(CGRectMake(0, 0, waves.width / 2, waves.height / 2));
        EXPECT_GE(likeness(look(window), halved(reference(waves, 1))), kAlike)
            << waves.file << (fed ? ", fed with samples" : ", played") << ", halved";
      }
      layer->removeFromSuperlayer();
    }
  }
}

TEST(PictureFidelity, AVideoDrawnInMemoryLooksAsItWasCoded) {
  expectFidelity(makeOffscreenWindow({340, 280}), snapshotOf);
}

TEST(PictureFidelity, AThumbnailLooksAsItsVideoWasCoded) {
  for (const Waves& waves : kWaves) {
    const auto generator = AVAssetImageGenerator::assetImageGeneratorWithAsset(loadedAsset(waves));
    const CGImagePtr image = generator->copyCGImageAtTime(kCMTimeZero, nullptr, nullptr);
    ASSERT_TRUE(image);
    EXPECT_GE(likeness(image, reference(waves, 1)), kAlike) << waves.file;
  }
}

class FidelityInDisplayWindow : public testing::TestWithParam<const char*> {};

TEST_P(FidelityInDisplayWindow, AVideoOnTheScreenLooksAsItWasCoded) {
  if (!hasProgram("import")) GTEST_SKIP() << "ImageMagick's import is not installed";
  const auto display = VirtualDisplay::start(340, 280);
  if (!display) GTEST_SKIP() << "Xvfb is not installed";
  setenv("SDL_RENDER_DRIVER", GetParam(), 1);
  Window::Options options;
  options.size = {340, 280};
  NSErrorPtr error;
  auto window = Window::create(options, &error);
  ASSERT_TRUE(window) << error->localizedDescription();
  expectFidelity(window, [](const std::shared_ptr<Window>& shown) {
    // The first picture may have been listed before the change.
    for (int n = 0; n < 2; ++n) {
      const uint64_t before = shown->presentedPictures();
      shown->rootView()->layer()->setNeedsDisplay();
      EXPECT_TRUE(waitUntil([&] { return shown->presentedPictures() > before; }));
    }
    return VirtualDisplay::screenshot(340, 280);
  });
  window = nullptr;
  dispatch_wait_until_idle();
  MainLoop::runTurn();
  unsetenv("SDL_RENDER_DRIVER");
}

INSTANTIATE_TEST_SUITE_P(EveryRenderer, FidelityInDisplayWindow,
                         testing::Values("opengl", "opengles2", "software"),
                         [](const auto& renderer) { return std::string(renderer.param); });

}  // namespace
}  // namespace zaffo
