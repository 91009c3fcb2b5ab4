// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/AVAssetImageGenerator.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <future>
#include <limits>
#include <utility>

#include "media/Clips.h"
#include "media/FrameNumber.h"
#include "platform/dispatch/DispatchQueue.h"

namespace zaffo {
namespace {

using test::clip;
using test::frameNumber;

std::shared_ptr<AVAssetImageGenerator> generatorOf(const std::string& path) {
  return AVAssetImageGenerator::assetImageGeneratorWithAsset(
      AVAsset::assetWithURL(NSURL::fileURLWithPath(path)));
}

CGImagePtr imageAt(AVAssetImageGenerator& generator, CMTime time, CMTime* actual = nullptr) {
  NSErrorPtr error;
  CGImagePtr image = generator.copyCGImageAtTime(time, actual, &error);
  EXPECT_TRUE(image) << (error ? error->localizedDescription() : "");
  EXPECT_FALSE(error);
  return image;
}

NSErrorPtr errorAt(AVAssetImageGenerator& generator, CMTime time) {
  NSErrorPtr error;
  EXPECT_FALSE(generator.copyCGImageAtTime(time, nullptr, &error));
  return error;
}

CGSize sizeOf(const CGImagePtr& image) {
  return {static_cast<double>(image->width()), static_cast<double>(image->height())};
}

std::array<int, 4> pixelOf(const CGImage& image, int x, int y) {
  const uint8_t* p = image.pixels() + static_cast<std::size_t>(y) * image.stride() + 4 * x;
  return {p[2], p[1], p[0], p[3]};
}

TEST(AVAssetImageGenerator, LoadsTheAssetAndPicturesItsFirstFrameAtItsOwnSize) {
  const auto generator = generatorOf(clip("h264_30.mp4"));
  CMTime actual;
  const auto image = imageAt(*generator, kCMTimeZero, &actual);
  EXPECT_EQ(sizeOf(image), (CGSize{192, 108}));
  EXPECT_EQ(frameNumber(image), 0);
  EXPECT_EQ(actual, kCMTimeZero);
}

TEST(AVAssetImageGenerator, PicturesTheFrameThatIsShownAtATimeExactly) {
  for (const char* name : {"h264_30.mp4", "open_gop.mp4", "hevc.mp4", "vp9_opus.webm"}) {
    const auto generator = generatorOf(clip(name));
    const CMTime halfFrame = CMTimeMake(1, 60);
    for (const int number : {0, 1, 14, 15, 16, 29, 30, 31, 44, 57, 59}) {
      const CMTime middle = CMTimeMake(number, 30) + halfFrame;
      EXPECT_EQ(frameNumber(imageAt(*generator, middle)), number) << name;
    }
  }
}

TEST(AVAssetImageGenerator, PicturesTheRightFrameOfAFileThatTellsNoDecodeTimes) {
  const auto generator = generatorOf(clip("h264.mkv"));
  const CMTime start = CMTimeMake(23, 1000);  // of frame 0: the sound comes first
  for (int number = 0; number < 60; number += 7) {
    const CMTime time = CMTimeMake(number, 30) + start + CMTimeMake(1, 60);
    EXPECT_EQ(frameNumber(imageAt(*generator, time)), number);
  }
}

TEST(AVAssetImageGenerator, ATimeOnTheEdgeOfAFrameShowsThatFrameAndJustBeforeItTheOneBefore) {
  const auto generator = generatorOf(clip("vfr.mp4"));
  CMTime actual;
  // Frame 5 is shown from 16800 to 18000 of 90000.
  EXPECT_EQ(frameNumber(imageAt(*generator, CMTimeMake(16800, 90000), &actual)), 5);
  EXPECT_EQ(actual, CMTimeMake(16800, 90000));
  EXPECT_EQ(frameNumber(imageAt(*generator, CMTimeMake(17999, 90000))), 5);
  EXPECT_EQ(frameNumber(imageAt(*generator, CMTimeMake(16799, 90000))), 4);
}

TEST(AVAssetImageGenerator, ATimeBeforeTheFirstFrameShowsTheFirstFrame) {
  EXPECT_EQ(frameNumber(imageAt(*generatorOf(clip("h264_30.mp4")), CMTimeMake(-1, 1))), 0);
  CMTime actual;
  EXPECT_EQ(frameNumber(imageAt(*generatorOf(clip("late_video.mp4")), kCMTimeZero, &actual)), 0);
  EXPECT_EQ(actual, CMTimeMake(1, 2));
  EXPECT_EQ(frameNumber(imageAt(*generatorOf(clip("edit_list.mp4")), kCMTimeZero)), 40);
}

TEST(AVAssetImageGenerator, TheLastFrameStaysUntilTheEndOfTheAsset) {
  const auto generator = generatorOf(clip("long_audio.mp4"));
  EXPECT_EQ(frameNumber(imageAt(*generator, CMTimeMake(19, 10))), 29);
}

TEST(AVAssetImageGenerator, TimesThatTheAssetHasNotAreAnError) {
  const auto generator = generatorOf(clip("h264_30.mp4"));
  for (const CMTime time : {CMTimeMake(4, 1), CMTimeMake(5000, 1), kCMTimeInvalid,
                            kCMTimeIndefinite, kCMTimePositiveInfinity}) {
    const auto error = errorAt(*generator, time);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), AVFoundationErrorDomain);
    EXPECT_EQ(error->code(), AVErrorNoImageAtTime);
  }
}

