// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>

#include "platform/streaming/StreamFeed.h"
#include "platform/streaming/StreamServer.h"

namespace zaffo::streaming {
namespace {

using media::Outcome;
using media::Sample;

constexpr int kPictures = 240;

std::vector<CMTime> presentationsOf(const std::vector<Sample>& samples) {
  std::vector<CMTime> times;
  for (const Sample& sample : samples) times.push_back(sample.presentation);
  std::ranges::sort(times, [](CMTime a, CMTime b) { return a < b; });
  return times;
}

/// That pictures of 30 a second follow each other from time zero on, each once.
void expectEveryPicture(const std::vector<Sample>& samples, int count) {
  const auto times = presentationsOf(samples);
  ASSERT_EQ(times.size(), static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    ASSERT_EQ(times[static_cast<std::size_t>(i)], CMTimeMake(i, 30)) << "picture " << i;
  }
}

void expectNoNewStart(const std::vector<Sample>& samples) {
  EXPECT_TRUE(std::ranges::none_of(samples, &Sample::isDiscontinuity));
  CMTime last = kCMTimeNegativeInfinity;
  for (const Sample& sample : samples) {
    ASSERT_TRUE(CMTIME_IS_NUMERIC(sample.decode));
    EXPECT_GE(sample.decode, last);
    last = sample.decode;
  }
}

class StreamSourceTest : public testing::Test {
 protected:
  std::shared_ptr<media::SampleSource> open(const std::string& name) {
    streams_.serve(name);
    return StreamServer::open(streams_.listOf(name));
  }

