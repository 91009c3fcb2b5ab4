// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/engine/ImageLine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "doubles/BusyPool.h"
#include "doubles/ManualTime.h"
#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/avfoundation/engine/ImageRequest.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo {
namespace {

using media::Outcome;

/// A loaded asset whose cursors count how many of them are open, and wait at a gate once they were
/// told to.
class GatedAsset final : public AVAsset {
 public:
  explicit GatedAsset(std::shared_ptr<AVAsset> inner)
      : inner_(std::move(inner)), source_(std::make_shared<Source>(inner_->sampleSource())) {}

  void close() { source_->isOpen = false; }
  /// The next sample comes just after it was found missing, before that is told.
  void bringLate() { source_->isLate = true; }
  void open() {
    source_->isOpen = true;
    for (const auto& ready : source_->takeWaiting()) ready();
  }
  [[nodiscard]] int mostCursors() const { return source_->most; }
  [[nodiscard]] int waiting() const { return source_->waiting(); }

  void loadValuesAsynchronouslyForKeys(std::vector<std::string> keys,
                                       std::function<void()> handler) override {
    inner_->loadValuesAsynchronouslyForKeys(std::move(keys), std::move(handler));
  }
  [[nodiscard]] AVKeyValueStatus statusOfValueForKey(const std::string& key,
                                                     NSErrorPtr* error) const override {
    return inner_->statusOfValueForKey(key, error);
  }
  void cancelLoading() override { inner_->cancelLoading(); }
  [[nodiscard]] CMTime duration() const override { return inner_->duration(); }
  [[nodiscard]] std::vector<std::shared_ptr<const AVAssetTrack>> tracks() const override {
    return inner_->tracks();
  }
  [[nodiscard]] bool isReadable() const override { return true; }
  [[nodiscard]] bool isPlayable() const override { return true; }
  [[nodiscard]] std::shared_ptr<AVAsset> copy() override { return nullptr; }
  [[nodiscard]] std::shared_ptr<media::SampleSource> sampleSource() const override {
    return source_;
  }

 private:
  class Source final : public media::SampleSource, public std::enable_shared_from_this<Source> {
   public:
    explicit Source(std::shared_ptr<media::SampleSource> inner) : inner_(std::move(inner)) {}
    [[nodiscard]] const std::vector<std::shared_ptr<const AVAssetTrack>>& tracks() const override {
      return inner_->tracks();
    }
    [[nodiscard]] CMTime duration() const override { return inner_->duration(); }
    Result<std::unique_ptr<media::SampleCursor>> openCursor(int trackID) override;

    [[nodiscard]] int waiting() {
      const std::lock_guard lock(mutex_);
      return static_cast<int>(waiting_.size());
    }
    [[nodiscard]] std::vector<std::function<void()>> takeWaiting() {
      const std::lock_guard lock(mutex_);
      return std::exchange(waiting_, {});
    }
    void wait(std::function<void()> ready) {
      const std::lock_guard lock(mutex_);
      waiting_.push_back(std::move(ready));
    }

    std::atomic<bool> isOpen{true}, isLate{false};
    std::atomic<int> cursors{0}, most{0};

   private:
    const std::shared_ptr<media::SampleSource> inner_;
    std::mutex mutex_;
    std::vector<std::function<void()>> waiting_;
  };

  class Cursor final : public media::SampleCursor {
   public:
    Cursor(std::shared_ptr<Source> source, std::unique_ptr<media::SampleCursor> inner)
        : source_(std::move(source)), inner_(std::move(inner)) {
      const int now = ++source_->cursors;
      int most = source_->most;
      while (most < now && !source_->most.compare_exchange_weak(most, now)) {
      }
    }
    ~Cursor() override { --source_->cursors; }
    [[nodiscard]] Outcome next(media::Sample& sample) override {
      if (source_->isLate.exchange(false)) {
        ready_();
        return Outcome::Again;
      }
      if (source_->isOpen) return inner_->next(sample);
      source_->wait(ready_);
      return Outcome::Again;
    }
    [[nodiscard]] bool seek(CMTime time) override { return inner_->seek(time); }
    [[nodiscard]] NSErrorPtr error() const override { return inner_->error(); }
    [[nodiscard]] const AVCodecParameters& codecParameters() const override {
      return inner_->codecParameters();
    }
    void setReadyHandler(std::function<void()> handler) override {
      ready_ = handler;
      inner_->setReadyHandler(std::move(handler));
    }