TEST(AVAssetImageGenerator, TheMaximumSizeKeepsTheShapeAndNeverEnlarges) {
  const auto sizeWithin = [](CGSize maximum) {
    const auto generator = generatorOf(clip("h264_30.mp4"));
    generator->setMaximumSize(maximum);
    return sizeOf(imageAt(*generator, kCMTimeZero));
  };
  EXPECT_EQ(sizeWithin({96, 96}), (CGSize{96, 54}));
  EXPECT_EQ(sizeWithin({1000, 54}), (CGSize{96, 54}));
  EXPECT_EQ(sizeWithin({96, 0}), (CGSize{96, 54}));
  EXPECT_EQ(sizeWithin({0, 27}), (CGSize{48, 27}));
  EXPECT_EQ(sizeWithin({0, 0}), (CGSize{192, 108}));
  EXPECT_EQ(sizeWithin({4000, 4000}), (CGSize{192, 108}));
  EXPECT_EQ(sizeWithin({0.4, 0.4}), (CGSize{1, 1}));
  EXPECT_EQ(sizeWithin({-5, std::numeric_limits<double>::quiet_NaN()}), (CGSize{192, 108}));
  EXPECT_EQ(sizeWithin({std::numeric_limits<double>::infinity(), 54}), (CGSize{96, 54}));
}

TEST(AVAssetImageGenerator, TheTransformIsAppliedOnRequestOnly) {
  const auto generator = generatorOf(clip("rotated_90.mp4"));
  const auto coded = imageAt(*generator, kCMTimeZero);
  EXPECT_EQ(sizeOf(coded), (CGSize{144, 256}));
  EXPECT_EQ(frameNumber(coded), 0);
  generator->setAppliesPreferredTrackTransform(true);
  const auto upright = imageAt(*generator, kCMTimeZero);
  EXPECT_EQ(sizeOf(upright), (CGSize{256, 144}));
  generator->setMaximumSize({64, 64});
  EXPECT_EQ(sizeOf(imageAt(*generator, kCMTimeZero)), (CGSize{64, 36}));
}

// The white block of the number stands at the top left of the coded picture.
TEST(AVAssetImageGenerator, ATurnedPictureHasItsCornersWhereTheTransformSays) {
  struct Corner {
    const char* name;
    int x, y;
  };
  for (const Corner corner :
       {Corner{"rotated_90.mp4", 256 - 8, 6}, Corner{"rotated_180.mp4", 144 - 6, 256 - 8},
        Corner{"rotated_270.mp4", 8, 144 - 6}}) {
    const auto generator = generatorOf(clip(corner.name));
    generator->setAppliesPreferredTrackTransform(true);
    const auto image = imageAt(*generator, kCMTimeZero);
    EXPECT_GT(pixelOf(*image, corner.x, corner.y)[1], 220) << corner.name;
  }
}

TEST(AVAssetImageGenerator, ColoursComeOutRightWhateverTheMatrixAndTheRange) {
  for (const char* name :
       {"color_bt601.mp4", "color_bt709.mp4", "color_bt601_full.mp4", "color_bt709_full.mp4"}) {
    const auto image = imageAt(*generatorOf(clip(name)), kCMTimeZero);
    const auto pixel = pixelOf(*image, 96, 80);
    EXPECT_NEAR(pixel[0], 0xC8, 6) << name;
    EXPECT_NEAR(pixel[1], 0x3C, 6) << name;
    EXPECT_NEAR(pixel[2], 0x1E, 6) << name;
    EXPECT_EQ(pixel[3], 255) << name;
  }
}

TEST(AVAssetImageGenerator, WidePixelsAreMadeSquare) {
  EXPECT_EQ(sizeOf(imageAt(*generatorOf(clip("anamorphic.mp4")), kCMTimeZero)), (CGSize{256, 108}));
}

