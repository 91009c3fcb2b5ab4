// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/IndexedTrack.h"

#include <algorithm>
#include <functional>
#include <semaphore>
#include <string_view>
#include <utility>

#include "platform/media/Decoding.h"
#include "platform/media/source/FileDemuxer.h"
#include "platform/media/source/LocalByteSource.h"

namespace zaffo::media {
namespace {

using test::clip;

/// All that there is to a packet.
std::string printOf(const AVPacket& packet, int result) {
  if (result < 0) return "failed " + std::to_string(result);
  const auto hash = [](const uint8_t* data, std::size_t bytes) {
    const std::string_view text(reinterpret_cast<const char*>(data), bytes);
    return std::to_string(std::hash<std::string_view>{}(text)) + " ";
  };
  std::string print;
  for (const int64_t number :
       {packet.dts, packet.pts, packet.duration, packet.pos, int64_t{packet.size},
        int64_t{packet.flags}, int64_t{packet.stream_index}, int64_t{packet.time_base.num},
        int64_t{packet.time_base.den}}) {
    print += std::to_string(number) + " ";
  }
  print += hash(packet.data, static_cast<std::size_t>(packet.size));
  for (int i = 0; i < packet.side_data_elems; ++i) {
    const AVPacketSideData& side = packet.side_data[i];
    print += std::to_string(side.type) + ":" + hash(side.data, std::min<std::size_t>(side.size, 8));
  }
  return print;
}

void runToEnd(ReadTask& task, const std::function<void()>& work) {
  std::counting_semaphore<> ready(0);
  task.setReadyHandler([&ready] { ready.release(); });
  while (!task.run(work)) ready.acquire();
}

/// Reads a track both ways: by its index, and with a demuxer of the same file.
class BothWays {
 public:
  BothWays(const std::string& path, const std::shared_ptr<FileSampleSource>& source, int trackID)
      : task_(*LocalByteSource::open(path)),
        track_(indexOf(*source, trackID)),
        packets_(track_, task_) {
    runToEnd(task_, [this] { demuxer_ = *FileDemuxer::open(task_); });
    for (AVStream* stream : demuxer_->streams()) {
      if (stream->index != track_.streamIndex) stream->discard = AVDISCARD_ALL;
    }
  }

  /// At most `most` packets from where both stand.
  void expectTheSame(std::size_t most) {
    const PacketPtr packet(av_packet_alloc());
    int result = 0;
    for (std::size_t i = 0; i < most && result >= 0; ++i) {
      std::string ofIndex, ofDemuxer;
      runToEnd(task_, [&] { result = packets_.read(*packet); });
      ofIndex = printOf(*packet, result);
      av_packet_unref(packet.get());
      runToEnd(task_, [&] { result = av_read_frame(demuxer_->context(), packet.get()); });
      ofDemuxer = printOf(*packet, result);
      av_packet_unref(packet.get());
      ASSERT_EQ(ofIndex, ofDemuxer) << "packet " << i;
    }
  }

  /// The index may land later than the demuxer, which subtracts more than it must from a time.
  void expectTheSameAfterSeek(int64_t timestamp) {
    const PacketPtr packet(av_packet_alloc()), other(av_packet_alloc());
    int result = 0, otherResult = 0;
    // Back from where the demuxer goes, as far as TrackReader does.
    for (int64_t wanted = timestamp;; wanted = other->dts - 1) {
      av_packet_unref(other.get());
      runToEnd(task_, [&] {
        otherResult =
            av_seek_frame(demuxer_->context(), track_.streamIndex, wanted, AVSEEK_FLAG_BACKWARD);
        if (otherResult >= 0) otherResult = av_read_frame(demuxer_->context(), other.get());
      });
      if (otherResult < 0 || other->pts <= timestamp || other->dts > wanted) break;
    }
    ASSERT_GE(otherResult, 0);
    ASSERT_TRUE(packets_.goToSync(timestamp));
    runToEnd(task_, [&] { result = packets_.read(*packet); });
    ASSERT_GE(result, 0);
    const bool isSync = packet->flags & AV_PKT_FLAG_KEY;
    EXPECT_TRUE((isSync && packet->pts <= timestamp) || packet->dts == track_.table.at(0).decode);
    const bool isLater = packet->dts != other->dts;
    while (otherResult >= 0 && other->dts < packet->dts) {
      av_packet_unref(other.get());
      runToEnd(task_, [&] { otherResult = av_read_frame(demuxer_->context(), other.get()); });
    }
    if (isLater) {
      for (AVPacket* each : {packet.get(), other.get()}) av_packet_free_side_data(each);
    }
    ASSERT_EQ(printOf(*packet, result), printOf(*other, otherResult));
    expectTheSame(2);
  }

 private:
  static const IndexedTrack& indexOf(const FileSampleSource& source, int trackID) {
    static const IndexedTrack none;
    const auto& indexed = source.head(trackID).indexed;
    EXPECT_TRUE(indexed);
    return indexed ? *indexed : none;
  }

