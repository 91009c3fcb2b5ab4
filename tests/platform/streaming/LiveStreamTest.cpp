// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "doubles/MainLoopUntil.h"
#include "doubles/ManualTime.h"
#include "platform/avfoundation/AVPlayer.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/streaming/StreamServer.h"

namespace zaffo::streaming {
namespace {

using media::Outcome;
using media::Sample;

/// A live stream of the segments of "ts", 2 s each. Its target duration says less, so that tests go
/// on sooner.
class StreamedLive : public testing::Test {
 protected:
  StreamedLive() { streams_.serve("ts"); }

  static FaultReply listed(int first, int end, bool isEnded) {
    std::string text =
        "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXT-X-MEDIA-SEQUENCE:" + std::to_string(first) + "\n";
    for (int number = first; number < end; ++number) {
      text += "#EXTINF:2,\nts/" + std::to_string(number) + ".ts\n";
    }
    return network::goodReply(text + (isEnded ? "#EXT-X-ENDLIST\n" : ""),
                              "\"" + std::to_string(first) + " " + std::to_string(end) + "\"");
  }

  /// The list as it is each time it is asked for.
  network::URL serveList(std::vector<FaultReply> lists) {
    streams_.server.on("/live.m3u8", std::move(lists));
    return streams_.url("/live.m3u8");
  }

  static std::vector<CMTime> presentationsOf(const std::vector<Sample>& samples) {
    std::vector<CMTime> times;
    for (const Sample& sample : samples) times.push_back(sample.presentation);
    std::ranges::sort(times, [](CMTime a, CMTime b) { return a < b; });
    return times;
  }

  StreamServer streams_;
};

TEST_F(StreamedLive, BeginsNearTheEndAndFollowsItsList) {
  const auto list = serveList(
      {listed(0, 3, false), listed(0, 3, false), listed(1, 3, false), listed(2, 4, true)});
  const auto source = StreamServer::open(list);
  ASSERT_TRUE(source);
  EXPECT_FALSE(CMTIME_IS_NUMERIC(source->duration()));
  const auto pictures = media::readAll(*media::openTrack(*source, AVMediaTypeVideo));
  const auto times = presentationsOf(pictures);
  ASSERT_EQ(times.size(), 180U) << "from the second segment to the fourth";
  for (int i = 0; i < 180; ++i) {
    ASSERT_EQ(times[static_cast<std::size_t>(i)], CMTimeMake(i, 30));
  }
  EXPECT_TRUE(std::ranges::none_of(pictures, &Sample::isDiscontinuity));
  const auto requests = streams_.server.requests();
  EXPECT_TRUE(std::ranges::none_of(requests, [](const auto& r) { return r.path == "/ts/0.ts"; }));
}

TEST_F(StreamedLive, PassesOverWhatLeftTheList) {
  const auto list = serveList({listed(0, 2, false), listed(0, 2, false), listed(3, 4, true)});
  const auto source = StreamServer::open(list);
  ASSERT_TRUE(source);
  const auto pictures = media::readAll(*media::openTrack(*source, AVMediaTypeVideo));
  const auto times = presentationsOf(pictures);
  ASSERT_EQ(times.size(), 180U);
  EXPECT_EQ(times[119], CMTimeMake(119, 30));
  EXPECT_EQ(times[120], CMTimeMake(5, 1)) << "as if one target duration were missing";
  EXPECT_EQ(std::ranges::count_if(pictures, &Sample::isDiscontinuity), 1);
}

TEST_F(StreamedLive, AListThatIsGoneIsAnErrorAfterSomeTries) {
  FaultReply gone;
  gone.status = 404;
  const auto list = serveList({listed(0, 2, false), listed(0, 2, false), gone});
  const auto source = StreamServer::open(list);
  ASSERT_TRUE(source);
  const auto cursor = media::openTrack(*source, AVMediaTypeVideo);
  EXPECT_EQ(media::readAll(*cursor, Outcome::Error).size(), 120U);
  EXPECT_EQ(media::textOf(cursor->error()), "\"live.m3u8\" does not exist (404).");
  EXPECT_EQ(
      std::ranges::count(streams_.server.requests(), "/live.m3u8", &FaultServer::Request::path), 5);
}

TEST_F(StreamedLive, AListThatIsBackHasItsTriesAnew) {
  FaultReply gone;
  gone.status = 404;
  const auto list = serveList({listed(0, 2, false), listed(0, 2, false), gone, gone,
                               listed(0, 3, false), gone, listed(0, 4, true)});
  const auto source = StreamServer::open(list);
  ASSERT_TRUE(source);
  const auto cursor = media::openTrack(*source, AVMediaTypeVideo);
  EXPECT_EQ(media::readAll(*cursor).size(), 240U) << media::textOf(cursor->error());
}

TEST_F(StreamedLive, PlaysToTheEndOfItsList) {
  const auto list = serveList({listed(0, 2, false), listed(0, 2, false), listed(0, 3, true)});
  const auto item = AVPlayerItem::playerItemWithAsset(AVAsset::assetWithURL(list));
  const auto ended = std::make_shared<int>(0);
  NSNotificationCenter::defaultCenter().addObserver(
      ended, AVPlayerItemDidPlayToEndTimeNotification, nullptr,
      [raw = ended.get()](const NSNotification&) { ++*raw; });
  const auto player = AVPlayer::create();
  player->replaceCurrentItemWithPlayerItem(item);
  player->setRate(4);
  constexpr int64_t kTwentySeconds = 20 * kNanosecondsPerSecond;
  EXPECT_TRUE(runMainLoopUntil([&] { return *ended > 0; }, kTwentySeconds));
  EXPECT_NEAR(CMTimeGetSeconds(player->currentTime()), 6, 0.1);
  EXPECT_EQ(item->status(), AVPlayerItemStatus::ReadyToPlay);
}

}  // namespace
}  // namespace zaffo::streaming