   private:
    const std::shared_ptr<Source> source_;
    const std::unique_ptr<media::SampleCursor> inner_;
    std::function<void()> ready_;
  };

  const std::shared_ptr<AVAsset> inner_;
  const std::shared_ptr<Source> source_;
};

Result<std::unique_ptr<media::SampleCursor>> GatedAsset::Source::openCursor(int trackID) {
  auto cursor = inner_->openCursor(trackID);
  if (!cursor) return cursor;
  return std::make_unique<Cursor>(shared_from_this(), *std::move(cursor));
}

class ImageLineTest : public testing::Test {
 protected:
  static constexpr int kMany = 40;

  [[nodiscard]] std::shared_ptr<AVAsset> loadedAsset() {
    auto asset = AVAsset::assetWithURL(NSURL::fileURLWithPath(test::clip("h264_30.mp4")));
    asset->loadValuesAsynchronouslyForKeys({"tracks", "duration"}, [] {});
    time_.settle();
    return asset;
  }
  void make(const std::shared_ptr<AVAsset>& asset, int frame) {
    ImageLine::shared().make(
        std::make_unique<ImageRequest>(asset, CMTimeMake(2 * frame + 1, 60), ImageStyle{}),
        [this, frame](const ImageRequest& made) {
          const std::lock_guard lock(mutex_);
          made_.push_back(frame);
          EXPECT_EQ(made.image() ? test::frameNumber(made.image()) : std::nullopt, frame);
        });
  }
  [[nodiscard]] std::vector<int> made() {
    const std::lock_guard lock(mutex_);
    return made_;
  }

  ManualTime time_;
  std::mutex mutex_;
  std::vector<int> made_;
};

TEST_F(ImageLineTest, HoweverManyAreAskedForHardlyMoreThanThereAreCoresAreBegun) {
  const auto asset = std::make_shared<GatedAsset>(loadedAsset());
  for (int i = 0; i < kMany; ++i) make(asset, i);
  time_.settle();
  EXPECT_EQ(made().size(), static_cast<size_t>(kMany));
  EXPECT_LE(asset->mostCursors(), static_cast<int>(std::thread::hardware_concurrency()));
}

TEST_F(ImageLineTest, ThoseThatWaitLeaveTheirPlaceAndGoOnWhenTheirBytesAreHere) {
  const auto stalled = std::make_shared<GatedAsset>(loadedAsset());
  stalled->close();
  for (int i = 0; i < kMany; ++i) make(stalled, i);
  time_.settle();
  EXPECT_EQ(stalled->waiting(), kMany);
  make(loadedAsset(), 50);
  time_.settle();
  EXPECT_EQ(made(), std::vector{50});
  stalled->open();
  time_.settle();
  EXPECT_EQ(made().size(), static_cast<size_t>(kMany + 1));
}

TEST_F(ImageLineTest, OfMoreThanMayWaitTheRestBeginsAsTheFirstEnd) {
  const auto stalled = std::make_shared<GatedAsset>(loadedAsset());
  stalled->close();
  constexpr int kMost = ImageLine::kMostUnderWay;
  {
    const BusyPool busy;  // those that find no place stand in line
    for (int i = 0; i < kMost + 10; ++i) make(stalled, i % 50);
  }
  time_.settle();
  EXPECT_EQ(stalled->waiting(), kMost);
  stalled->open();
  time_.settle();
  EXPECT_EQ(made().size(), static_cast<size_t>(kMost + 10));
}

TEST_F(ImageLineTest, WhereAsManyWaitAsMayAFreePlaceIsForNoFurtherOne) {
  const auto stalled = std::make_shared<GatedAsset>(loadedAsset());
  stalled->close();
  constexpr int kMost = ImageLine::kMostUnderWay;
  for (int i = 0; i < kMost; ++i) make(stalled, i % 50);
  time_.settle();
  EXPECT_EQ(stalled->waiting(), kMost);
  for (int i = 0; i < 10; ++i) make(stalled, i);
  time_.settle();
  EXPECT_EQ(stalled->waiting(), kMost);
  stalled->open();
  time_.settle();
  EXPECT_EQ(made().size(), static_cast<size_t>(kMost + 10));
}

TEST_F(ImageLineTest, BytesThatComeWhileItLooksForThemAreNotMissed) {
  const auto asset = std::make_shared<GatedAsset>(loadedAsset());
  asset->bringLate();
  make(asset, 7);
  time_.settle();
  EXPECT_EQ(made(), std::vector{7});
}

}  // namespace
}  // namespace zaffo