TEST(AVAssetImageGenerator, PicturesOfUnusualSizesAndDepthsAreMade) {
  EXPECT_EQ(sizeOf(imageAt(*generatorOf(clip("tiny.mp4")), kCMTimeZero)), (CGSize{16, 16}));
  const auto huge = generatorOf(clip("huge.mp4"));
  huge->setMaximumSize({480, 480});
  EXPECT_EQ(sizeOf(imageAt(*huge, kCMTimeZero)), (CGSize{480, 253}));
  for (const char* name :
       {"hevc_10bit.mp4", "hevc_12bit.mp4", "h264_444.mp4", "h264_rgb.mp4", "vp9_10bit.webm"}) {
    EXPECT_EQ(frameNumber(imageAt(*generatorOf(clip(name)), CMTimeMake(7, 30) + CMTimeMake(1, 60))),
              7)
        << name;
  }
}

TEST(AVAssetImageGenerator, AnAssetWithSoundOnlyHasNoImage) {
  const auto error = errorAt(*generatorOf(clip("audio_only.m4a")), kCMTimeZero);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), AVErrorNoImageAtTime);
}

TEST(AVAssetImageGenerator, BadFilesGiveTheErrorOfTheirLoadingOrDecoding) {
  const auto codeOf = [](const char* name) {
    const auto error = errorAt(*generatorOf(clip(name)), kCMTimeZero);
    return error ? error->code() : 0;
  };
  EXPECT_EQ(codeOf("no such file.mp4"), AVErrorUnknown);
  EXPECT_EQ(codeOf("empty.mp4"), AVErrorFileFormatNotRecognized);
  EXPECT_EQ(codeOf("text.mp4"), AVErrorFileFormatNotRecognized);
  EXPECT_EQ(codeOf("playlist_concat.mp4"), AVErrorFileFormatNotRecognized);
  EXPECT_EQ(codeOf("cut_moov_last_5.mp4"), AVErrorFileFailedToParse);
  EXPECT_EQ(codeOf("unknown_codec.mp4"), AVErrorDecoderNotFound);
  EXPECT_EQ(codeOf("absurd_size.mp4"), AVErrorDecoderNotFound);
  EXPECT_EQ(codeOf("no_key_frame.mp4"), AVErrorDecodeFailed);
  EXPECT_EQ(codeOf("protected.mp4"), AVErrorContentIsProtected);
  EXPECT_EQ(codeOf("protected.webm"), AVErrorContentIsProtected) << "its header alone tells";
}

TEST(AVAssetImageGenerator, TheActualTimeAndTheErrorMayBeLeftOut) {
  const auto generator = generatorOf(clip("h264_30.mp4"));
  EXPECT_TRUE(generator->copyCGImageAtTime(kCMTimeZero, nullptr, nullptr));
  EXPECT_FALSE(generator->copyCGImageAtTime(kCMTimeInvalid, nullptr, nullptr));
}

TEST(AVAssetImageGenerator, AnImageThatIsMadeLaterIsTheSame) {
  struct Made {
    CGImagePtr image;
    CMTime actual;
    NSErrorPtr error;
  };
  const auto makeLater = [](const std::string& path, CMTime time) {
    std::promise<Made> made;
    auto generator = generatorOf(path);
    generator->setAppliesPreferredTrackTransform(true);
    generator->setMaximumSize({64, 64});
    generator->generateCGImageAsynchronouslyForTime(
        time, [&made](CGImagePtr image, CMTime actual, NSErrorPtr error) {
          made.set_value({std::move(image), actual, std::move(error)});
        });
    generator.reset();  // it is made nevertheless
    return made.get_future().get();
  };
  const Made turned = makeLater(clip("rotated_90.mp4"), kCMTimeZero);
  ASSERT_TRUE(turned.image);
  EXPECT_EQ(sizeOf(turned.image), (CGSize{64, 36}));
  const Made later = makeLater(clip("h264_30.mp4"), CMTimeMake(101, 60));
  ASSERT_TRUE(later.image);
  EXPECT_EQ(sizeOf(later.image), (CGSize{64, 36}));
  EXPECT_EQ(later.actual, CMTimeMake(50, 30));
  EXPECT_FALSE(later.error);
  const Made none = makeLater(clip("text.mp4"), kCMTimeZero);
  EXPECT_FALSE(none.image);
  EXPECT_FALSE(CMTIME_IS_VALID(none.actual));
  ASSERT_TRUE(none.error);
  EXPECT_EQ(none.error->code(), AVErrorFileFormatNotRecognized);
  generatorOf(clip("h264_30.mp4"))->generateCGImageAsynchronouslyForTime(kCMTimeZero, nullptr);
  dispatch_wait_until_idle();
}

}  // namespace
}  // namespace zaffo
