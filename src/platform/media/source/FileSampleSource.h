// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/Mutex.h"
#include "platform/media/source/FileDemuxer.h"
#include "platform/media/source/SampleSource.h"
#include "platform/media/source/TrackHead.h"

namespace zaffo::media {

/// The samples of a file. The header is parsed once by open(), which reads on to the first few
/// samples of the tracks and keeps them. Of most MP4 files it keeps in few bytes where all samples
/// are, too (see IndexedTrack), which is what all cursors read by. Of the others it keeps the
/// demuxer, which goes to the first cursor, and comes back for the next one when that cursor ends,
/// so that the cursors of a player cost at most one more parse (two tracks are read at the same
/// time). All share one source of bytes. Thread: any.
class FileSampleSource : public SampleSource,
                         public std::enable_shared_from_this<FileSampleSource> {
 public:
  /// Reads and parses the header and what the tracks begin with, in the work of `task`. Fails when
  /// the file is damaged, of no known format, or holds neither picture nor sound. See
  /// SourceOpening.
  static Result<std::shared_ptr<FileSampleSource>> open(std::shared_ptr<ByteSource> bytes,
                                                        ReadTask& task);
  /// Opens a local file, for those who may wait for the disk; not on a thread for files.
  static Result<std::shared_ptr<FileSampleSource>> open(const std::string& path);

  [[nodiscard]] const std::vector<std::shared_ptr<const AVAssetTrack>>& tracks() const override {
    return tracks_;
  }
  [[nodiscard]] CMTime duration() const override { return duration_; }
  [[nodiscard]] NSErrorPtr whyNotDecoded(int trackID) const override;
  [[nodiscard]] BufferedAhead bufferedAhead() const override;
  Result<std::unique_ptr<SampleCursor>> openCursor(int trackID) override;

  /// For cursors: what is known of one of the tracks.
  [[nodiscard]] const TrackHead& head(int trackID) const { return *heads_.at(trackID); }
  [[nodiscard]] const std::shared_ptr<ByteSource>& bytes() const { return bytes_; }
  /// For cursors: a demuxer that was used before; null when there is none.
  [[nodiscard]] std::unique_ptr<FileDemuxer> takeIdle();
  /// For cursors: keeps a demuxer that is no longer used for the next one.
  void giveBack(std::unique_ptr<FileDemuxer> demuxer);

 private:
  explicit FileSampleSource(std::shared_ptr<ByteSource> bytes) : bytes_(std::move(bytes)) {}
  [[nodiscard]] bool describe(FileDemuxer& demuxer, ReadTask& task);
  void readHeads(std::unique_ptr<FileDemuxer> demuxer, ReadTask& task);
  [[nodiscard]] bool indexTracks(FileDemuxer& demuxer, ReadTask& task);
  [[nodiscard]] std::unique_ptr<FileDemuxer> takeBehindHead(int streamIndex);

  const std::shared_ptr<ByteSource> bytes_;
  std::vector<std::shared_ptr<const AVAssetTrack>> tracks_;
  CMTime duration_;
  std::map<int, NSErrorPtr> undecodable_;            ///< by track, why
  std::map<int, std::unique_ptr<TrackHead>> heads_;  ///< by track, unchanged once it is open

  Mutex idleMutex_;
  std::vector<std::unique_ptr<FileDemuxer>> idle_ ZAFFO_GUARDED_BY(idleMutex_);
};

}  // namespace zaffo::media
