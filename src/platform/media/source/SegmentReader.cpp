// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/SegmentReader.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/foundation/MakeError.h"
#include "platform/media/FFmpegError.h"
#include "platform/media/MediaTime.h"
#include "platform/media/source/GradualRefresh.h"
#include "platform/media/source/TrackInfo.h"

namespace zaffo::media {
namespace {

constexpr double kTickSeconds = 0.001;

int64_t presentationOf(const AVPacket& packet) {
  return packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
}

/// What an encoder put in front of its sound is left out by time; in the midst of a stream nothing
/// may be left out by number.
void keepAllSamples(AVPacket& packet) {
  for (int i = 0; i < packet.side_data_elems; ++i) {
    if (packet.side_data[i].type != AV_PKT_DATA_SKIP_SAMPLES) continue;
    av_freep(&packet.side_data[i].data);
    packet.side_data[i--] = packet.side_data[--packet.side_data_elems];
  }
}

}  // namespace

Result<std::unique_ptr<SegmentReader>> SegmentReader::open(ReadTask& task, AVMediaType type) {
  auto demuxer = FileDemuxer::open(task, FileDemuxer::Kind::Segment);
  if (!demuxer) return demuxer.error();
  std::unique_ptr<SegmentReader> reader(new SegmentReader(*std::move(demuxer)));
  reader->stream_ = reader->firstOf(type);
  if (NSErrorPtr failure = reader->readToStart()) return failure;
  for (AVStream* stream : reader->demuxer_->streams()) {
    stream->discard = stream == reader->stream_ ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
  }
  return reader;
}

AVStream* SegmentReader::firstOf(AVMediaType type) const {
  const ::AVMediaType wanted = type == AVMediaType::Video ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO;
  const auto found = std::ranges::find_if(demuxer_->streams(), [wanted](const AVStream* stream) {
    return isTrack(*stream) && stream->codecpar->codec_type == wanted;
  });
  return found == demuxer_->streams().end() ? nullptr : *found;
}

/// All tracks of a segment share one time line, so whoever reads one must find the same start.
NSErrorPtr SegmentReader::readToStart() {
  const AVStream* first = firstOf(AVMediaType::Video);
  if (!first) first = firstOf(AVMediaType::Audio);
  constexpr int64_t kMostEarly = int64_t{4} << 20;
  int64_t earlyBytes = 0;
  while (first && !CMTIME_IS_NUMERIC(start_) && earlyBytes < kMostEarly) {
    PacketPtr packet(av_packet_alloc());
    const int result = read(packet);
    if (result == AVERROR_EOF) break;
    if (result < 0) return demuxer_->readFailed(result);
    if (packet->stream_index == first->index) {
      start_ = timeFromTimestamp(presentationOf(*packet), first->time_base);
    }
    if (!stream_ || packet->stream_index != stream_->index) continue;
    earlyBytes += packet->size;
    early_.push_back(std::move(packet));
  }
  if (CMTIME_IS_NUMERIC(start_)) return nullptr;
  return makeError(AVErrorFileFormatNotRecognized,
                   "A part of the stream holds neither picture nor sound.");
}

std::vector<SegmentTrack> SegmentReader::describe() const {
  std::vector<SegmentTrack> tracks;
  for (const AVMediaType type : {AVMediaType::Video, AVMediaType::Audio}) {
    AVStream* stream = firstOf(type);
    if (!stream) continue;
    CodecParametersPtr parameters(avcodec_parameters_alloc());
    if (!parameters || avcodec_parameters_copy(parameters.get(), stream->codecpar) < 0) continue;
    tracks.push_back(
        {describeTrack(*demuxer_->context(), *stream, 0, false), std::move(parameters)});
  }
  return tracks;
}

int SegmentReader::read(PacketPtr& packet) {
  av_packet_unref(packet.get());
  return av_read_frame(demuxer_->context(), packet.get());
}

Outcome SegmentReader::next(Sample& sample) {
  if (outcome_ != Outcome::Ready) return outcome_;
  if (!stream_) return outcome_ = Outcome::End;
  PacketPtr packet = sample.packet ? std::move(sample.packet) : PacketPtr(av_packet_alloc());
  if (!early_.empty()) {
    packet = std::move(early_.front());
    early_.pop_front();
  } else {
    int result = 0;
    do {
      result = read(packet);
    } while (result >= 0 && packet->stream_index != stream_->index);
    if (result == AVERROR_EOF) return outcome_ = Outcome::End;
    if (result < 0) error_ = demuxer_->readFailed(result);
  }
  if (av_packet_get_side_data(packet.get(), AV_PKT_DATA_ENCRYPTION_INFO, nullptr)) {
    error_ = contentIsProtected();
  }
  if (error_) return outcome_ = Outcome::Error;
  fill(std::move(packet), sample);
  return outcome_;
}

void SegmentReader::fill(PacketPtr packet, Sample& sample) {
  const AVRational base = stream_->time_base;
  const bool begins = std::exchange(isFirst_, false);
  if (!begins && (packet->flags & AV_PKT_FLAG_KEY) &&
      beginsGradualRefresh(*packet, codecParameters())) {
    packet->flags &= ~AV_PKT_FLAG_KEY;
  }
  keepAllSamples(*packet);
  sample = {};
  sample.presentation = timeFromTimestamp(presentationOf(*packet), base);
  sample.decode = timeFromTimestamp(packet->dts, base);
  sample.duration = timeFromTimestamp(std::max<int64_t>(0, packet->duration), base);
  if (stream_->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) placeSound(sample);
  sample.sync = packet->flags & AV_PKT_FLAG_KEY;
  sample.decodeOnly = (packet->flags & AV_PKT_FLAG_DISCARD) != 0;
  sample.packet = std::move(packet);
}

// MPEG-TS tells the time of one packet of sound in many, in ticks that are no samples; those
// between are guessed by rounded durations. So sound that goes on stands where its samples say.
void SegmentReader::placeSound(Sample& sample) {
  const int rate = stream_->codecpar->sample_rate;
  if (rate <= 0 || !CMTIME_IS_NUMERIC(sample.presentation)) return;
  const double away = CMTimeGetSeconds(sample.presentation - soundGoesOn_);
  if (CMTIME_IS_NUMERIC(soundGoesOn_) && std::abs(away) < kTickSeconds) {
    sample.presentation = soundGoesOn_;
  }
  const auto samples = std::llround(CMTimeGetSeconds(sample.duration) * rate);
  soundGoesOn_ = sample.presentation + CMTimeMake(samples, rate);
}

}  // namespace zaffo::media
