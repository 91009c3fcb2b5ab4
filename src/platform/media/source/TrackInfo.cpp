// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/TrackInfo.h"

extern "C" {
#include <libavutil/display.h>
}

#include <algorithm>
#include <cmath>

#include "platform/media/MediaTime.h"

namespace zaffo::media {
namespace {

CGSize naturalSize(const AVCodecParameters& parameters) {
  const AVRational aspect = parameters.sample_aspect_ratio;
  const double stretch = aspect.num > 0 && aspect.den > 0 ? av_q2d(aspect) : 1.0;
  return {std::round(parameters.width * stretch), static_cast<double>(parameters.height)};
}

// The matrix of the file turns about the origin; moving the picture back into the positive quadrant
// makes it usable whatever translation the file's writer chose.
CGAffineTransform intoPositiveQuadrant(CGAffineTransform t, CGSize size) {
  t.tx = -(std::min(0.0, t.a * size.width) + std::min(0.0, t.c * size.height));
  t.ty = -(std::min(0.0, t.b * size.width) + std::min(0.0, t.d * size.height));
  return t;
}

CGAffineTransform preferredTransform(const AVStream& stream, CGSize size) {
  std::size_t bytes = 0;
  const uint8_t* data = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &bytes);
  if (!data || bytes < 9 * sizeof(int32_t)) return CGAffineTransformIdentity;
  const auto* matrix = reinterpret_cast<const int32_t*>(data);
  const auto fixed = [](int32_t value) { return value / 65536.0; };
  CGAffineTransform t{fixed(matrix[0]), fixed(matrix[1]), fixed(matrix[3]), fixed(matrix[4]), 0, 0};
  if (std::abs(t.a * t.d - t.b * t.c) < 1e-6) return CGAffineTransformIdentity;
  return intoPositiveQuadrant(t, size);
}

double frameRate(const AVStream& stream) {
  const AVRational average = stream.avg_frame_rate;
  if (average.num > 0 && average.den > 0) return av_q2d(average);
  const AVRational guessed = stream.r_frame_rate;
  if (guessed.num > 0 && guessed.den > 0 && av_q2d(guessed) <= 1000) return av_q2d(guessed);
  return 0;
}

std::string languageCode(const AVStream& stream) {
  const AVDictionaryEntry* entry = av_dict_get(stream.metadata, "language", nullptr, 0);
  return entry && entry->value[0] ? entry->value : "und";
}

// What the index of the whole file adds up to, in the stream's time base; 0 when there is none.
int64_t indexedDuration(AVStream& stream) {
  const int count = avformat_index_get_entries_count(&stream);
  if (count < 2) return 0;
  const int64_t first = avformat_index_get_entry(&stream, 0)->timestamp;
  const int64_t last = avformat_index_get_entry(&stream, count - 1)->timestamp;
  return last > first ? last - first + (last - first) / (count - 1) : 0;
}

// Headers of live recordings tell no duration, or one of centuries: then the samples tell.
bool isCredible(int64_t duration, int64_t indexed, AVRational timeBase) {
  if (duration == AV_NOPTS_VALUE || duration <= 0) return false;
  if (indexed <= 0) return true;
  const int64_t minute = av_rescale_q(60, {1, 1}, timeBase);
  return duration / 2 <= indexed || duration - indexed <= minute;
}

CMTimeRange timeRange(const AVFormatContext& context, AVStream& stream, int64_t timelineStart,
                      bool indexIsComplete) {
  const int64_t start = stream.start_time == AV_NOPTS_VALUE
                            ? 0
                            : std::max<int64_t>(0, stream.start_time - timelineStart);
  const CMTime begin = timeFromTimestamp(start, stream.time_base);
  const int64_t indexed = indexIsComplete ? indexedDuration(stream) : 0;
  if (isCredible(stream.duration, indexed, stream.time_base)) {
    return {begin, timeFromTimestamp(stream.duration, stream.time_base)};
  }
  if (indexed > 0) return {begin, timeFromTimestamp(indexed, stream.time_base)};
  const int64_t whole = context.duration == AV_NOPTS_VALUE ? 0 : context.duration;
  return {begin, timeFromTimestamp(std::max<int64_t>(0, whole), kMicroseconds)};
}

}  // namespace

bool isTrack(const AVStream& stream) {
  if (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) return false;
  return stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO ||
         stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
}

std::shared_ptr<AVAssetTrack> describeTrack(AVFormatContext& context, AVStream& stream,
                                            int64_t timelineStart, bool indexIsComplete) {
  const bool video = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
  auto track = std::make_shared<AVAssetTrack>();
  track->trackID = stream.index + 1;
  track->mediaType = video ? AVMediaTypeVideo : AVMediaTypeAudio;
  track->codec = avcodec_get_name(stream.codecpar->codec_id);
  if (video) {
    track->naturalSize = naturalSize(*stream.codecpar);
    track->preferredTransform = preferredTransform(stream, track->naturalSize);
    track->nominalFrameRate = frameRate(stream);
  }
  track->languageCode = languageCode(stream);
  track->naturalTimeScale = stream.time_base.den / std::max(1, stream.time_base.num);
  track->timeRange = timeRange(context, stream, timelineStart, indexIsComplete);
  return track;
}

}  // namespace zaffo::media
