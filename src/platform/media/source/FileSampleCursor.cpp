// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/FileSampleCursor.h"

#include <utility>

#include "platform/media/source/FileSampleSource.h"

namespace zaffo::media {

FileSampleCursor::FileSampleCursor(std::shared_ptr<FileSampleSource> source,
                                   std::unique_ptr<FileDemuxer> demuxer, const AVAssetTrack& track)
    : task_(source->bytes()), reader_(std::move(source), std::move(demuxer), track, task_) {
  if (!reader_.goInHead(kCMTimeZero)) sought_ = kCMTimeZero;
}

FileSampleCursor::~FileSampleCursor() {
  abandon();
}

Outcome FileSampleCursor::next(Sample& sample) {
  if (!sought_ && reader_.isInHead()) return reader_.next(sample);
  if (!task_.isUnderWay()) std::swap(read_, sample);
  if (!task_.run([this] { readOne(); })) return Outcome::Again;
  std::swap(read_, sample);
  return outcome_;
}

void FileSampleCursor::readOne() {
  if (sought_) reader_.seek(*std::exchange(sought_, std::nullopt));
  outcome_ = reader_.next(read_);
}

bool FileSampleCursor::seek(CMTime time) {
  abandon();
  sought_.reset();
  if (!reader_.goInHead(time)) sought_ = time;
  return true;
}

NSErrorPtr FileSampleCursor::error() const {
  return sought_ || task_.isUnderWay() ? nullptr : reader_.error();
}

void FileSampleCursor::abandon() {
  if (!task_.isUnderWay()) return;
  task_.abandon();
  reader_.wasAbandoned();
}

}  // namespace zaffo::media
