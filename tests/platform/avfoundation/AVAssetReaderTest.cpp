// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <thread>

#include "platform/avfoundation/AssetReaderFixture.h"
#include "platform/media/source/SampleSource.h"

namespace zaffo {
namespace {

class AVAssetReaderTest : public AssetReaderFixture {};

TEST_F(AVAssetReaderTest, GivesEverySampleOfTheTrackInDecodeOrderAndCompletes) {
  const Run run = startRun(loadedClip("h264_30.mp4"));
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Reading);
  const Buffers buffers = readAll(run);
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Completed);
  EXPECT_EQ(run.reader->error(), nullptr);
  ASSERT_EQ(buffers.size(), 120u);
  bool reordered = false;
  for (std::size_t i = 1; i < buffers.size(); ++i) {
    EXPECT_LT(buffers[i - 1]->decodeTimeStamp(), buffers[i]->decodeTimeStamp());
    reordered |= buffers[i]->presentationTimeStamp() < buffers[i - 1]->presentationTimeStamp();
  }
  EXPECT_TRUE(reordered) << "the clip has B frames";
  const std::vector<CMTime> times = shownTimes(buffers);
  ASSERT_EQ(times.size(), 120u);
  for (int i = 0; i < 120; ++i) {
    EXPECT_EQ(times[static_cast<std::size_t>(i)], CMTimeMake(i, 30));
  }
}

TEST_F(AVAssetReaderTest, ABufferTellsItsFormatTimesAndWhetherDecodingCanStartThere) {
  const Buffers buffers = readAll(startRun(loadedClip("h264_30.mp4")));
  ASSERT_EQ(buffers.size(), 120u);
  for (std::size_t i = 0; i < buffers.size(); ++i) {
    const CMSampleBuffer& buffer = *buffers[i];
    ASSERT_NE(buffer.formatDescription(), nullptr);
    EXPECT_EQ(buffer.formatDescription(), buffers[0]->formatDescription());
    EXPECT_EQ(buffer.outputPresentationTimeStamp(), buffer.presentationTimeStamp());
    EXPECT_EQ(buffer.duration(), CMTimeMake(1, 30));
    EXPECT_EQ(buffer.attachments().notSync, i % 30 != 0);
    EXPECT_FALSE(buffer.attachments().displayImmediately);
    EXPECT_FALSE(buffer.resetsDecoderBeforeDecoding());
    EXPECT_FALSE(buffer.dataBuffer()->bytes().empty());
  }
  EXPECT_EQ(buffers[0]->formatDescription()->codec(), "h264");
  EXPECT_EQ(buffers[0]->formatDescription()->width(), 192);
  EXPECT_EQ(buffers[0]->formatDescription()->height(), 108);
}

TEST_F(AVAssetReaderTest, ReadsSoundAsWell) {
  const Run run = makeRun(loadedClip("h264_30.mp4"), AVMediaTypeAudio);
  ASSERT_TRUE(run.reader->startReading());
  const Buffers buffers = readAll(run);
  EXPECT_GT(buffers.size(), 150u);
  EXPECT_EQ(buffers[0]->formatDescription()->codec(), "aac");
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Completed);
}

TEST_F(AVAssetReaderTest, IsCompletedWhenTheLastOfItsOutputsHasEnded) {
  const auto asset = loadedClip("h264_30.mp4");
  const Run run = makeRun(asset);
  const auto sound =
      AVAssetReaderTrackOutput::create(asset->tracksWithMediaType(AVMediaTypeAudio).front());
  ASSERT_TRUE(run.reader->canAddOutput(sound));
  run.reader->addOutput(sound);
  ASSERT_TRUE(run.reader->startReading());
  EXPECT_EQ(readAll(run).size(), 120u);
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Reading);
  EXPECT_GT(readAll({run.reader, sound}).size(), 150u);
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Completed);
}

TEST_F(AVAssetReaderTest, IsUnknownUntilItIsStartedAndStartsOnce) {
  const Run run = makeRun(loadedClip("h264_30.mp4"));
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Unknown);
  EXPECT_EQ(run.output->copyNextSampleBuffer(), nullptr);
  EXPECT_TRUE(run.reader->startReading());
  EXPECT_NE(run.output->copyNextSampleBuffer(), nullptr);
  EXPECT_FALSE(run.reader->startReading());
  EXPECT_EQ(readAll(run).size(), 119u);
  EXPECT_FALSE(run.reader->startReading());
  EXPECT_EQ(run.output->copyNextSampleBuffer(), nullptr);
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Completed);
}

