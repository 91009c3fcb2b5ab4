// SPDX-License-Identifier: Apache-2.0
#include "fast/PlaybackSessionReader.h"

#include "fast/FastTest.h"

namespace zaffo {
namespace {

using testing::ElementsAre;
using ReadError = AVAssetReaderExtension::ReadError;
using Status = AVAssetReaderStatus;

class PlaybackSessionReaderTest : public FastTest {
 protected:
  std::unique_ptr<PlaybackSessionReader> makeReader(CMTime start = kCMTimeZero) {
    return std::make_unique<PlaybackSessionReader>(asset, start, factory());
  }

  /// The error with which making a reader or taking a sample ends.
  static std::optional<ReadError> errorOf(const std::function<void()>& action) {
    try {
      action();
    } catch (const ReadError& error) {
      return error;
    }
    return std::nullopt;
  }
  static std::optional<ReadError> nextError(PlaybackSessionReader& reader) {
    return errorOf([&] { (void)reader.nextVideoBuffer(); });
  }

  void scriptStatus(Status fresh, Status started) {
    scriptReader = [this, fresh, started](ScriptedAssetReader& reader) {
      reader.statusValue = fresh;
      reader.statusOnceStarted = started;
      reader.errorValue = error;
    };
  }

  const NSErrorPtr error = NSError::create("disk", 5);
};

TEST_F(PlaybackSessionReaderTest, IsBuiltInOrder) {
  Transcript transcript;
  makeReader();
  EXPECT_THAT(
      transcript.lines(),
      ElementsAre("reader made", "reader time range", "output for track 0", "output copies data: 0",
                  "reader can add output", "reader add output", "reader start"));
}

TEST_F(PlaybackSessionReaderTest, ReadsFromItsStartTimeToTheEndWhateverTheLength) {
  makeReader(seconds(1.5));
  EXPECT_EQ(readerAssets.front(), asset);
  EXPECT_EQ(CMTimeCompare(readers.front()->timeRange.start, seconds(1.5)), 0);
  EXPECT_TRUE(CMTIME_IS_POSITIVE_INFINITY(readers.front()->timeRange.duration));
}

TEST_F(PlaybackSessionReaderTest, ReadsTheFirstVideoTrack) {
  AVAssetTrack sound, first, second;
  sound.mediaType = AVMediaTypeAudio;
  sound.trackID = 1;
  first.trackID = 7;
  second.trackID = 3;
  asset->trackList.clear();
  for (const auto& track : {sound, first, second}) {
    asset->trackList.push_back(std::make_shared<const AVAssetTrack>(track));
  }
  Transcript transcript;
  makeReader();
  EXPECT_THAT(transcript.lines(), testing::Contains("output for track 7"));
}

TEST_F(PlaybackSessionReaderTest, ThrowsThePlatformsErrorWhenThereIsNoReader) {
  readerError = NSError::create("platform", 3);
  try {
    makeReader();
    FAIL() << "nothing was thrown";
  } catch (const NSErrorException& exception) {
    EXPECT_EQ(exception.error(), readerError);
  }
}

TEST_F(PlaybackSessionReaderTest, AFreshReaderThatHasEndedThrowsBeforeItIsSetUp) {
  scriptStatus(Status::Cancelled, Status::Reading);
  Transcript transcript;
  EXPECT_EQ(errorOf([&] { makeReader(); })->kind(), ReadError::Case::Canceled);
  EXPECT_THAT(transcript.lines(), ElementsAre("reader made"));
  scriptStatus(Status::Completed, Status::Reading);
  EXPECT_EQ(errorOf([&] { makeReader(); })->kind(), ReadError::Case::ReachedEnd);
}

TEST_F(PlaybackSessionReaderTest, AReaderThatEndsWhenItIsStartedThrows) {
  scriptStatus(Status::Unknown, Status::Completed);
  EXPECT_EQ(errorOf([&] { makeReader(); })->kind(), ReadError::Case::ReachedEnd);
  scriptStatus(Status::Unknown, Status::Cancelled);
  EXPECT_EQ(errorOf([&] { makeReader(); })->kind(), ReadError::Case::Canceled);
  scriptStatus(Status::Unknown, Status::Failed);
  const auto failed = errorOf([&] { makeReader(); });
  EXPECT_EQ(failed->kind(), ReadError::Case::Failed);
  EXPECT_EQ(failed->error(), error);
}

TEST_F(PlaybackSessionReaderTest, GivesTheSamplesInTheirOrderAndThenReachesTheEnd) {
  giveSamples(3);
  const auto reader = makeReader();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(reader->nextVideoBuffer(), readers.front()->samples[i]);
  EXPECT_EQ(nextError(*reader)->kind(), ReadError::Case::ReachedEnd);
  EXPECT_EQ(nextError(*reader)->kind(), ReadError::Case::ReachedEnd);
  EXPECT_EQ(readers.front()->copies, 4) << "a spent reader is not asked again";
}

TEST_F(PlaybackSessionReaderTest, AnAssetWithoutVideoIsBuiltAndThenCanceled) {
  asset->trackList = {ScriptedAsset::track(AVMediaTypeAudio)};
  Transcript transcript;
  const auto reader = makeReader();
  EXPECT_THAT(transcript.lines(), ElementsAre("reader made", "reader time range", "reader start"));
  EXPECT_EQ(nextError(*reader)->kind(), ReadError::Case::Canceled);
}

TEST_F(PlaybackSessionReaderTest, ARefusedOutputIsNoErrorUntilASampleIsWanted) {
  scriptReader = [](ScriptedAssetReader& reader) { reader.acceptsOutput = false; };
  const auto reader = makeReader();
  EXPECT_EQ(nextError(*reader)->kind(), ReadError::Case::Canceled);
  EXPECT_EQ(readers.front()->copies, 0);
}

TEST_F(PlaybackSessionReaderTest, AStartBeyondTheEndReachesTheEndAtOnce) {
  giveSamples(0);
  const auto reader = makeReader(seconds(60));
  EXPECT_EQ(nextError(*reader)->kind(), ReadError::Case::ReachedEnd);
}

TEST_F(PlaybackSessionReaderTest, MarksTheFirstSampleItHandsOutAndNoOther) {
  giveSamples(3);
  const auto reader = makeReader();
  const auto first = reader->nextVideoBuffer();
  EXPECT_TRUE(first->resetsDecoderBeforeDecoding());
  EXPECT_TRUE(first->attachments().displayImmediately);
  for (int i = 0; i < 2; ++i) {
    const auto later = reader->nextVideoBuffer();
    EXPECT_FALSE(later->resetsDecoderBeforeDecoding());
    EXPECT_EQ(later->sampleAttachmentsArray(false), nullptr);
  }
}

TEST_F(PlaybackSessionReaderTest, LeavesTheOtherAttachmentsOfTheFirstSampleAsTheyAre) {
  giveSamples(1);
  const auto reader = makeReader();
  readers.front()->samples[0]->sampleAttachmentsArray(true)->front().doNotDisplay = true;
  const auto first = reader->nextVideoBuffer();
  EXPECT_TRUE(first->attachments().doNotDisplay);
  EXPECT_TRUE(first->attachments().displayImmediately);
}

TEST_F(PlaybackSessionReaderTest, PassesOverMarkersAndMarksTheFirstRealSample) {
  scriptReader = [](ScriptedAssetReader& reader) {
    reader.samples = {makeScriptedSample(kCMTimeZero, false), makeScriptedSample(kCMTimeZero),
                      makeScriptedSample(kCMTimeZero, false), makeScriptedSample(kCMTimeZero)};
  };
  const auto reader = makeReader();
  EXPECT_EQ(reader->nextVideoBuffer(), readers.front()->samples[1]);
  EXPECT_EQ(reader->nextVideoBuffer(), readers.front()->samples[3]);
  EXPECT_FALSE(readers.front()->samples[0]->resetsDecoderBeforeDecoding());
  EXPECT_TRUE(readers.front()->samples[1]->resetsDecoderBeforeDecoding());
}

TEST_F(PlaybackSessionReaderTest, AReaderThatFailsOnTheWayThrowsItsError) {
  giveSamples(1);
  const auto reader = makeReader();
  readers.front()->statusAtEnd = Status::Failed;
  readers.front()->errorValue = error;
  (void)reader->nextVideoBuffer();
  const auto failed = nextError(*reader);
  EXPECT_EQ(failed->kind(), ReadError::Case::Failed);
  EXPECT_EQ(failed->error(), error);
}

TEST_F(PlaybackSessionReaderTest, NoSampleFromAReaderThatStillReadsIsCanceled) {
  const auto reader = makeReader();
  for (const auto status : {Status::Reading, Status::Unknown, Status::Cancelled}) {
    readers.front()->statusValue = Status::Reading;
    readers.front()->statusAtEnd = status;
    EXPECT_EQ(nextError(*reader)->kind(), ReadError::Case::Canceled);
  }
}

TEST_F(PlaybackSessionReaderTest, AfterTeardownItIsCanceled) {
  giveSamples(2);
  const auto reader = makeReader();
  (void)reader->nextVideoBuffer();
  Transcript transcript;
  reader->teardown();
  EXPECT_THAT(transcript.lines(), ElementsAre("reader cancel"));
  EXPECT_EQ(nextError(*reader)->kind(), ReadError::Case::Canceled);
  EXPECT_EQ(readers.front()->copies, 1);
}

TEST_F(PlaybackSessionReaderTest, DoesNotKeepTheAsset) {
  const auto before = asset.use_count();
  const auto reader = makeReader();
  readerAssets.clear();
  EXPECT_EQ(asset.use_count(), before);
}

TEST(ReadError, IsHandedOnByItsDomainAndCaseNumberWithoutThePayload) {
  const auto failed = ReadError::failed(NSError::create("disk", 5)).asNSError();
  EXPECT_EQ(failed->domain(), "ZaffoPlayback.AVAssetReaderExtension.ReadError");
  EXPECT_EQ(failed->code(), 0);
  EXPECT_TRUE(failed->userInfo().empty());
  EXPECT_EQ(failed->underlyingError(), nullptr);
  EXPECT_EQ(ReadError::canceled().asNSError()->code(), 1);
  EXPECT_EQ(ReadError::reachedEnd().asNSError()->code(), 2);
}

TEST(PlaybackSessionReaderDeathTest, AFailedReaderWithoutAnErrorIsAProgrammingFault) {
  EXPECT_DEATH((void)ReadError::failed(nullptr), "failed without an error");
}

TEST_F(PlaybackSessionReaderTest, AFirstSampleWithoutAnAttachmentsArrayIsAProgrammingFault) {
  scriptReader = [](ScriptedAssetReader& reader) {
    const auto whole = makeScriptedSample(kCMTimeZero);
    reader.samples = {CMSampleBuffer::create(nullptr, whole->formatDescription(), {})};
  };
  const auto reader = makeReader();
  EXPECT_DEATH((void)reader->nextVideoBuffer(), "no sample attachments");
}

}  // namespace
}  // namespace zaffo
