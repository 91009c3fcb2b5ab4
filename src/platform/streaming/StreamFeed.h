// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Mutex.h"
#include "platform/coremedia/CMTime.h"
#include "platform/media/Outcome.h"
#include "platform/media/source/BufferedAhead.h"
#include "platform/media/source/WantHandler.h"
#include "platform/streaming/ListLoading.h"
#include "platform/streaming/ListReloading.h"
#include "platform/streaming/RenditionChoice.h"
#include "platform/streaming/SegmentBytes.h"
#include "platform/streaming/SegmentList.h"
#include "platform/streaming/StreamServices.h"

namespace zaffo::streaming {

/// A segment that somebody reads or is about to, in the rendition that was chosen for it. Its first
/// bytes are wanted from the beginning. Immutable.
struct StreamSegment {
  int64_t number = 0;
  std::size_t rendition = 0;
  CMTime start;  ///< as listed
  double seconds = 0;
  int run = 0;
  std::string header;  ///< by which its header is known; empty where it has none
  std::shared_ptr<SegmentBytes> bytes;
  std::unique_ptr<media::ByteSource::Want> first;
};

/// The segments of one stream, in one of several renditions each, which all who read it share.
/// Lists of renditions are loaded when they are chosen first, beside what is read. The list of a
/// live stream is loaded again where reading has come to its end. Thread: any.
class StreamFeed : public std::enable_shared_from_this<StreamFeed> {
 public:
  struct Rendition {
    network::URL address;
    int64_t bitsPerSecond = 0;
  };
  [[nodiscard]] static std::vector<int64_t> ratesOf(const std::vector<Rendition>& renditions);

  /// `renditions` rise; `list` is that of the one at `present`, and has a segment.
  StreamFeed(std::vector<Rendition> renditions, std::size_t present, SegmentList list,
             StreamServices services);

  [[nodiscard]] CMTime duration() const;
  [[nodiscard]] int64_t firstNumber() const;
  [[nodiscard]] int64_t numberFor(CMTime time) const;

  /// The segment of a number: Ready, or End behind the last one. Of a live stream: Again where it
  /// is not listed yet, Working where it is no longer, Error where the list cannot be had any more.
  /// `secondsRead`: where reading is, on the stream's time line.
  [[nodiscard]] media::Outcome segment(int64_t number, double secondsRead,
                                       std::shared_ptr<const StreamSegment>& segment);
  /// Has `waiter` called once when a live stream's list goes on, unless it is gone by then.
  void awaitMore(std::weak_ptr<media::WantHandler> waiter);
  /// Why a live stream's list cannot be had.
  [[nodiscard]] NSErrorPtr error() const;

  /// Somebody has read up to so many seconds.
  void noteReading(double seconds) { secondsRead_ = seconds; }
  /// What is at hand behind that.
  [[nodiscard]] media::BufferedAhead bufferedAhead() const;

 private:
  /// A rendition, and what is known of it.
  struct Known {
    Rendition rendition;
    std::optional<SegmentList> list;
    std::unique_ptr<ListLoading> loading;
    std::unique_ptr<SmallBytes::Want> want;
    bool isUnfit = false;  ///< its list could not be had, or fits no other
  };

  [[nodiscard]] const SegmentList& listWhileLocked() const ZAFFO_REQUIRES(feedMutex_) {
    return *known_[present_].list;
  }
  void reloadWhileLocked(double seconds) ZAFFO_REQUIRES(feedMutex_);
  void takeList(Result<network::Playlist> list);
  [[nodiscard]] bool goOnWhileLocked(Result<network::Playlist> list) ZAFFO_REQUIRES(feedMutex_);
  void chooseWhileLocked(const RenditionChoice::Present& present) ZAFFO_REQUIRES(feedMutex_);
  [[nodiscard]] bool isLoadedWhileLocked(Known& known) ZAFFO_REQUIRES(feedMutex_);
  [[nodiscard]] std::shared_ptr<const StreamSegment> openWhileLocked(int64_t number)
      ZAFFO_REQUIRES(feedMutex_);
  /// Whether a segment that somebody reads lies in this resource.
  [[nodiscard]] bool isReadWhileLocked(const std::string& name) ZAFFO_REQUIRES(feedMutex_);
  [[nodiscard]] std::optional<SegmentCipher> cipherWhileLocked(const network::MediaSegment& segment)
      ZAFFO_REQUIRES(feedMutex_);
  /// A header or a key, which many segments share.
  [[nodiscard]] std::shared_ptr<SmallBytes> smallWhileLocked(const network::URL& address,
                                                             network::ByteRange range, int64_t most)
      ZAFFO_REQUIRES(feedMutex_);

  const StreamServices services_;
  const RenditionChoice choice_;
  std::atomic<double> secondsRead_ = 0;

  mutable Mutex feedMutex_;
  std::vector<Known> known_ ZAFFO_GUARDED_BY(feedMutex_);
  std::size_t present_ ZAFFO_GUARDED_BY(feedMutex_);
  std::map<int64_t, std::weak_ptr<const StreamSegment>> alive_ ZAFFO_GUARDED_BY(feedMutex_);
  std::shared_ptr<ListReloading> reloading_ ZAFFO_GUARDED_BY(feedMutex_);
  bool isAsked_ ZAFFO_GUARDED_BY(feedMutex_) = false;   // to reload
  int failedReloads_ ZAFFO_GUARDED_BY(feedMutex_) = 0;  // in a row
  NSErrorPtr error_ ZAFFO_GUARDED_BY(feedMutex_);
  std::vector<std::weak_ptr<media::WantHandler>> waiters_ ZAFFO_GUARDED_BY(feedMutex_);
  /// The one that was asked for first, to learn of the tracks, until another one is.
  std::shared_ptr<const StreamSegment> opened_ ZAFFO_GUARDED_BY(feedMutex_);
  bool isNew_ ZAFFO_GUARDED_BY(feedMutex_) = true;
  /// Headers and keys that were used last, by what they are known by.
  std::vector<std::pair<std::string, std::shared_ptr<SmallBytes>>> small_
      ZAFFO_GUARDED_BY(feedMutex_);
};

}  // namespace zaffo::streaming