TEST_F(AVAssetReaderTest, StaysReadingWithoutOutputs) {
  NSErrorPtr error;
  const auto reader = AVAssetReader::create(loadedClip("audio_only.m4a"), &error);
  ASSERT_TRUE(reader);
  EXPECT_TRUE(reader->startReading());
  EXPECT_EQ(reader->status(), AVAssetReaderStatus::Reading);
  reader->cancelReading();
  EXPECT_EQ(reader->status(), AVAssetReaderStatus::Cancelled);
}

TEST_F(AVAssetReaderTest, TakesOneOutputForEachOfItsOwnTracksUntilItIsStarted) {
  const auto asset = loadedClip("h264_30.mp4");
  const auto other = loadedClip("h264_25.mp4");
  const auto picture = asset->tracksWithMediaType(AVMediaTypeVideo).front();
  const auto outputOf = [](const auto& track) { return AVAssetReaderTrackOutput::create(track); };
  const Run run = makeRun(asset);
  EXPECT_FALSE(run.reader->canAddOutput(nullptr));
  EXPECT_FALSE(run.reader->canAddOutput(outputOf(nullptr)));
  EXPECT_FALSE(run.reader->canAddOutput(run.output)) << "it was added";
  EXPECT_FALSE(run.reader->canAddOutput(outputOf(picture))) << "the track has an output";
  EXPECT_FALSE(run.reader->canAddOutput(outputOf(other->tracks().front())));
  const auto fresh = AVAssetReader::create(asset, nullptr);
  EXPECT_FALSE(fresh->canAddOutput(run.output)) << "it is another reader's";
  EXPECT_TRUE(fresh->canAddOutput(outputOf(picture)));
  ASSERT_TRUE(fresh->startReading());
  EXPECT_FALSE(fresh->canAddOutput(outputOf(picture))) << "it was started";
}

TEST_F(AVAssetReaderTest, AnOutputThatCannotBeAddedIsLeftAlone) {
  const auto other = loadedClip("h264_25.mp4");
  const auto output = AVAssetReaderTrackOutput::create(other->tracks().front());
  const Run run = makeRun(loadedClip("h264_30.mp4"));
  run.reader->addOutput(output);
  ASSERT_TRUE(run.reader->startReading());
  EXPECT_EQ(output->copyNextSampleBuffer(), nullptr);
  const auto its = AVAssetReader::create(other, nullptr);
  EXPECT_TRUE(its->canAddOutput(output));
}

TEST_F(AVAssetReaderTest, LoadsTheTracksOfAnAssetThatIsNotLoaded) {
  const auto asset = unloadedAsset(test::clip("h264_30.mp4"));
  NSErrorPtr error;
  const auto reader = AVAssetReader::create(asset, &error);
  ASSERT_TRUE(reader);
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(asset->statusOfValueForKey("tracks"), AVKeyValueStatus::Loaded);
  EXPECT_EQ(asset->tracks().size(), 2u);
}

TEST_F(AVAssetReaderTest, IsNotMadeOfWhatCannotBeReadAndTellsWhy) {
  for (const char* name : {"there is no such file.mp4", "text.mp4", "cut_moov_last_5.mp4"}) {
    const auto asset = unloadedAsset(test::clip(name));
    NSErrorPtr error;
    EXPECT_EQ(AVAssetReader::create(asset, &error), nullptr) << name;
    NSErrorPtr loadError;
    EXPECT_EQ(asset->statusOfValueForKey("tracks", &loadError), AVKeyValueStatus::Failed);
    EXPECT_NE(error, nullptr) << name;
    EXPECT_EQ(error, loadError) << name;
  }
  NSErrorPtr error;
  const auto remote = AVAsset::assetWithURL(NSURL::URLWithString("ftp://127.0.0.1/a.mp4"));
  EXPECT_EQ(AVAssetReader::create(remote, &error), nullptr);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->code(), AVErrorUnsupportedURL);
  EXPECT_EQ(AVAssetReader::create(nullptr, &error), nullptr);
  EXPECT_NE(error, nullptr);
}

TEST_F(AVAssetReaderTest, AFileThatWasCutShortFailsAfterItsWholeSamples) {
  const Run run = startRun(loadedClip("cut_5.mp4"));
  const Buffers buffers = readAll(run);
  EXPECT_GT(buffers.size(), 30u);
  EXPECT_LT(buffers.size(), 90u);
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Failed);
  ASSERT_NE(run.reader->error(), nullptr);
  EXPECT_EQ(run.reader->error()->domain(), AVFoundationErrorDomain);
  EXPECT_EQ(run.reader->error()->code(), AVErrorFileFailedToParse);
  run.reader->cancelReading();
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Failed) << "that is final";
}

