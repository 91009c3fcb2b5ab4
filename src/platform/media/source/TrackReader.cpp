// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/TrackReader.h"

#include <algorithm>
#include <span>
#include <utility>

#include "platform/foundation/MakeError.h"
#include "platform/media/FFmpegError.h"
#include "platform/media/MediaTime.h"
#include "platform/media/source/FileSampleSource.h"
#include "platform/media/source/GradualRefresh.h"
#include "platform/media/source/SoundGrid.h"

namespace zaffo::media {
namespace {

// Sound that decoding needs before a time so that the sound at that time is right: the overlap of
// AAC and Vorbis, the bit reservoir of MP3, the prediction of Opus, which halves what is wrong with
// each 20 ms: after 80 ms it sounds right, after 400 ms it is.
int64_t prerollMilliseconds(AVCodecID codec) {
  switch (codec) {
    case AV_CODEC_ID_AAC:
      return 100;
    case AV_CODEC_ID_VORBIS:
      return 100;
    case AV_CODEC_ID_AC3:
      return 70;
    case AV_CODEC_ID_MP3:
      return 250;
    case AV_CODEC_ID_OPUS:
      return 400;
    default:
      return 0;
  }
}

/// The timestamp, counted from time zero, from which on decoding of what is shown or heard at
/// `time` needs a track.
int64_t neededFor(CMTime time, const AVCodecParameters& parameters, AVRational base) {
  const int64_t timestamp = timestampFromTime(time, base);
  if (parameters.codec_type != AVMEDIA_TYPE_AUDIO) return timestamp;
  return timestamp - av_rescale_q(prerollMilliseconds(parameters.codec_id), {1, 1000}, base);
}

/// The same sample once more, by reference to the same bytes.
Sample copyOf(const Sample& sample) {
  return {.packet = PacketPtr(av_packet_clone(sample.packet.get())),
          .presentation = sample.presentation,
          .decode = sample.decode,
          .duration = sample.duration,
          .sync = sample.sync,
          .decodeOnly = sample.decodeOnly,
          .isDiscontinuity = sample.isDiscontinuity,
          .heardFrom = sample.heardFrom,
          .heardUntil = sample.heardUntil};
}

}  // namespace

void TrackReader::readHead(std::shared_ptr<FileSampleSource> source,
                           std::unique_ptr<FileDemuxer>& demuxer, const AVAssetTrack& track,
                           ReadTask& task, TrackHead& head) {
  TrackReader reader(std::move(source), std::move(demuxer), track, task);
  std::vector<Sample> samples;
  int bytes = 0;
  Outcome outcome = reader.goToFirst() ? Outcome::Ready : Outcome::Error;
  while (outcome == Outcome::Ready && samples.size() < TrackHead::kMostSamples &&
         bytes < TrackHead::kMostBytes) {
    Sample sample;
    outcome = reader.next(sample);
    if (outcome != Outcome::Ready) break;
    bytes += sample.packet->size;
    samples.push_back(std::move(sample));
  }
  if (outcome == Outcome::Ready) reader.demuxer_->setBehindHead(reader.streamIndex_);
  demuxer = std::move(reader.demuxer_);
  head.samples = std::move(samples);
}

TrackReader::TrackReader(std::shared_ptr<FileSampleSource> source,
                         std::unique_ptr<FileDemuxer> demuxer, const AVAssetTrack& track,
                         ReadTask& task)
    : source_(std::move(source)),
      task_(task),
      demuxer_(std::move(demuxer)),
      streamIndex_(track.trackID - 1),
      timeRange_(track.timeRange),
      head_(source_->head(track.trackID)),
      packet_(av_packet_alloc()) {
  if (head_.indexed) indexed_.emplace(*head_.indexed, task_);
  if (demuxer_) selectStream();
}

TrackReader::~TrackReader() {
  if (demuxer_) source_->giveBack(std::move(demuxer_));
}

const AVCodecParameters& TrackReader::codecParameters() const {
  return stream_ ? *stream_->codecpar : *head_.parameters;
}

void TrackReader::selectStream() {
  demuxer_->readFor(task_);
  for (AVStream* stream : demuxer_->streams()) {
    stream->discard = stream->index == streamIndex_ ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    if (stream->index == streamIndex_) stream_ = stream;
  }
}

Outcome TrackReader::next(Sample& sample) {
  if (outcome_ != Outcome::Ready) return outcome_;
  if (isInHead()) return giveHead(sample);
  if (inHead_ && !goBehindHead()) return outcome_;
  if (!std::exchange(pending_, false)) outcome_ = read();
  if (outcome_ != Outcome::Ready) return outcome_;
  // Frames shown just after a gradual refresh begins cannot be decoded from it, so only the sample
  // that was sought counts as sync.
  const bool isSync = packet_->flags & AV_PKT_FLAG_KEY;
  if (!std::exchange(isFirst_, false) && isSync &&
      beginsGradualRefresh(*packet_, codecParameters())) {
    packet_->flags &= ~AV_PKT_FLAG_KEY;
  }
  fill(sample);
  return outcome_;
}

Outcome TrackReader::giveHead(Sample& sample) {
  sample = copyOf(head_.samples[(*inHead_)++]);
  if (!sample.packet) {
    error_ = makeFFmpegError(AVErrorUnknown, "Out of memory.", AVERROR(ENOMEM));
    return outcome_ = Outcome::Error;
  }
  lastDecode_ = sample.packet->dts;
  isFirst_ = false;
  return Outcome::Ready;
}

// Where a demuxer has been elsewhere since, what the head holds is read and passed over.
bool TrackReader::goBehindHead() {
  inHead_.reset();
  if (indexed_) {
    indexed_->goBehind(head_.samples.size());
    return true;
  }
  if (!canRead()) return false;
  if (demuxer_->isBehindHead(streamIndex_)) return true;
  if (!goToFirst()) return false;
  for (std::size_t i = 0; i < head_.samples.size(); ++i) {
    outcome_ = read();
    if (outcome_ != Outcome::Ready) return false;
  }
  return true;
}

/// The next one of the track: an AVERROR where that cannot be had.
int TrackReader::readPacket() {
  av_packet_unref(packet_.get());
  if (indexed_) return indexed_->read(*packet_);
  demuxer_->setMoved();
  int result = av_read_frame(demuxer_->context(), packet_.get());
  while (result >= 0 && packet_->stream_index != streamIndex_) {
    av_packet_unref(packet_.get());
    result = av_read_frame(demuxer_->context(), packet_.get());
  }
  return result;
}

Outcome TrackReader::read() {
  const int result = readPacket();
  if (result == AVERROR_EOF && !endsEarly()) return Outcome::End;
  if (result >= 0 && av_packet_get_side_data(packet_.get(), AV_PKT_DATA_ENCRYPTION_INFO, nullptr)) {
    error_ = contentIsProtected();
    return Outcome::Error;
  }
  if (result >= 0 && !(packet_->flags & AV_PKT_FLAG_CORRUPT)) {
    lastDecode_ = packet_->dts;
    return Outcome::Ready;
  }
  error_ = readFailed(task_.bytes(), result < 0 ? result : AVERROR_INVALIDDATA);
  return Outcome::Error;
}

// Whether the index names samples after the last one that was read; any at all when none was read
// since the place was taken, for every place that can be taken is that of a sample.
bool TrackReader::endsEarly() const {
  const auto last = lastIndexed();
  if (!namesAllSamples() || !last) return false;
  return lastDecode_ == AV_NOPTS_VALUE || *last > lastDecode_;
}

bool TrackReader::namesAllSamples() const {
  return indexed_ || demuxer_->hasCompleteIndex();
}

/// When the last sample that the index names is decoded.
std::optional<int64_t> TrackReader::lastIndexed() const {
  if (indexed_) return head_.indexed->table.at(head_.indexed->table.size() - 1).decode;
  const int count = avformat_index_get_entries_count(stream_);
  if (count == 0) return std::nullopt;
  return avformat_index_get_entry(stream_, count - 1)->timestamp;
}

void TrackReader::fill(Sample& sample) {
  const AVRational base = head_.timeBase;
  const int64_t start = head_.timelineStart;
  const int64_t pts = packet_->pts != AV_NOPTS_VALUE ? packet_->pts : packet_->dts;
  const SoundGrid grid(codecParameters(), base);
  const auto onTimeline = [&](int64_t timestamp) {
    return timestamp == AV_NOPTS_VALUE ? kCMTimeInvalid : grid.timeOf(timestamp - start);
  };
  sample.presentation = onTimeline(pts);
  sample.decode = head_.tellsDecodeTimes ? onTimeline(packet_->dts) : kCMTimeInvalid;
  sample.duration = timeFromTimestamp(std::max<int64_t>(0, packet_->duration), base);
  sample.sync = packet_->flags & AV_PKT_FLAG_KEY;
  sample.decodeOnly = (packet_->flags & AV_PKT_FLAG_DISCARD) != 0;
  // The first and last packets of most codecs reach beyond the sound that was put in.
  sample.heardFrom = kCMTimeZero;
  sample.heardUntil = namesAllSamples() ? CMTimeRangeGetEnd(timeRange_) : kCMTimeInvalid;
  if (!sample.packet) sample.packet.reset(av_packet_alloc());
  av_packet_unref(sample.packet.get());
  av_packet_move_ref(sample.packet.get(), packet_.get());
}

void TrackReader::seek(CMTime time) {
  if (goInHead(time)) return;
  const bool isTime = CMTIME_IS_NUMERIC(time) || CMTIME_IS_POSITIVE_INFINITY(time);
  if (isTime && time > kCMTimeZero) {
    if (!canRead()) return;
    const int64_t timestamp = neededFor(time, codecParameters(), head_.timeBase);
    const bool isSound = codecParameters().codec_type == AVMEDIA_TYPE_AUDIO;
    const auto land = isSound ? &TrackReader::landAt : &TrackReader::seekVideo;
    if (timestamp > 0 && (this->*land)(timestamp + head_.timelineStart)) return;
  }
  (void)rewind();
}

// The demuxer's index is by decoding time: the key frame it gives may be shown after `timestamp`,
// and then the one before it is needed. The same goes for the beginning of a gradual refresh.
bool TrackReader::seekVideo(int64_t timestamp) {
  int64_t wanted = timestamp;
  while (landAt(wanted)) {
    if (outcome_ != Outcome::Ready) return true;
    const int64_t shownAt = packet_->pts != AV_NOPTS_VALUE ? packet_->pts : packet_->dts;
    if (shownAt <= timestamp && !beginsGradualRefresh(*packet_, codecParameters())) return true;
    if (packet_->dts == AV_NOPTS_VALUE || packet_->dts > wanted) return false;
    wanted = packet_->dts - 1;
  }
  return false;
}

// Goes to the last sync sample that is decoded at or before `timestamp`, and reads it. False when
// the way there leads through the start. An index of every sample is right about the places: what
// is not there is missing from the file, which next() tells.
bool TrackReader::landAt(int64_t timestamp) {
  if (!seekPacket(timestamp)) return false;
  lastDecode_ = AV_NOPTS_VALUE;
  isFirst_ = true;
  outcome_ = read();
  pending_ = outcome_ == Outcome::Ready;
  return outcome_ != Outcome::Error || namesAllSamples();
}

bool TrackReader::seekPacket(int64_t timestamp) {
  if (indexed_) return indexed_->goToSync(timestamp);
  demuxer_->setMoved();
  return av_seek_frame(demuxer_->context(), streamIndex_, timestamp, AVSEEK_FLAG_BACKWARD) >= 0;
}

bool TrackReader::goInHead(CMTime time) {
  leave();
  inHead_ = placeInHead(time);
  return inHead_.has_value();
}

// Where seeking would go, if the head tells where that is: then nothing needs to be read.
std::optional<std::size_t> TrackReader::placeInHead(CMTime time) const {
  const auto& samples = head_.samples;
  if (samples.empty()) return std::nullopt;
  const bool isTime = CMTIME_IS_NUMERIC(time) || CMTIME_IS_POSITIVE_INFINITY(time);
  if (!isTime || time <= kCMTimeZero) return 0;
  const int64_t needed = neededFor(time, *head_.parameters, head_.timeBase);
  if (needed <= 0) return 0;
  const bool isSound = head_.parameters->codec_type == AVMEDIA_TYPE_AUDIO;
  if (isSound || !head_.tellsDecodeTimes) return std::nullopt;
  const int64_t timestamp = needed + head_.timelineStart;
  const auto after = std::ranges::find_if(samples, [timestamp](const Sample& sample) {
    return sample.packet->dts == AV_NOPTS_VALUE || sample.packet->dts > timestamp;
  });
  if (after == samples.end() || after->packet->dts == AV_NOPTS_VALUE) return std::nullopt;
  auto landing = after - samples.begin();
  const auto isIt = [&](const Sample& sample) {
    const AVPacket& packet = *sample.packet;
    return sample.sync && (packet.pts == AV_NOPTS_VALUE || packet.pts <= timestamp);
  };
  while (landing > 0 && !isIt(samples[static_cast<std::size_t>(landing - 1)])) --landing;
  return static_cast<std::size_t>(std::max<std::ptrdiff_t>(landing - 1, 0));
}

/// Stands nowhere from now on.
void TrackReader::leave() {
  lastDecode_ = AV_NOPTS_VALUE;
  isFirst_ = true;
  pending_ = false;
  outcome_ = Outcome::Ready;
  error_ = nullptr;
  inHead_.reset();
}

bool TrackReader::rewind() {
  return goInHead(kCMTimeZero) || goToFirst();
}

void TrackReader::wasAbandoned() {
  leave();
  if (indexed_) indexed_->wasAbandoned();
  if (!demuxer_ || demuxer_->survivesAbandoning()) return;
  demuxer_.reset();
  stream_ = nullptr;
}

// Has what is read from stand before the first sample. Parsing anew is the one way there that every
// format and every damaged index allows.
bool TrackReader::goToFirst() {
  if (indexed_) {
    indexed_->goTo(0);
    return true;
  }
  if (demuxer_ && (demuxer_->isAtStart() || demuxer_->rewind(streamIndex_))) return true;
  return parseAnew();
}

bool TrackReader::canRead() {
  if (indexed_) return true;
  if (!demuxer_ && (demuxer_ = source_->takeIdle())) selectStream();
  return demuxer_ || parseAnew();
}

bool TrackReader::parseAnew() {
  auto fresh = FileDemuxer::open(task_);
  if (!fresh) {
    error_ = fresh.error();
    outcome_ = Outcome::Error;
    return false;
  }
  demuxer_ = *std::move(fresh);
  selectStream();
  return true;
}

}  // namespace zaffo::media
