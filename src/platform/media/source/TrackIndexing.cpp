// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/TrackIndexing.h"

#include <optional>
#include <utility>
#include <vector>

#include "platform/media/source/BoxReader.h"
#include "platform/media/source/CompositionOffsets.h"

extern "C" {
#include <libavutil/intreadwrite.h>
}

namespace zaffo::media {
namespace {

/// Whether the demuxer passes samples on as they lie in the file.
bool isPassedOn(AVCodecID codec) {
  switch (codec) {
    case AV_CODEC_ID_H264:
    case AV_CODEC_ID_HEVC:
    case AV_CODEC_ID_AV1:
    case AV_CODEC_ID_AAC:
    case AV_CODEC_ID_ALAC:
    case AV_CODEC_ID_FLAC:
    case AV_CODEC_ID_OPUS:
      return true;
    default:
      return false;
  }
}

/// Whether the demuxer leaves decode times alone also where they differ from those of presentation.
bool mayReorder(AVCodecID codec) {
  return codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC;
}

/// The one box of a track; null where there are more or fragments follow.
std::optional<Box> findTrack(const BoxReader& reader, int id) {
  const auto movie = reader.find(reader.whole(), "moov");
  if (!movie) return std::nullopt;
  std::optional<Box> found;
  bool isPlain = true;
  reader.each(movie->begin, movie->end, [&](const Box& box) {
    if (box.is("mvex")) isPlain = false;
    if (!box.is("trak") || reader.trackID(box) != id) return !isPlain;
    isPlain = isPlain && !found;
    found = box;
    return !isPlain;
  });
  return isPlain ? found : std::nullopt;
}

bool isDescribedOnce(const BoxReader& reader, const Box& track) {
  const auto description = reader.find(track, {"mdia", "minf", "stbl", "stsd"});
  return description && AV_RB32(reader.bytesAt<4>(description->begin + 4).data()) == 1;
}

/// What the header tells of samples, beside where they are and when they are decoded.
struct Details {
  std::unique_ptr<CompositionOffsets> offsets;  ///< null where they are presented when decoded
  int64_t shift = 0;                            ///< from those to the demuxer's
  std::vector<uint8_t> dependencies;            ///< by the number in the index

  [[nodiscard]] std::optional<int64_t> offsetAt(int64_t position) const {
    if (!offsets) return 0;
    const auto offset = offsets->offsetAt(position);
    return offset ? std::optional(*offset + shift) : std::nullopt;
  }
  [[nodiscard]] bool isDisposable(std::size_t place) const {
    constexpr int kNoOtherDepends = 2;
    return place < dependencies.size() && (dependencies[place] >> 2 & 3) == kNoOtherDepends;
  }
};

/// The bytes that tell which samples others are decoded from; none where there are none.
std::vector<uint8_t> dependenciesOf(const BoxReader& reader, const Box& track) {
  constexpr int64_t kMostBytes = int64_t{64} << 20, kVersionBytes = 4;
  auto box = reader.find(track, {"mdia", "minf", "stbl", "sdtp"});
  if (!box) return {};
  box->begin += kVersionBytes;
  return reader.contentOf(*box, kMostBytes).value_or(std::vector<uint8_t>());
}

bool fill(SampleTable& table, AVStream& stream, const Details& details) {
  const int count = avformat_index_get_entries_count(&stream);
  for (int i = 0; i < count; ++i) {
    const AVIndexEntry& entry = *avformat_index_get_entry(&stream, i);
    if (entry.size <= 0 || entry.pos < 0) return false;
    const auto offset = details.offsetAt(entry.pos);
    if (!offset) return false;
    table.add({.position = entry.pos,
               .decode = entry.timestamp,
               .offset = *offset,
               .size = entry.size,
               .isSync = (entry.flags & AVINDEX_KEYFRAME) != 0,
               .isHidden = (entry.flags & AVINDEX_DISCARD_FRAME) != 0,
               .isDisposable = details.isDisposable(static_cast<std::size_t>(i))});
  }
  table.finish();
  return count > 0;
}

/// What the demuxer says of a sample whose decode times tell no duration.
int64_t usualDuration(const AVStream& stream, int sampleBytes) {
  AVCodecParameters& parameters = *stream.codecpar;
  const AVRational base = stream.time_base;
  AVRational each{0, 0};
  if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) {
    each = {stream.r_frame_rate.den, stream.r_frame_rate.num};
  } else if (parameters.sample_rate > 0) {
    each = {av_get_audio_frame_duration2(&parameters, sampleBytes), parameters.sample_rate};
  }
  if (each.num <= 0 || each.den <= 0) return 0;
  return av_rescale_rnd(1, int64_t{each.num} * base.den, int64_t{each.den} * base.num,
                        AV_ROUND_DOWN);
}

/// The sound that the first packet of a track says is to be left out.
int64_t primingOf(const AVPacket& packet) {
  std::size_t bytes = 0;
  const uint8_t* data = av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &bytes);
  return data && bytes >= 4 ? AV_RL32(data) : 0;
}