TEST_F(AVAssetReaderTest, ARangeThatStartsBeyondACutFailsWithoutASample) {
  const Run run = startRun(loadedClip("cut_5.mp4"), CMTimeMake(7, 2));
  EXPECT_TRUE(readAll(run).empty());
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Failed);
  ASSERT_NE(run.reader->error(), nullptr);
  EXPECT_EQ(run.reader->error()->code(), AVErrorFileFailedToParse);
}

TEST_F(AVAssetReaderTest, WhatTheHeaderTellsNotToBePlayableCannotBeRead) {
  for (const auto& [name, code] : {std::pair{"protected.mp4", AVErrorContentIsProtected},
                                   {"protected.webm", AVErrorContentIsProtected},
                                   {"unknown_codec_with_sound.mp4", AVErrorDecoderNotFound}}) {
    NSErrorPtr error;
    EXPECT_EQ(AVAssetReader::create(loadedClip(name), &error), nullptr) << name;
    ASSERT_NE(error, nullptr) << name;
    EXPECT_EQ(error->code(), code) << name;
  }
}

TEST_F(AVAssetReaderTest, GivesNothingOnceCancelled) {
  const Run run = startRun(loadedClip("h264_30.mp4"));
  EXPECT_NE(run.output->copyNextSampleBuffer(), nullptr);
  run.reader->cancelReading();
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Cancelled);
  EXPECT_EQ(run.output->copyNextSampleBuffer(), nullptr);
  EXPECT_EQ(run.reader->error(), nullptr);
  run.reader->cancelReading();
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Cancelled);
}

TEST_F(AVAssetReaderTest, CannotBeStartedAfterACancel) {
  const Run run = makeRun(loadedClip("h264_30.mp4"));
  run.reader->cancelReading();
  EXPECT_FALSE(run.reader->startReading());
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Cancelled);
  EXPECT_EQ(run.output->copyNextSampleBuffer(), nullptr);
}

TEST_F(AVAssetReaderTest, StaysCompletedAfterACancel) {
  const Run run = startRun(loadedClip("h264_30.mp4"));
  (void)readAll(run);
  run.reader->cancelReading();
  EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Completed);
}

TEST_F(AVAssetReaderTest, AnOutputGivesNothingWhenItsReaderIsGone) {
  Run run = startRun(loadedClip("h264_30.mp4"));
  EXPECT_NE(run.output->copyNextSampleBuffer(), nullptr);
  const std::weak_ptr<AVAssetReader> reader = run.reader;
  run.reader.reset();
  EXPECT_TRUE(reader.expired()) << "an output does not keep its reader";
  EXPECT_EQ(run.output->copyNextSampleBuffer(), nullptr);
}

TEST_F(AVAssetReaderTest, ACancelOnAnotherThreadEndsTheSamples) {
  const auto asset = loadedClip("h264_30.mp4");
  for (int round = 0; round < 50; ++round) {
    const Run run = startRun(asset);
    std::atomic<int> samples{0};
    std::thread canceller([&run, &samples, round] {
      while (samples < round) std::this_thread::yield();
      run.reader->cancelReading();
    });
    while (run.output->copyNextSampleBuffer()) ++samples;
    canceller.join();
    EXPECT_GE(samples, round);
    const bool ended = run.reader->status() == AVAssetReaderStatus::Completed && samples == 120;
    EXPECT_TRUE(ended || run.reader->status() == AVAssetReaderStatus::Cancelled) << samples;
  }
}

TEST_F(AVAssetReaderTest, ACancelWhileItIsStartedOnAnotherThreadIsNotLost) {
  const auto asset = loadedClip("h264_30.mp4");
  for (int round = 0; round < 50; ++round) {
    const Run run = makeRun(asset);
    std::thread canceller([&run] { run.reader->cancelReading(); });
    (void)run.reader->startReading();
    canceller.join();
    EXPECT_EQ(run.reader->status(), AVAssetReaderStatus::Cancelled);
    EXPECT_EQ(run.output->copyNextSampleBuffer(), nullptr);
  }
}

TEST_F(AVAssetReaderTest, BuffersOutliveTheReaderAndTheAsset) {
  Buffers buffers;
  {
    auto asset = loadedClip("h264_30.mp4");
    buffers = readAll(startRun(asset));
    const std::weak_ptr<media::SampleSource> source = asset->sampleSource();
    asset.reset();
    EXPECT_TRUE(source.expired()) << "buffers do not keep the file open";
  }
  unsigned sum = 0;
  for (const auto& buffer : buffers) {
    for (const uint8_t byte : buffer->dataBuffer()->bytes()) sum += byte;
  }
  EXPECT_NE(sum, 0u);
}

}  // namespace
}  // namespace zaffo
