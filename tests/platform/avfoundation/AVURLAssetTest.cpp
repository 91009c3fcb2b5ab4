// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "media/Clips.h"
#include "platform/avfoundation/AVAsset.h"
#include "platform/avfoundation/engine/AssetLoading.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo {
namespace {

using test::clip;

std::shared_ptr<AVURLAsset> assetOf(const std::string& path) {
  return AVURLAsset::URLAssetWithURL(NSURL::fileURLWithPath(path));
}

void loadAndWait(AVAsset& asset, std::vector<std::string> keys) {
  std::promise<void> ended;
  asset.loadValuesAsynchronouslyForKeys(std::move(keys), [&] { ended.set_value(); });
  ended.get_future().wait();
}

TEST(AVURLAsset, HasNoValuesBeforeTheyAreLoaded) {
  const auto asset = assetOf(clip("h264_30.mp4"));
  EXPECT_EQ(asset->statusOfValueForKey("tracks"), AVKeyValueStatus::Unknown);
  EXPECT_EQ(asset->statusOfValueForKey("duration"), AVKeyValueStatus::Unknown);
  EXPECT_TRUE(asset->tracks().empty());
  EXPECT_TRUE(CMTIME_IS_INVALID(asset->duration()));
  EXPECT_FALSE(asset->isPlayable());
  EXPECT_FALSE(asset->sampleSource());
}

TEST(AVURLAsset, LoadsTheKeysThatWereAskedForAndNoOthers) {
  const auto asset = assetOf(clip("h264_30.mp4"));
  loadAndWait(*asset, {"tracks", "duration"});
  NSErrorPtr error;
  EXPECT_EQ(asset->statusOfValueForKey("tracks", &error), AVKeyValueStatus::Loaded);
  EXPECT_EQ(asset->statusOfValueForKey("duration", &error), AVKeyValueStatus::Loaded);
  EXPECT_FALSE(error);
  EXPECT_EQ(asset->statusOfValueForKey("playable"), AVKeyValueStatus::Unknown);
  EXPECT_FALSE(asset->isPlayable());
  EXPECT_EQ(asset->tracks().size(), 2u);
  EXPECT_EQ(asset->tracksWithMediaType(AVMediaTypeVideo).size(), 1u);
  EXPECT_EQ(asset->tracksWithMediaType(AVMediaTypeAudio).size(), 1u);
  EXPECT_EQ(asset->duration(), CMTimeMake(4, 1));
  EXPECT_TRUE(asset->sampleSource());
  loadAndWait(*asset, {"playable"});
  EXPECT_TRUE(asset->isPlayable());
}

TEST(AVURLAsset, TheHandlerRunsOnceOutsideTheCallAlsoWhenAllIsLoaded) {
  const auto asset = assetOf(clip("h264_30.mp4"));
  loadAndWait(*asset, {"tracks"});
  const std::thread::id caller = std::this_thread::get_id();
  std::promise<std::thread::id> handlerThread;
  asset->loadValuesAsynchronouslyForKeys(
      {"tracks"}, [&] { handlerThread.set_value(std::this_thread::get_id()); });
  EXPECT_NE(handlerThread.get_future().get(), caller);
}

TEST(AVURLAsset, TheHandlerRunsEvenIfTheAssetIsLetGo) {
  std::promise<void> ended;
  assetOf(clip("h264_30.mp4"))->loadValuesAsynchronouslyForKeys({"tracks"}, [&] {
    ended.set_value();
  });
  ended.get_future().wait();
}

TEST(AVURLAsset, LoadingWithoutAHandlerOrWithoutKeysIsAccepted) {
  const auto asset = assetOf(clip("h264_30.mp4"));
  asset->loadValuesAsynchronouslyForKeys({"tracks"}, nullptr);
  loadAndWait(*asset, {});
  loadAndWait(*asset, {"tracks"});
  EXPECT_EQ(asset->tracks().size(), 2u);
}

TEST(AVURLAsset, AnUnknownKeyFailsAloneWithAnErrorThatNamesIt) {
  const auto asset = assetOf(clip("h264_30.mp4"));
  loadAndWait(*asset, {"tracks", "lyrics of the song"});
  EXPECT_EQ(asset->statusOfValueForKey("tracks"), AVKeyValueStatus::Loaded);
  NSErrorPtr error;
  EXPECT_EQ(asset->statusOfValueForKey("lyrics of the song", &error), AVKeyValueStatus::Failed);
  ASSERT_TRUE(error);
  EXPECT_NE(error->localizedDescription().find("lyrics of the song"), std::string::npos);
}

TEST(AVURLAsset, AFileThatCannotBePlayedFailsEveryKeyWithItsError) {
  const auto asset = assetOf(clip("text.mp4"));
  EXPECT_TRUE(asset->isReadable());
  loadAndWait(*asset, {"tracks", "duration", "playable"});
  for (const char* key : {"tracks", "duration", "playable"}) {
    NSErrorPtr error;
    EXPECT_EQ(asset->statusOfValueForKey(key, &error), AVKeyValueStatus::Failed);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), AVFoundationErrorDomain);
    EXPECT_EQ(error->code(), AVErrorFileFormatNotRecognized);
  }
  EXPECT_FALSE(asset->isReadable());
  EXPECT_FALSE(asset->isPlayable());
  EXPECT_TRUE(asset->tracks().empty());
  loadAndWait(*asset, {"tracks"});
  EXPECT_EQ(asset->statusOfValueForKey("tracks"), AVKeyValueStatus::Failed);
}