/// Whether nothing comes with a packet but, at the start, what primingOf() tells.
bool isBare(const AVPacket& packet, bool isFirst) {
  if (packet.side_data_elems == 0) return true;
  return isFirst && packet.side_data_elems == 1 && primingOf(packet) > 0 &&
         AV_RL32(packet.side_data[0].data + 4) == 0;
}

bool isDescribedAs(const AVPacket& told, const AVPacket& given, bool mayHideSync) {
  const int compared = mayHideSync && !(given.flags & AV_PKT_FLAG_KEY) ? ~AV_PKT_FLAG_KEY : ~0;
  return told.dts == given.dts && told.pts == given.pts && told.duration == given.duration &&
         told.pos == given.pos && (told.flags & compared) == (given.flags & compared);
}

/// Whether the head's samples are what the table says of them. Of them all but the first may have
/// been taken for no sync samples (see TrackReader).
bool tellsOf(const IndexedTrack& track, const TrackHead& head) {
  SampleTable::Walk walk(track.table, 0);
  for (std::size_t i = 0; i < head.samples.size(); ++i) {
    const AVPacket& given = *head.samples[i].packet;
    const PacketPtr told(av_packet_alloc());
    if (!told || !isBare(given, i == 0)) return false;
    const auto entry = track.describeNext(walk, *told);
    if (!entry || entry->size != given.size || !isDescribedAs(*told, given, i > 0)) return false;
  }
  return true;
}

/// By how much the demuxer moves presentation, beside what the header tells; null where there are
/// no offsets to be had.
std::optional<int64_t> shiftOf(CompositionOffsets& offsets, const AVPacket& first) {
  const auto offset = offsets.offsetAt(first.pos);
  offsets.goToFirst();
  if (!offset || first.pts == AV_NOPTS_VALUE || first.dts == AV_NOPTS_VALUE) return std::nullopt;
  return av_sat_sub64(av_sat_sub64(first.pts, first.dts), *offset);
}

std::unique_ptr<IndexedTrack> describe(const AVStream& stream, const AVPacket& first) {
  auto track = std::make_unique<IndexedTrack>();
  track->streamIndex = stream.index;
  track->timeBase = stream.time_base;
  track->packetTimeBase = first.time_base;
  track->sampleRate = stream.codecpar->sample_rate;
  track->end = stream.duration == AV_NOPTS_VALUE ? 0 : stream.duration;
  track->usualDuration = usualDuration(stream, first.size);
  track->priming = track->sampleRate > 0 ? primingOf(first) : 0;
  return track;
}

}  // namespace

std::unique_ptr<const IndexedTrack> indexTrack(FileDemuxer& demuxer, AVStream& stream,
                                               const TrackHead& head, ReadTask& task) {
  const AVCodecID codec = stream.codecpar->codec_id;
  if (!demuxer.hasCompleteIndex() || !isPassedOn(codec) || head.samples.empty()) return nullptr;
  const BoxReader reader(task);
  const auto box = findTrack(reader, stream.id);
  if (!box || !isDescribedOnce(reader, *box)) return nullptr;

  const AVPacket& first = *head.samples.front().packet;
  auto track = describe(stream, first);
  Details details;
  details.dependencies = dependenciesOf(reader, *box);
  if (reader.find(*box, {"mdia", "minf", "stbl", "ctts"})) {
    details.offsets = CompositionOffsets::read(reader, *box);
    const bool mayHaveThem = details.offsets && mayReorder(codec);
    const auto shift = mayHaveThem ? shiftOf(*details.offsets, first) : std::nullopt;
    if (!shift) return nullptr;
    details.shift = *shift;
    // The demuxer takes the usual duration of samples that have an offset; later versions do not.
    track->eachDuration = track->usualDuration;
  }
  if (!fill(track->table, stream, details)) return nullptr;
  if (!tellsOf(*track, head)) track->eachDuration.reset();
  return tellsOf(*track, head) ? std::move(track) : nullptr;
}

}  // namespace zaffo::media