  ReadTask task_;
  const IndexedTrack& track_;
  IndexedPackets packets_;
  std::unique_ptr<FileDemuxer> demuxer_;
};

class IndexOf : public testing::TestWithParam<const char*> {
 protected:
  const std::string path_ = clip(GetParam());
  const std::shared_ptr<FileSampleSource> source_ = openClip(path_);
};

TEST_P(IndexOf, ServesAllTracks) {
  for (const auto& track : source_->tracks()) {
    EXPECT_TRUE(source_->head(track->trackID).indexed) << track->codec;
  }
  EXPECT_FALSE(source_->takeIdle()) << "a demuxer is kept that nobody needs";
}

TEST_P(IndexOf, IsWhatEveryCursorReadsBy) {
  for (const auto& track : source_->tracks()) {
    const auto first = *source_->openCursor(track->trackID);
    const auto second = *source_->openCursor(track->trackID);
    ASSERT_TRUE(first->seek(CMTimeMake(1, 1)));
    EXPECT_GT(readAll(*first).size(), 0u);
    EXPECT_GT(readAll(*second).size(), TrackHead::kMostSamples);
  }
  EXPECT_FALSE(source_->takeIdle()) << "a cursor parsed the file again";
}

TEST_P(IndexOf, GivesWhatADemuxerGives) {
  for (const auto& track : source_->tracks()) {
    SCOPED_TRACE(track->codec);
    BothWays both(path_, source_, track->trackID);
    both.expectTheSame(100'000);
  }
}

TEST_P(IndexOf, GivesWhatADemuxerGivesAfterASeek) {
  for (const auto& track : source_->tracks()) {
    SCOPED_TRACE(track->codec);
    BothWays both(path_, source_, track->trackID);
    const int64_t end = int64_t{5} * track->naturalTimeScale;
    for (int64_t time = end; time > -end / 5; time -= end / 97) {
      SCOPED_TRACE(time);
      both.expectTheSameAfterSeek(time);
    }
  }
}

std::string nameOf(const testing::TestParamInfo<const char*>& clipInfo) {
  std::string name = clipInfo.param;
  std::ranges::replace(name, '.', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Clips, IndexOf,
                         testing::Values("h264_30.mp4", "h264_30_moov_last.mp4", "no_b_frames.mp4",
                                         "edit_list.mp4", "edit_list_hevc.mp4", "hevc.mp4",
                                         "open_gop.mp4", "long_gop.mp4", "vfr.mp4",
                                         "late_video.mp4", "interlaced.mp4", "av1.mp4",
                                         "h264_flac.mp4", "loop_tone_opus.mp4", "short_audio.mp4",
                                         "zero_duration.mp4", "absurd_duration.mp4",
                                         "audio_only.m4a"),
                         nameOf);

class NoIndexOf : public testing::TestWithParam<std::pair<const char*, AVMediaType>> {};

TEST_P(NoIndexOf, IsMadeWhereTheDemuxerGivesSomethingElse) {
  const auto source = openClip(clip(GetParam().first));
  const auto track = trackOfType(*source, GetParam().second);
  EXPECT_FALSE(source->head(track->trackID).indexed);
  EXPECT_TRUE(source->takeIdle());
}

INSTANTIATE_TEST_SUITE_P(Tracks, NoIndexOf,
                         testing::Values(std::pair{"fragmented.mp4", AVMediaTypeVideo},
                                         std::pair{"no_key_frame.mp4", AVMediaTypeVideo},
                                         std::pair{"mpeg4_mp3.mp4", AVMediaTypeVideo},
                                         std::pair{"mpeg4_mp3.mp4", AVMediaTypeAudio},
                                         std::pair{"h264_ac3.mp4", AVMediaTypeAudio},
                                         std::pair{"vp9_opus.webm", AVMediaTypeVideo},
                                         std::pair{"audio.wav", AVMediaTypeAudio}));

class IndexOfReal : public testing::TestWithParam<const char*> {};

TEST_P(IndexOfReal, GivesWhatADemuxerGives) {
  const auto path = test::realClip(GetParam());
  if (!path) GTEST_SKIP() << "the clips from outside are not here";
  const auto source = openClip(*path);
  for (const auto& track : source->tracks()) {
    SCOPED_TRACE(track->codec);
    ASSERT_TRUE(source->head(track->trackID).indexed);
    BothWays both(*path, source, track->trackID);
    both.expectTheSame(100'000);
    for (int64_t time = track->naturalTimeScale * 8; time > 0;
         time -= track->naturalTimeScale / 7) {
      both.expectTheSameAfterSeek(time);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Clips, IndexOfReal,
                         testing::Values("bt601.mp4", "friday.mp4", "h265_bframes.mp4",
                                         "iibbibb_editlist_videoonly.mp4", "sample_audio_only.mp4",
                                         "sample_av1.mp4",
                                         "sample_edit_list_only_preroll_sync_sample.mp4",
                                         "sample_mdat_too_long.mp4", "sample_portrait.mp4",
                                         "sample_shorter_audio.mp4"),
                         nameOf);

}  // namespace
}  // namespace zaffo::media
