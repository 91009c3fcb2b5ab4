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

/// The samples of a local file. The header is parsed once by open(), which reads on to the first
/// few samples of the tracks and keeps them; its demuxer goes to the first cursor, and comes back
/// for the next one when that cursor ends, so that the cursors of a player cost at most one more
/// parse (two tracks are read at the same time). All share one descriptor. Thread: any.
class FileSampleSource : public SampleSource,
                         public std::enable_shared_from_this<FileSampleSource> {
 public:
  /// Reads and parses the header and what the tracks begin with: may wait for the disk. Fails when
  /// the file is missing, damaged, of no known format, or holds neither picture nor sound.
  static Result<std::shared_ptr<FileSampleSource>> open(const std::string& path);

  [[nodiscard]] const std::vector<std::shared_ptr<const AVAssetTrack>>& tracks() const override {
    return tracks_;
  }
  [[nodiscard]] CMTime duration() const override { return duration_; }
  [[nodiscard]] NSErrorPtr whyNotDecoded(int trackID) const override;
  Result<std::unique_ptr<SampleCursor>> openCursor(int trackID) override;

  /// For cursors: what a track begins with; null where that is not known.
  [[nodiscard]] const TrackHead* head(int trackID) const;
  /// For cursors: a demuxer that was used before; null when there is none.
  [[nodiscard]] std::unique_ptr<FileDemuxer> takeIdle();
  /// For cursors: keeps a demuxer that is no longer used for the next one.
  void giveBack(std::unique_ptr<FileDemuxer> demuxer);
  /// For cursors: parses the file again, on the same descriptor.
  Result<std::unique_ptr<FileDemuxer>> openDemuxer() const;

 private:
  explicit FileSampleSource(std::shared_ptr<const LocalFile> file) : file_(std::move(file)) {}
  void describe(FileDemuxer& demuxer);
  void readHeads(std::unique_ptr<FileDemuxer> demuxer);
  [[nodiscard]] std::unique_ptr<FileDemuxer> takeBehindHead(int streamIndex);

  const std::shared_ptr<const LocalFile> file_;
  std::vector<std::shared_ptr<const AVAssetTrack>> tracks_;
  CMTime duration_;
  std::map<int, NSErrorPtr> undecodable_;                  ///< by track, why
  std::map<int, std::unique_ptr<const TrackHead>> heads_;  ///< by track, where they could be read

  Mutex idleMutex_;
  std::vector<std::unique_ptr<FileDemuxer>> idle_ ZAFFO_GUARDED_BY(idleMutex_);
};

}  // namespace zaffo::media