  StreamServer streams_;
};

class StreamedTracks : public StreamSourceTest, public testing::WithParamInterface<const char*> {};

TEST_P(StreamedTracks, GoOnOverTheBordersOfSegments) {
  const auto source = open(GetParam());
  ASSERT_TRUE(source);
  ASSERT_EQ(source->tracks().size(), 2U);
  const CMTime duration = source->duration();
  const std::string name = GetParam();
  const int count = name.starts_with("hevc") ? 120 : kPictures;
  EXPECT_EQ(duration, CMTimeMake(count, 30));
  const auto pictures = media::readAll(*media::openTrack(*source, AVMediaTypeVideo));
  expectEveryPicture(pictures, count);
  expectNoNewStart(pictures);

  const auto sound = media::readAll(*media::openTrack(*source, AVMediaTypeAudio));
  expectNoNewStart(sound);
  ASSERT_GT(sound.size(), 100U);
  // MPEG-TS tells the time of some packets of sound, by ticks of 1/90000 s.
  const double rate = name == "ts_44100" ? 44100 : 48000;
  const double first = CMTimeGetSeconds(sound.front().presentation);
  for (std::size_t i = 1; i < sound.size(); ++i) {
    const double expected = first + static_cast<double>(i) * 1024 / rate;
    ASSERT_NEAR(CMTimeGetSeconds(sound[i].presentation), expected, 2e-5) << "sample " << i;
  }
  EXPECT_LE(CMTimeGetSeconds(sound.front().presentation), 0.03);
  EXPECT_GE(CMTimeGetSeconds(sound.back().presentation), CMTimeGetSeconds(duration) - 0.05);
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, StreamedTracks,
                         testing::Values("ts", "fmp4", "ts_ranges", "fmp4_ranges", "ts_44100",
                                         "hevc", "hevc_ts", "encrypted", "encrypted_by_number"));

class StreamedSeeks : public StreamSourceTest, public testing::WithParamInterface<const char*> {};

TEST_P(StreamedSeeks, LandOnTheSyncSampleBeforeTheTime) {
  const auto source = open(GetParam());
  ASSERT_TRUE(source);
  const auto cursor = media::openTrack(*source, AVMediaTypeVideo);
  Sample sample;
  for (const int picture : {239, 0, 59, 60, 61, 29, 30, 150, 149, 100, 210}) {
    ASSERT_TRUE(cursor->seek(CMTimeMake(picture, 30)));
    ASSERT_EQ(media::nextHeld(*cursor, sample), Outcome::Ready);
    EXPECT_TRUE(sample.sync);
    EXPECT_EQ(sample.presentation, CMTimeMake(picture / 30 * 30, 30)) << "for " << picture;
    const auto rest = media::readAll(*cursor);
    EXPECT_EQ(rest.size(), static_cast<std::size_t>(kPictures - picture / 30 * 30 - 1));
  }
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, StreamedSeeks, testing::Values("ts", "fmp4"));

TEST_F(StreamSourceTest, FetchesASeeksSegmentAndNoneBefore) {
  const auto source = open("ts");
  ASSERT_TRUE(source);
  const auto cursor = media::openTrack(*source, AVMediaTypeVideo);
  Sample sample;
  ASSERT_TRUE(cursor->seek(CMTimeMake(7, 1)));
  ASSERT_EQ(media::nextHeld(*cursor, sample), Outcome::Ready);
  std::vector<std::string> paths;
  for (const auto& request : streams_.server.requests()) paths.push_back(request.path);
  EXPECT_EQ(paths, (std::vector<std::string>{"/ts/list.m3u8", "/ts/0.ts", "/ts/3.ts"}));
}

TEST_F(StreamSourceTest, BothTracksShareWhatIsFetched) {
  const auto source = open("fmp4");
  ASSERT_TRUE(source);
  const auto pictures = media::openTrack(*source, AVMediaTypeVideo);
  const auto sound = media::openTrack(*source, AVMediaTypeAudio);
  Sample sample;
  bool goesOn = true;
  while (goesOn) {
    goesOn = media::nextHeld(*pictures, sample) == Outcome::Ready;
    goesOn = media::nextHeld(*sound, sample) == Outcome::Ready || goesOn;
  }
  EXPECT_EQ(streams_.server.requests().size(), 6U) << "a list, a header and four segments";
}

constexpr double kFast = 1e8;
constexpr double kSlow = 7e5;

TEST_F(StreamSourceTest, GoesToAnotherRenditionAtABorderAndLosesNothing) {
  const auto master = streams_.holdRenditions();
  // One for the first rendition, one for each segment.
  const auto source =
      StreamServer::open(master, StreamServer::servicesWith({kFast, kFast, kSlow, kFast}));
  ASSERT_TRUE(source);
  const auto cursor = media::openTrack(*source, AVMediaTypeVideo);
  const auto soundCursor = media::openTrack(*source, AVMediaTypeAudio);
  std::vector<Sample> pictures, sound;
  std::vector<int> widths;
  for (bool goesOn = true; goesOn;) {
    Sample picture, sample;
    goesOn = media::nextHeld(*cursor, picture) == Outcome::Ready;
    if (goesOn && (pictures.empty() || picture.isDiscontinuity)) {
      widths.push_back(cursor->codecParameters().width);
      EXPECT_EQ(picture.presentation, CMTimeMake(2 * static_cast<int>(widths.size()) - 2, 1));
    }
    if (goesOn) pictures.push_back(std::move(picture));
    if (media::nextHeld(*soundCursor, sample) != Outcome::Ready) continue;
    sound.push_back(std::move(sample));
    goesOn = true;
  }
  EXPECT_EQ(widths, (std::vector<int>{384, 96, 384}));
  expectEveryPicture(pictures, kPictures);
  expectNoNewStart(sound);
  for (std::size_t i = 1; i < sound.size(); ++i) {
    const CMTime step = sound[i].presentation - sound[i - 1].presentation;
    ASSERT_NEAR(CMTimeGetSeconds(step), 1024.0 / 48000, 2e-5) << "sample " << i;
  }
}

TEST_F(StreamSourceTest, StaysWithItsRenditionWhereTheOtherIsCutElsewhere) {
  const auto master = streams_.holdRenditions();
  std::string text = StreamServer::fileOf("/small/list.m3u8");
  text.insert(text.find("#EXTINF"), "#EXTINF:1,\n0.ts\n");
  network::SharedResources::shared().forgetKept();
  streams_.put("/cut/list.m3u8", text);
  streams_.put("/cut.m3u8",
               "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=3000000\nlarge/list.m3u8\n"
               "#EXT-X-STREAM-INF:BANDWIDTH=500000\ncut/list.m3u8\n");
  const auto source =
      StreamServer::open(streams_.url("/cut.m3u8"), StreamServer::servicesWith({kFast, kSlow}));
  ASSERT_TRUE(source);
  const auto pictures = media::readAll(*media::openTrack(*source, AVMediaTypeVideo));
  expectEveryPicture(pictures, kPictures);
  expectNoNewStart(pictures);
}

TEST_F(StreamSourceTest, WhatItsOpeningFetchedIsReadInThatRendition) {
  const auto master = streams_.holdRenditions();
  const auto source = StreamServer::open(master, StreamServer::servicesWith({kFast, kFast, kSlow}));
  ASSERT_TRUE(source);
  const auto cursor = media::openTrack(*source, AVMediaTypeVideo);
  Sample sample;
  ASSERT_EQ(media::nextHeld(*cursor, sample), Outcome::Ready);
  EXPECT_EQ(cursor->codecParameters().width, 384);
}

TEST_F(StreamSourceTest, ADiscontinuityBeginsAnewWhereItIsListed) {
  streams_.serve("ts");
  streams_.serve("small");
  streams_.put("/joined.m3u8",
               "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\nts/2.ts\n#EXTINF:2,\nts/3.ts\n"
               "#EXT-X-DISCONTINUITY\n#EXTINF:2,\nsmall/0.ts\n#EXTINF:2,\nsmall/1.ts\n"
               "#EXT-X-ENDLIST\n");
  const auto source = StreamServer::open(streams_.url("/joined.m3u8"));
  ASSERT_TRUE(source);
  EXPECT_EQ(source->duration(), CMTimeMake(8, 1));
  const auto cursor = media::openTrack(*source, AVMediaTypeVideo);
  const auto pictures = media::readAll(*cursor);
  expectEveryPicture(pictures, kPictures);
  ASSERT_EQ(std::ranges::count_if(pictures, &Sample::isDiscontinuity), 1);
  EXPECT_EQ(std::ranges::find_if(pictures, &Sample::isDiscontinuity)->presentation,
            CMTimeMake(4, 1));
  EXPECT_EQ(cursor->codecParameters().width, 96);
  const auto sound = media::readAll(*media::openTrack(*source, AVMediaTypeAudio));
  EXPECT_EQ(std::ranges::count_if(sound, &Sample::isDiscontinuity), 1);

  ASSERT_TRUE(cursor->seek(CMTimeMake(7, 1)));
  Sample sample;
  ASSERT_EQ(media::nextHeld(*cursor, sample), Outcome::Ready);
  EXPECT_EQ(sample.presentation, CMTimeMake(6, 1));
}

TEST_F(StreamSourceTest, ListsThatRoundLeadToTheRightPicture) {
  streams_.serve("ts");
  streams_.put("/rounded.m3u8",
               "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:1.9,\nts/0.ts\n#EXTINF:1.9,\nts/1.ts\n"
               "#EXTINF:2.2,\nts/2.ts\n#EXTINF:2,\nts/3.ts\n#EXT-X-ENDLIST\n");
  const auto source = StreamServer::open(streams_.url("/rounded.m3u8"));
  ASSERT_TRUE(source);
  const auto cursor = media::openTrack(*source, AVMediaTypeVideo);
  for (const int picture : {58, 59, 60, 61, 114, 118, 119, 120, 121}) {
    ASSERT_TRUE(cursor->seek(CMTimeMake(picture, 30)));
    Sample sample;
    ASSERT_EQ(media::nextHeld(*cursor, sample), Outcome::Ready);
    EXPECT_EQ(sample.presentation, CMTimeMake(picture / 30 * 30, 30)) << picture;
    EXPECT_EQ(media::readAll(*cursor).size(),
              static_cast<std::size_t>(kPictures - picture / 30 * 30 - 1));
  }
}

TEST_F(StreamSourceTest, SaysThatAKeyIsNone) {
  streams_.serve("encrypted");
  streams_.server.on("/encrypted/key.bin", {network::goodReply("short")});
  auto opened = StreamServer::tryToOpen(streams_.listOf("encrypted"));
  EXPECT_EQ(media::textOf(opened.error()), "The key of the stream is not one.");
}

TEST_F(StreamSourceTest, AnEncryptedSegmentWhoseSizeIsNotToldIsRead) {
  streams_.serve("encrypted");
  for (const char* path : {"/encrypted/0.ts", "/encrypted/1.ts"}) {
    auto reply = network::goodReply(StreamServer::fileOf(path));
    reply.isChunked = true;
    streams_.server.on(path, {reply});
  }
  const auto source = StreamServer::open(streams_.listOf("encrypted"));
  ASSERT_TRUE(source);
  expectEveryPicture(media::readAll(*media::openTrack(*source, AVMediaTypeVideo)), kPictures);
}

/// The bytes at the front of a segment of a feed.
std::vector<uint8_t> frontOf(StreamFeed& feed, int64_t number) {
  std::shared_ptr<const StreamSegment> segment;
  EXPECT_EQ(feed.segment(number, 0, segment), Outcome::Ready);
  std::vector<uint8_t> bytes(media::kCipherBlock);
  int64_t count = -EAGAIN;
  while ((count = segment->bytes->readHeld(0, bytes)) == -EAGAIN && !testing::Test::HasFailure()) {
    network::await(*segment->bytes, 0, static_cast<int64_t>(bytes.size()));
  }
  EXPECT_EQ(count, static_cast<int64_t>(bytes.size()));
  return bytes;
}

TEST_F(StreamSourceTest, ASegmentWithoutAVectorIsDecryptedByItsNumber) {
  streams_.serve("encrypted_by_number");
  auto parsed = network::Playlist::parse(StreamServer::fileOf("/encrypted_by_number/list.m3u8"),
                                         streams_.listOf("encrypted_by_number"));
  ASSERT_TRUE(parsed);
  const auto feed = std::make_shared<StreamFeed>(
      std::vector<StreamFeed::Rendition>{{streams_.listOf("encrypted_by_number"), 0}}, 0,
      SegmentList(*std::move(parsed)), StreamServices::shared());
  // All begin alike, but for a counter: the table that names the stream.
  const auto first = frontOf(*feed, 0), last = frontOf(*feed, 3);
  ASSERT_EQ(first.size(), media::kCipherBlock);
  ASSERT_EQ(last.size(), media::kCipherBlock);
  constexpr int kBehindCounter = 4;
  EXPECT_EQ(first[0], 0x47);
  EXPECT_EQ(std::vector(first.begin() + kBehindCounter, first.end()),
            std::vector(last.begin() + kBehindCounter, last.end()));
}

TEST_F(StreamSourceTest, AddressesAreRelativeToWhereTheServerLed) {
  streams_.serve("ts");
  FaultReply elsewhere;
  elsewhere.status = 302;
  elsewhere.fields = {{"Location", "/ts/list.m3u8"}};
  streams_.server.on("/watch/here", {elsewhere});
  const auto source = StreamServer::open(streams_.url("/watch/here"));
  ASSERT_TRUE(source);
  expectEveryPicture(media::readAll(*media::openTrack(*source, AVMediaTypeVideo)), kPictures);
}

TEST_F(StreamSourceTest, SaysWhichSegmentIsMissing) {
  streams_.serve("ts");
  FaultReply missing;
  missing.status = 404;
  streams_.server.on("/ts/2.ts", {missing});
  const auto source = StreamServer::open(streams_.listOf("ts"));
  ASSERT_TRUE(source);
  const auto cursor = media::openTrack(*source, AVMediaTypeVideo);
  EXPECT_EQ(media::readAll(*cursor, Outcome::Error).size(), 120U) << "those before are given";
  EXPECT_EQ(media::textOf(cursor->error()), "\"2.ts\" does not exist (404).");
  ASSERT_TRUE(cursor->seek(CMTimeMake(1, 1)));
  Sample sample;
  EXPECT_EQ(media::nextHeld(*cursor, sample), Outcome::Ready);
}

TEST_F(StreamSourceTest, ACursorThatGoesStopsItsTraffic) {
  streams_.serve("ts");
  auto stalled = network::goodReply(StreamServer::fileOf("/ts/3.ts"));
  stalled.stallsAfter = 2000;
  streams_.server.on("/ts/3.ts", {stalled});
  const auto source = StreamServer::open(streams_.listOf("ts"));
  ASSERT_TRUE(source);
  auto cursor = media::openTrack(*source, AVMediaTypeVideo);
  ASSERT_TRUE(cursor->seek(CMTimeMake(7, 1)));
  Sample sample;
  EXPECT_EQ(cursor->next(sample), Outcome::Again);
  ASSERT_TRUE(streams_.server.waitForRequests(3));
  cursor.reset();
  EXPECT_TRUE(streams_.server.waitForLeaver());
}

}  // namespace
}  // namespace zaffo::streaming
