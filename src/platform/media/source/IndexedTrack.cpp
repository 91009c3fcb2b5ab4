// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/IndexedTrack.h"

#include <algorithm>

extern "C" {
#include <libavutil/intreadwrite.h>
#include <libavutil/mathematics.h>
}

namespace zaffo::media {
namespace {

constexpr std::size_t kSkipBytes = 10;

bool saySkipped(AVPacket& packet, int64_t samples) {
  uint8_t* data = av_packet_new_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, kSkipBytes);
  if (!data) return false;
  std::fill_n(data, kSkipBytes, uint8_t{0});
  AV_WL32(data, static_cast<uint32_t>(samples));
  return true;
}

}  // namespace

std::optional<SampleTable::Entry> IndexedTrack::describeNext(SampleTable::Walk& walk,
                                                             AVPacket& packet) const {
  const auto entry = walk.next();
  if (!entry) return std::nullopt;
  const auto next = eachDuration ? std::nullopt : walk.peek();
  const int64_t until = next ? next->decode : end;
  int64_t duration =
      eachDuration.value_or(std::max<int64_t>(0, av_sat_sub64(until, entry->decode)));
  if (duration <= 0) duration = usualDuration;
  packet.stream_index = streamIndex;
  packet.time_base = packetTimeBase;
  packet.dts = entry->decode;
  packet.pts = av_sat_add64(entry->decode, entry->offset);
  packet.duration = duration;
  packet.pos = entry->position;
  if (entry->isSync) packet.flags |= AV_PKT_FLAG_KEY;
  if (entry->isHidden) packet.flags |= AV_PKT_FLAG_DISCARD;
  if (entry->isDisposable) packet.flags |= AV_PKT_FLAG_DISPOSABLE;
  return entry;
}

int64_t IndexedTrack::primingFrom(std::size_t place) const {
  if (priming == 0 || place >= table.size()) return 0;
  const int64_t passed = av_sat_sub64(table.at(place).decode, table.at(0).decode);
  return std::max<int64_t>(0, priming - av_rescale_q(passed, timeBase, {1, sampleRate}));
}

int IndexedPackets::read(AVPacket& packet) {
  SampleTable::Walk behind = walk_;
  const auto entry = behind.next();
  if (!entry) return AVERROR_EOF;
  if (!input_) input_ = std::make_unique<TaskInput>(task_);
  const int64_t at = avio_seek(input_->context(), entry->position, SEEK_SET);
  if (at != entry->position) return AVERROR_INVALIDDATA;
  const int got = av_get_packet(input_->context(), &packet, entry->size);
  if (got < 0) return got;
  static_cast<void>(track_.describeNext(walk_, packet));
  if (skip_ > 0 && !saySkipped(packet, skip_)) return AVERROR(ENOMEM);
  skip_ = 0;
  return 0;
}

void IndexedPackets::goTo(std::size_t place) {
  walk_ = SampleTable::Walk(track_.table, place);
  skip_ = track_.primingFrom(place);
}

void IndexedPackets::goBehind(std::size_t count) {
  walk_ = SampleTable::Walk(track_.table, count);
  skip_ = 0;
}

bool IndexedPackets::goToSync(int64_t timestamp) {
  auto place = track_.table.syncAt(timestamp);
  while (place && *place > 0) {
    const auto entry = track_.table.at(*place);
    if (av_sat_add64(entry.decode, entry.offset) <= timestamp) break;
    place = track_.table.lastSync(*place - 1);
  }
  if (place) goTo(*place);
  return place.has_value();
}

}  // namespace zaffo::media