TEST(AVURLAsset, LocalMediaAreReadableAndRemoteOnesAreNot) {
  EXPECT_TRUE(assetOf(clip("h264_30.mp4"))->isReadable());
  for (const char* address : {"http://127.0.0.1/a.mp4", "https://127.0.0.1/a.mp4"}) {
    EXPECT_FALSE(AVURLAsset::URLAssetWithURL(NSURL::URLWithString(address))->isReadable());
  }
}

TEST(AVURLAsset, NoURLAtAllFailsToo) {
  const auto asset = AVURLAsset::URLAssetWithURL(nullptr);
  EXPECT_FALSE(asset->isReadable());
  loadAndWait(*asset, {"tracks"});
  NSErrorPtr error;
  EXPECT_EQ(asset->statusOfValueForKey("tracks", &error), AVKeyValueStatus::Failed);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), AVErrorUnsupportedURL);
}

TEST(AVURLAsset, ASecondLoadSharesTheSource) {
  const auto asset = assetOf(clip("h264_30.mp4"));
  loadAndWait(*asset, {"tracks"});
  const auto source = asset->sampleSource();
  loadAndWait(*asset, {"tracks", "duration", "playable", "readable"});
  EXPECT_EQ(asset->sampleSource(), source);
}

/// Opens as a function says, in the call.
AssetLoading::Open byCalling(std::function<AssetLoading::Opened()> open) {
  return [open = std::move(open)](const DispatchQueuePtr&, const auto& done) {
    done(open());
    return nullptr;
  };
}

/// An opening of media that waits until a test lets it go on.
class SlowOpening {
 public:
  Result<std::shared_ptr<media::SampleSource>> open() {
    ++started_;
    begun_.set_value();
    released_.get_future().wait();
    return makeError(AVErrorUnknown, "slow");
  }
  void waitUntilBegun() { begun_.get_future().wait(); }
  void release() { released_.set_value(); }
  [[nodiscard]] int started() const { return started_; }

 private:
  std::promise<void> begun_, released_;
  std::atomic<int> started_ = 0;
};

TEST(AssetLoading, CancellingEndsKeysUnderWayAndRunsTheirHandlers) {
  const auto opening = std::make_shared<SlowOpening>();
  const auto loading =
      std::make_shared<AssetLoading>(byCalling([opening] { return opening->open(); }));
  std::promise<AVKeyValueStatus> ended;
  loading->load({"tracks"}, [&] { ended.set_value(loading->status("tracks", nullptr)); });
  opening->waitUntilBegun();
  EXPECT_EQ(loading->status("tracks", nullptr), AVKeyValueStatus::Loading);
  loading->cancel();
  EXPECT_EQ(loading->status("tracks", nullptr), AVKeyValueStatus::Cancelled);
  opening->release();
  EXPECT_EQ(ended.get_future().get(), AVKeyValueStatus::Cancelled);
  EXPECT_FALSE(loading->error());
}

TEST(AssetLoading, CancellingWithNothingUnderWayChangesNothing) {
  const auto loading =
      std::make_shared<AssetLoading>(byCalling([] { return makeError(AVErrorUnknown, "no"); }));
  loading->cancel();
  EXPECT_EQ(loading->status("tracks", nullptr), AVKeyValueStatus::Unknown);
  std::promise<void> ended;
  loading->load({"tracks"}, [&] { ended.set_value(); });
  ended.get_future().wait();
  loading->cancel();
  EXPECT_EQ(loading->status("tracks", nullptr), AVKeyValueStatus::Failed);
}

TEST(AssetLoading, CancelledKeysCanBeLoadedAgain) {
  std::atomic<int> passes = 0;
  const auto opening = std::make_shared<SlowOpening>();
  const auto loading = std::make_shared<AssetLoading>(byCalling([&passes, opening] {
    return ++passes == 1 ? opening->open() : makeError(AVErrorUnknown, "second");
  }));
  loading->load({"tracks"}, nullptr);
  opening->waitUntilBegun();
  loading->cancel();
  std::promise<void> ended;
  loading->load({"tracks"}, [&] { ended.set_value(); });
  EXPECT_EQ(loading->status("tracks", nullptr), AVKeyValueStatus::Loading);
  opening->release();
  ended.get_future().wait();
  EXPECT_EQ(loading->error()->localizedDescription(), "second");
}

TEST(AssetLoading, SeveralLoadsShareOnePass) {
  const auto opening = std::make_shared<SlowOpening>();
  const auto loading =
      std::make_shared<AssetLoading>(byCalling([opening] { return opening->open(); }));
  std::promise<void> first, second;
  loading->load({"tracks"}, [&] { first.set_value(); });
  opening->waitUntilBegun();
  loading->load({"tracks", "duration"}, [&] { second.set_value(); });
  opening->release();
  first.get_future().wait();
  second.get_future().wait();
  EXPECT_EQ(opening->started(), 1);
}

}  // namespace
}  // namespace zaffo
