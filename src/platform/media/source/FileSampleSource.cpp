// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/FileSampleSource.h"

#include <algorithm>
#include <semaphore>

#include "platform/avfoundation/AVAssetTrack.h"
#include "platform/foundation/MakeError.h"
#include "platform/media/FFmpegError.h"
#include "platform/media/HeapHoles.h"
#include "platform/media/codec/CodecContext.h"
#include "platform/media/source/EncryptedTracks.h"
#include "platform/media/source/FileSampleCursor.h"
#include "platform/media/source/LocalByteSource.h"
#include "platform/media/source/SourceOpening.h"
#include "platform/media/source/TrackIndexing.h"
#include "platform/media/source/TrackInfo.h"

namespace zaffo::media {
namespace {

// One for the picture and one for the sound of the player that comes next.
constexpr std::size_t kIdleDemuxers = 2;
/// Of a demuxer, from which on it leaves more in the heap than is left to whoever opens the next.
constexpr std::size_t kLargeIndexBytes = std::size_t{2} << 20;

/// Whether a stream is one of the `encrypted` tracks of its file, or says so itself.
bool isEncrypted(const AVStream& stream, const std::vector<int>& encrypted) {
  return std::ranges::find(encrypted, stream.id) != encrypted.end() ||
         av_dict_get(stream.metadata, "enc_key_id", nullptr, 0);
}

/// About what a demuxer holds of the samples of its file, and what it had while it parsed.
std::size_t bytesOf(const FileDemuxer& demuxer) {
  constexpr std::size_t kEach = 64;
  std::size_t count = 0;
  for (const AVStream* stream : demuxer.streams()) {
    count += static_cast<std::size_t>(avformat_index_get_entries_count(stream));
  }
  return count * kEach;
}

/// What is known without its samples; null when memory is short.
std::unique_ptr<TrackHead> headOf(const FileDemuxer& demuxer, const AVStream& stream) {
  auto head = std::make_unique<TrackHead>();
  head->timeBase = stream.time_base;
  head->timelineStart = demuxer.timelineStart(stream);
  head->tellsDecodeTimes = demuxer.tellsDecodeTimes(stream);
  head->parameters.reset(avcodec_parameters_alloc());
  if (!head->parameters) return nullptr;
  const int copied = avcodec_parameters_copy(head->parameters.get(), stream.codecpar);
  return copied >= 0 ? std::move(head) : nullptr;
}

}  // namespace

Result<std::shared_ptr<FileSampleSource>> FileSampleSource::open(std::shared_ptr<ByteSource> bytes,
                                                                 ReadTask& task) {
  std::shared_ptr<FileSampleSource> source(new FileSampleSource(std::move(bytes)));
  auto demuxer = FileDemuxer::open(task);
  if (!demuxer) return demuxer.error();
  (*demuxer)->learnStarts();
  if (!source->describe(**demuxer, task)) {
    return makeFFmpegError(AVErrorUnknown, "Out of memory.", AVERROR(ENOMEM));
  }
  if (source->tracks_.empty()) {
    return makeError(AVErrorFileFormatNotRecognized, "The file \"" + source->bytes_->name() +
                                                         "\" holds neither picture nor sound.");
  }
  source->readHeads(*std::move(demuxer), task);
  return source;
}

Result<std::shared_ptr<FileSampleSource>> FileSampleSource::open(const std::string& path) {
  auto bytes = LocalByteSource::open(path);
  if (!bytes) return bytes.error();
  std::counting_semaphore<> ready(0);
  SourceOpening opening(*std::move(bytes));
  opening.setReadyHandler([&ready] { ready.release(); });
  while (opening.step() == Outcome::Again) ready.acquire();
  return opening.take();
}

// Last that of the picture, which the demuxer then stands behind. Where there is no index it is the
// only one, for going back would mean to parse anew.
void FileSampleSource::readHeads(std::unique_ptr<FileDemuxer> demuxer, ReadTask& task) {
  auto order = tracks_;
  const auto main = std::ranges::find(order, AVMediaTypeVideo, &AVAssetTrack::mediaType);
  if (main != order.end()) std::iter_swap(main, order.end() - 1);
  if (!demuxer->hasCompleteIndex()) order.erase(order.begin(), order.end() - 1);
  for (const auto& track : order) {
    if (undecodable_.contains(track->trackID)) continue;
    TrackReader::readHead(shared_from_this(), demuxer, *track, task, *heads_[track->trackID]);
  }
  if (!indexTracks(*demuxer, task)) return giveBack(std::move(demuxer));
  const std::size_t bytes = bytesOf(*demuxer);
  demuxer.reset();
  if (bytes >= kLargeIndexBytes) returnHolesOf(bytes);
}

/// Whether the demuxer is needed no more.
bool FileSampleSource::indexTracks(FileDemuxer& demuxer, ReadTask& task) {
  bool isAll = true;
  for (const auto& track : tracks_) {
    if (undecodable_.contains(track->trackID)) continue;
    TrackHead& head = *heads_[track->trackID];
    AVStream& stream = *demuxer.streams()[static_cast<std::size_t>(track->trackID - 1)];
    head.indexed = indexTrack(demuxer, stream, head, task);
    isAll = isAll && head.indexed;
  }
  return isAll;
}

/// False when memory is short.
bool FileSampleSource::describe(FileDemuxer& demuxer, ReadTask& task) {
  duration_ = kCMTimeZero;
  AVFormatContext& context = *demuxer.context();
  const std::vector<int> encrypted = encryptedTracks(task);
  for (AVStream* stream : demuxer.streams()) {
    if (!isTrack(*stream)) continue;
    auto track =
        describeTrack(context, *stream, demuxer.timelineStart(*stream), demuxer.hasCompleteIndex());
    track->source = weak_from_this();
    NSErrorPtr obstacle = isEncrypted(*stream, encrypted) ? contentIsProtected()
                                                          : media::whyNotDecoded(*stream->codecpar);
    if (obstacle) undecodable_[track->trackID] = std::move(obstacle);
    duration_ = CMTimeMaximum(duration_, CMTimeRangeGetEnd(track->timeRange));
    heads_[track->trackID] = headOf(demuxer, *stream);
    if (!heads_[track->trackID]) return false;
    tracks_.push_back(std::move(track));
  }
  return true;
}

NSErrorPtr FileSampleSource::whyNotDecoded(int trackID) const {
  const auto found = undecodable_.find(trackID);
  return found == undecodable_.end() ? nullptr : found->second;
}

BufferedAhead FileSampleSource::bufferedAhead() const {
  const auto ahead = bytes_->ahead();
  const auto size = static_cast<double>(bytes_->size().value_or(0));
  const double duration = CMTIME_IS_NUMERIC(duration_) ? CMTimeGetSeconds(duration_) : 0;
  const double seconds = size > 0 ? static_cast<double>(ahead.count) * duration / size : 0;
  return {ahead.isAll, ahead.isRest, ahead.isFull, seconds};
}

Result<std::unique_ptr<SampleCursor>> FileSampleSource::openCursor(int trackID) {
  const auto track = std::ranges::find(tracks_, trackID, &AVAssetTrack::trackID);
  if (track == tracks_.end()) return makeError(AVErrorUnknown, "The asset has no such track.");
  std::unique_ptr<FileDemuxer> demuxer;
  if (!head(trackID).indexed) demuxer = takeBehindHead(trackID - 1);
  if (!demuxer && head(trackID).samples.empty()) demuxer = takeIdle();
  return std::make_unique<FileSampleCursor>(shared_from_this(), std::move(demuxer), **track);
}

std::unique_ptr<FileDemuxer> FileSampleSource::takeBehindHead(int streamIndex) {
  MutexLock lock(idleMutex_);
  const auto found = std::ranges::find_if(
      idle_, [streamIndex](const auto& demuxer) { return demuxer->isBehindHead(streamIndex); });
  if (found == idle_.end()) return nullptr;
  std::unique_ptr<FileDemuxer> demuxer = std::move(*found);
  idle_.erase(found);
  return demuxer;
}

std::unique_ptr<FileDemuxer> FileSampleSource::takeIdle() {
  MutexLock lock(idleMutex_);
  if (idle_.empty()) return nullptr;
  std::unique_ptr<FileDemuxer> demuxer = std::move(idle_.back());
  idle_.pop_back();
  return demuxer;
}

void FileSampleSource::giveBack(std::unique_ptr<FileDemuxer> demuxer) {
  MutexLock lock(idleMutex_);
  if (idle_.size() < kIdleDemuxers) idle_.push_back(std::move(demuxer));
}

}  // namespace zaffo::media
