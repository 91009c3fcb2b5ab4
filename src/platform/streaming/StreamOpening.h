// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/foundation/Result.h"
#include "platform/media/Outcome.h"
#include "platform/media/source/ReadTask.h"
#include "platform/media/source/SegmentReader.h"
#include "platform/streaming/ListLoading.h"
#include "platform/streaming/StreamClock.h"
#include "platform/streaming/StreamFeed.h"
#include "platform/streaming/StreamServices.h"
#include "platform/streaming/StreamSource.h"

namespace zaffo::streaming {

/// The opening of a stream, in steps that never wait: its list, that of the rendition to begin with
/// and of sound that comes apart, then the front of the first segment of each, which tells of the
/// tracks. Thread: one at a time; the ready handler is called on any.
///
///   list ── master ──▶ list of a rendition ──▶ list of the sound ──▶ first segments ──▶ a source
///     └──── media ───────────────────────────────────────────────────────▲
///
/// A master list that names another one is refused, so lists do not nest any deeper.
class StreamOpening {
 public:
  /// Bytes that tell a stream's list from a clip.
  static constexpr std::size_t kMarkBytes = 10;
  /// Whether what begins so, with kMarkBytes if there are that many, is a list.
  [[nodiscard]] static bool isList(std::span<const uint8_t> front);

  explicit StreamOpening(network::URL address, StreamServices services = StreamServices::shared());

  /// Called when step() may get further. Set before the first step.
  void setReadyHandler(std::function<void()> handler) { ready_ = std::move(handler); }
  /// Again while bytes are missing; Ready or Error when it has come to its end: see take().
  [[nodiscard]] media::Outcome step();
  /// What came of it.
  [[nodiscard]] Result<std::shared_ptr<media::SampleSource>> take() { return *std::move(opened_); }

 private:
  enum class Stage { List, RenditionList, SoundList, Segments };
  using Opened = Result<std::shared_ptr<media::SampleSource>>;

  [[nodiscard]] media::Outcome stepStage();
  [[nodiscard]] media::Outcome stepList();
  void load(Stage stage, const network::URL& address);
  void takeList(network::Playlist list);
  void takeMaster(const network::Playlist& list);
  void takeMedia(network::Playlist list);
  void takeSegments(SegmentList segments);
  void describeNext();
  [[nodiscard]] media::Outcome stepSegment();
  void takeTracks(std::vector<media::SegmentTrack> tracks);
  void finish();
  void fail(NSErrorPtr error) { opened_ = Opened(std::move(error)); }

  const StreamServices services_;
  std::function<void()> ready_;
  std::optional<Opened> opened_;

  Stage stage_ = Stage::List;
  network::URL address_;  // of the list that is loaded
  bool isFresh_ = false;  // and not as it was kept
  std::unique_ptr<ListLoading> loading_;
  std::unique_ptr<SmallBytes::Want> want_;
  std::vector<StreamFeed::Rendition> renditions_;
  std::size_t first_ = 0;      // of the renditions
  network::URL soundAddress_;  // null where the sound comes with the pictures
  std::string soundLanguage_;

  const std::shared_ptr<StreamClock> clock_ = std::make_shared<StreamClock>();
  std::vector<std::shared_ptr<StreamFeed>> feeds_;  // that of the sound last
  std::size_t described_ = 0;                       // of the feeds
  std::vector<StreamSource::Part> parts_;
  std::shared_ptr<const StreamSegment> segment_;
  std::optional<Result<std::unique_ptr<media::SegmentReader>>> reader_;
  std::unique_ptr<media::ReadTask> task_;  // ends before what it writes to
};

}  // namespace zaffo::streaming
