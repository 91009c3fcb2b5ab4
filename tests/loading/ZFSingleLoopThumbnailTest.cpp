// SPDX-License-Identifier: Apache-2.0
#include "loading/LoaderTest.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ZFSingleLoopThumbnailTest : public LoaderTest {
 protected:
  static CGImagePtr image(int width, int height) {
    return std::make_shared<CGImage>(
        width, height, 4u * static_cast<unsigned>(width),
        std::vector<uint8_t>(4u * static_cast<unsigned>(width * height)));
  }
};

TEST_F(ZFSingleLoopThumbnailTest, IsTheFirstFrameWithinTheTargetSizeOnTheMediaQueue) {
  generator->image = image(90, 160);
  loadThumbnail();
  EXPECT_THAT(thumbnailURLs, ElementsAre(url));
  EXPECT_THAT(picturedAssets, ElementsAre(asset));
  EXPECT_THAT(generator->maximumSizes, ElementsAre(CGSize{90, 160}));
  EXPECT_THAT(generator->appliedTransforms, IsEmpty()) << "left off, as it is at first";
  EXPECT_THAT(generator->copiedTimes, ElementsAre(kCMTimeZero));
  EXPECT_FALSE(generator->wasAskedForActualTime);
  ASSERT_EQ(thumbnails.size(), 1u);
  ASSERT_TRUE(thumbnails[0].image);
  EXPECT_EQ(thumbnails[0].image->cgImage(), generator->image);
  EXPECT_EQ(thumbnails[0].error, nullptr);
  EXPECT_TRUE(thumbnails[0].onMediaQueue);
}

TEST_F(ZFSingleLoopThumbnailTest, IsMadeOnTheBackgroundQueueWhateverThePriority) {
  std::vector<bool> inBackground;
  generator->onCopy = [&] {
    inBackground.push_back(
        dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_BACKGROUND)->isCurrent());
  };
  loadThumbnail(0);
  loadThumbnail(2);
  EXPECT_THAT(inBackground, ElementsAre(true, true));
  EXPECT_EQ(static_cast<long>(DISPATCH_QUEUE_PRIORITY_BACKGROUND), -32768);
}

TEST_F(ZFSingleLoopThumbnailTest, AnErrorOfThePlatformIsPassedOn) {
  generator->errorValue = NSError::create("platform", 9);
  generator->image = image(9, 16);
  loadThumbnail();
  ASSERT_EQ(thumbnails.size(), 1u);
  EXPECT_EQ(thumbnails[0].image, nullptr);
  EXPECT_EQ(thumbnails[0].error, generator->errorValue);
  EXPECT_TRUE(thumbnails[0].onMediaQueue);
}

TEST_F(ZFSingleLoopThumbnailTest, NoImageOrOneOfZeroHeightIsAnErrorOfItsOwn) {
  for (const auto& picture : {CGImagePtr(), image(16, 0)}) {
    generator->image = picture;
    thumbnails.clear();
    loadThumbnail();
    ASSERT_EQ(thumbnails.size(), 1u);
    EXPECT_EQ(thumbnails[0].image, nullptr);
    ASSERT_TRUE(thumbnails[0].error);
    EXPECT_EQ(thumbnails[0].error->domain(), "com.zaffoapp.media");
    EXPECT_EQ(thumbnails[0].error->code(), 4567);
    EXPECT_TRUE(thumbnails[0].error->userInfo().empty());
    EXPECT_TRUE(thumbnails[0].onMediaQueue);
  }
}

TEST_F(ZFSingleLoopThumbnailTest, ARequestThatHasEndedHoldsNothing) {
  loadThumbnail();
  loader.reset();
  EXPECT_EQ(generator.use_count(), 1);
}

}  // namespace
}  // namespace zaffo
